#include "field_builder.h"

#include "kz_id3.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace kzhost {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
// Buffers that grew past this for one large field are given back when the
// next file starts, so that a reader does not keep its largest field.
constexpr size_t kKeptCapacity = size_t{1} << 20;
constexpr size_t kFirstCapacity = 256;

bool IsHighSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
bool IsSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

template <typename Buffer>
void Recycle(Buffer& buffer) {
    if (buffer.capacity() * sizeof buffer[0] > kKeptCapacity) Buffer().swap(buffer);
    buffer.clear();
}

// The names kzdump has always shown for the ID3v1 fields.
const char* Id3v1Name(uint32_t number) {
    switch (number) {
        case KZ_FIELD_TIT2: return "ID3v1 title";
        case KZ_FIELD_TPE1: return "ID3v1 artist";
        case KZ_FIELD_TALB: return "ID3v1 album";
        case KZ_FIELD_TYER: return "ID3v1 year";
        case KZ_FIELD_COMM: return "ID3v1 comment";
        case KZ_FIELD_TRCK: return "ID3v1 track";
        case KZ_FIELD_TCON: return "ID3v1 genre";
        default: return nullptr;
    }
}

}  // namespace

// ---- TextBuffer --------------------------------------------------------------------

TextBuffer::~TextBuffer() { std::free(data_); }

void TextBuffer::Grow(size_t extra) {
    const size_t capacity = std::max({capacity_ * 2, size_ + extra, kFirstCapacity});
    char* data = static_cast<char*>(std::realloc(data_, capacity));
    if (data == nullptr) throw std::bad_alloc();
    data_ = data;
    capacity_ = capacity;
}

void TextBuffer::Reset(bool release) {
    size_ = 0;
    if (!release) return;
    std::free(data_);
    data_ = nullptr;
    capacity_ = 0;
}

// ---- The cursor --------------------------------------------------------------------

inline void FieldBuilder::Arm() {
    if (target_ == nullptr) {
        cursor_ = bound_ = runStart_ = nullptr;
        return;
    }
    cursor_ = runStart_ = bound_ = target_->Data() + target_->Size();
    if (halted_ || keepCodes_ || pendingHigh_ != 0 || chars_ >= charLimit_) return;
    // One byte stays free for the NUL that ends the text.  A character
    // takes one byte or more: a bound within the character limit in bytes
    // keeps the run within it in characters.
    const size_t free = target_->Capacity() - target_->Size();
    bound_ += std::min<uint64_t>(free != 0 ? free - 1 : 0, charLimit_ - chars_);
}

void FieldBuilder::Halt() {
    halted_ = true;
    Settle();
    bound_ = cursor_;
}

void FieldBuilder::Start(uint64_t charLimit, bool keepCodes, kz_host_visitor visitor,
                         void* user) {
    first_ = 0;
    count_ = 0;
    decidedEnd_ = 0;
    open_ = kNone;
    target_ = nullptr;
    values_.Reset(values_.Capacity() > kKeptCapacity);
    strings_.Reset(strings_.Capacity() > kKeptCapacity);
    stringTags_.clear();
    Recycle(valueCodes_);
    Recycle(stringCodes_);
    visitor_ = visitor;
    user_ = user;
    charLimit_ = charLimit;
    chars_ = 0;
    delivered_ = 0;
    pendingHigh_ = 0;
    extraBytes_ = 0;
    keepCodes_ = keepCodes;
    utf16_ = false;
    inString_ = false;
    overflowed_ = false;
    halted_ = false;
    Arm();
}

// ---- Characters --------------------------------------------------------------------

bool FieldBuilder::Admit() {
    if (halted_) return false;
    if (chars_ >= charLimit_) {
        overflowed_ = true;
        return false;
    }
    ++chars_;
    if (open_ == kNone) Open(KZ_HOST_ITEM_OUTSIDE, 0, 0);
    return true;
}

void FieldBuilder::PutUtf8(char32_t cp) {
    TextBuffer& out = *target_;
    out.Reserve(4);
    out.SetSize(static_cast<size_t>(EncodeUtf8(cp, out.Data() + out.Size()) - out.Data()));
}

void FieldBuilder::PutReplacement() {
    PutUtf8(kReplacement);
    pendingHigh_ = 0;
}

void FieldBuilder::OtherChar(uint16_t code) {
    Settle();
    if (Admit()) {
        if (keepCodes_) {
            (inString_ ? stringCodes_ : valueCodes_)
                .push_back(code | (utf16_ ? KZ_HOST_CODE_UTF16 : 0u));
        }
        if (pendingHigh_ != 0 && utf16_ && IsLowSurrogate(code)) {
            PutUtf8(0x10000 + ((pendingHigh_ - 0xD800) << 10) + (code - 0xDC00));
            pendingHigh_ = 0;
        } else {
            FlushPending();
            if (utf16_ && IsHighSurrogate(code)) {
                pendingHigh_ = code;
            } else {
                PutUtf8(IsSurrogate(code) ? kReplacement : code);
            }
        }
    }
    Arm();
}

void FieldBuilder::Special(uint16_t code) {
    Settle();
    if (Admit()) {
        if (keepCodes_) {
            (inString_ ? stringCodes_ : valueCodes_).push_back(KZ_HOST_CODE_SPECIAL | code);
        }
        FlushPending();
        if (code == SO_SPECIAL_LINEBREAK) PutUtf8('\n');
    }
    Arm();
}

// ---- Items -------------------------------------------------------------------------

void FieldBuilder::AddItemSlot() { items_.emplace_back(); }

inline void FieldBuilder::Open(int kind, uint32_t tag, uint32_t number) {
    if (count_ == items_.size()) AddItemSlot();
    Item& item = items_[count_];
    item.kind = kind;
    item.tag = tag;
    item.number = number;
    item.id3v1 = false;
    item.stringClosed = false;
    item.descriptionUtf16 = false;
    item.valueUtf16 = false;
    item.start = values_.Size();
    item.codesStart = valueCodes_.size();
    item.stringCount = 0;
    open_ = count_++;
    target_ = &values_;
    inString_ = false;
    pendingHigh_ = 0;
}

size_t FieldBuilder::EndText(size_t start) {
    target_->Reserve(1);
    const size_t length = target_->Size() - start;
    target_->Put('\0');
    return length;
}

void FieldBuilder::CloseString() {
    FlushPending();
    StringTag& string = stringTags_.back();
    string.length = EndText(string.start);
    string.codeCount = stringCodes_.size() - string.codesStart;
    inString_ = false;
    target_ = &values_;
}

void FieldBuilder::CloseOpen() {
    Item& item = OpenItem();
    if (inString_) CloseString();
    FlushPending();
    item.length = EndText(item.start);
    item.codeCount = valueCodes_.size() - item.codesStart;
    open_ = kNone;
    target_ = nullptr;
    EmitReady();
}

void FieldBuilder::BeginField(uint32_t tag, uint32_t number) {
    Settle();
    if (halted_) return;
    if (open_ != kNone) CloseOpen();
    Open(KZ_HOST_ITEM_FIELD, tag, number);
    Arm();
}

void FieldBuilder::EndField() {
    Settle();
    if (open_ == kNone || OpenItem().kind != KZ_HOST_ITEM_FIELD) return;
    CloseOpen();
    Arm();
}

void FieldBuilder::BeginString(uint32_t tag) {
    Settle();
    if (halted_) return;
    if (open_ == kNone) Open(KZ_HOST_ITEM_OUTSIDE, 0, 0);
    if (inString_) {
        CloseString();
        OpenItem().stringClosed = true;
    }
    // The value's text goes on after the string: a high surrogate before it
    // has lost its low half.
    FlushPending();
    Item& item = OpenItem();
    if (item.stringCount++ == 0) item.firstString = stringTags_.size();
    stringTags_.push_back(StringTag{tag, values_.Size() - item.start, strings_.Size(), 0,
                                    stringCodes_.size(), 0});
    inString_ = true;
    target_ = &strings_;
    if (utf16_ && !item.stringClosed) item.descriptionUtf16 = true;
    Arm();
}

void FieldBuilder::EndString() {
    Settle();
    if (!inString_) return;
    CloseString();
    OpenItem().stringClosed = true;
    Arm();
}

void FieldBuilder::SetUtf16(bool utf16) {
    // Nothing the cursor depends on: ASCII is the same either way.
    utf16_ = utf16;
    if (!utf16 || open_ == kNone) return;
    Item& item = OpenItem();
    if (inString_ && !item.stringClosed) item.descriptionUtf16 = true;
    if (!inString_ && item.stringClosed) item.valueUtf16 = true;
}

void FieldBuilder::FrameBreak() {
    Settle();
    if (open_ != kNone && OpenItem().kind == KZ_HOST_ITEM_OUTSIDE) CloseOpen();
    decidedEnd_ = count_;
    EmitReady();
    Arm();
}

void FieldBuilder::Failure(uint32_t code) {
    Settle();
    if (halted_) return;
    if (open_ != kNone) CloseOpen();
    Open(KZ_HOST_ITEM_FAILURE, code, 0);
    CloseOpen();
    Arm();
}

void FieldBuilder::Finish(bool endSeen) {
    Settle();
    if (open_ != kNone) CloseOpen();
    for (size_t i = std::max(first_, decidedEnd_); i < count_; ++i) {
        items_[i].id3v1 = endSeen && items_[i].kind == KZ_HOST_ITEM_FIELD;
    }
    decidedEnd_ = count_;
    EmitReady();
    Arm();
}

// ---- Handing over ------------------------------------------------------------------

void FieldBuilder::EmitHeld() {
    while (first_ < count_ && first_ != open_ && !halted_) {
        const Item& item = items_[first_];
        if (item.kind == KZ_HOST_ITEM_FIELD && first_ >= decidedEnd_) return;
        ++first_;
        Emit(item);
    }
    // Every held item is out: the slots and the texts are free again.
    if (first_ == count_) {
        first_ = count_ = decidedEnd_ = 0;
        values_.SetSize(0);
        strings_.SetSize(0);
        stringTags_.clear();
        valueCodes_.clear();
        stringCodes_.clear();
    }
}

void FieldBuilder::Emit(const Item& item) {
    kz_host_field field;
    field.struct_size = sizeof field;
    field.kind = item.kind;
    field.tag = item.tag;
    field.number = item.number;
    field.id3v1 = item.id3v1 ? 1 : 0;
    field.ident = "";
    const bool userDefined = item.kind == KZ_HOST_ITEM_FIELD && !item.id3v1 &&
                             item.number >= KZ_FIELD_USER_DEFINED_BASE;
    if (item.kind == KZ_HOST_ITEM_FIELD) {
        const char* name = item.id3v1 ? Id3v1Name(item.number) : nullptr;
        if (name != nullptr) {
            field.ident = name;
        } else if (userDefined) {
            // The module switches to UTF-16 for a TXXX value whenever the
            // frame's encoding is UTF-16, while a WXXX URL is always single
            // bytes; a single-byte description leaves the two apart.
            field.ident = item.valueUtf16 ? "TXXX" : item.descriptionUtf16 ? "WXXX" : "TXXX/WXXX";
        } else if (const char* ident = KzFieldIdent(item.number)) {
            field.ident = ident;
        } else {
            std::snprintf(numberedIdent_, sizeof numberedIdent_, "field %u", item.number);
            field.ident = numberedIdent_;
        }
    }
    field.description = nullptr;
    field.description_len = 0;
    field.strings = nullptr;
    field.string_count = item.stringCount;
    if (item.stringCount != 0) {
        stringViews_.resize(item.stringCount);
        for (size_t i = 0; i < item.stringCount; ++i) {
            const StringTag& string = stringTags_[item.firstString + i];
            kz_host_string& view = stringViews_[i];
            view.tag = string.tag;
            view.offset = string.offset;
            view.text = strings_.Data() + string.start;
            view.text_len = string.length;
            view.codes = keepCodes_ ? stringCodes_.data() + string.codesStart : nullptr;
            view.code_count = keepCodes_ ? string.codeCount : 0;
        }
        field.strings = stringViews_.data();
        if (userDefined) {
            field.description = stringViews_[0].text;
            field.description_len = stringViews_[0].text_len;
        }
    }
    field.text = values_.Data() + item.start;
    field.text_len = item.length;
    field.codes = keepCodes_ ? valueCodes_.data() + item.codesStart : nullptr;
    field.code_count = keepCodes_ ? item.codeCount : 0;
    ++delivered_;
    if (visitor_(&field, user_) != 0) halted_ = true;
}

}  // namespace kzhost
