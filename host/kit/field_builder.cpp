#include "field_builder.h"

#include "kz_id3.h"

#include <cstdio>
#include <cstring>

namespace kzhost {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
// Buffers that grew past this for one large field are given back when the
// next file starts, so that a reader does not keep its largest field.
constexpr size_t kKeptCapacity = size_t{1} << 20;

bool IsHighSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
bool IsSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

void AppendUtf8(char32_t cp, std::string& out) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        const char bytes[] = {static_cast<char>(0xC0 | (cp >> 6)),
                              static_cast<char>(0x80 | (cp & 0x3F))};
        out.append(bytes, sizeof bytes);
    } else if (cp < 0x10000) {
        const char bytes[] = {static_cast<char>(0xE0 | (cp >> 12)),
                              static_cast<char>(0x80 | ((cp >> 6) & 0x3F)),
                              static_cast<char>(0x80 | (cp & 0x3F))};
        out.append(bytes, sizeof bytes);
    } else {
        const char bytes[] = {static_cast<char>(0xF0 | (cp >> 18)),
                              static_cast<char>(0x80 | ((cp >> 12) & 0x3F)),
                              static_cast<char>(0x80 | ((cp >> 6) & 0x3F)),
                              static_cast<char>(0x80 | (cp & 0x3F))};
        out.append(bytes, sizeof bytes);
    }
}

template <typename Buffer>
void Recycle(Buffer& buffer) {
    if (buffer.capacity() > kKeptCapacity) Buffer().swap(buffer);
    buffer.clear();
}

// A high surrogate left without its low half becomes U+FFFD.
void FlushPending(uint32_t& pendingHigh, std::string& out) {
    if (pendingHigh == 0) return;
    AppendUtf8(kReplacement, out);
    pendingHigh = 0;
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

void FieldBuilder::Text::Clear() {
    Recycle(utf8);
    Recycle(codes);
    pendingHigh = 0;
}

void FieldBuilder::Start(uint64_t charLimit, bool keepCodes, kz_host_visitor visitor,
                         void* user) {
    for (std::unique_ptr<Item>& item : items_) {
        item->value.Clear();
        for (StringTag& string : item->strings) string.text.Clear();
    }
    first_ = 0;
    count_ = 0;
    open_ = kNone;
    target_ = nullptr;
    visitor_ = visitor;
    user_ = user;
    charLimit_ = charLimit;
    chars_ = 0;
    delivered_ = 0;
    keepCodes_ = keepCodes;
    utf16_ = false;
    inString_ = false;
    overflowed_ = false;
    halted_ = false;
}

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

void FieldBuilder::OtherChar(uint16_t code) {
    if (!Admit()) return;
    Text& text = *target_;
    if (keepCodes_) text.codes.push_back(code | (utf16_ ? KZ_HOST_CODE_UTF16 : 0u));
    if (text.pendingHigh != 0) {
        if (utf16_ && IsLowSurrogate(code)) {
            AppendUtf8(0x10000 + ((text.pendingHigh - 0xD800) << 10) + (code - 0xDC00), text.utf8);
            text.pendingHigh = 0;
            return;
        }
        FlushPending(text.pendingHigh, text.utf8);
    }
    if (code < 0x80) {
        text.utf8.push_back(static_cast<char>(code));
    } else if (utf16_ && IsHighSurrogate(code)) {
        text.pendingHigh = code;
    } else {
        AppendUtf8(IsSurrogate(code) ? kReplacement : code, text.utf8);
    }
}

void FieldBuilder::Special(uint16_t code) {
    if (!Admit()) return;
    Text& text = *target_;
    if (keepCodes_) text.codes.push_back(KZ_HOST_CODE_SPECIAL | code);
    FlushPending(text.pendingHigh, text.utf8);
    if (code == SO_SPECIAL_LINEBREAK) text.utf8.push_back('\n');
}

void FieldBuilder::Open(int kind, uint32_t tag, uint32_t number) {
    if (count_ == items_.size()) items_.push_back(std::make_unique<Item>());
    Item& item = *items_[count_];
    item.kind = kind;
    item.tag = tag;
    item.number = number;
    item.closed = false;
    item.decided = false;
    item.id3v1 = false;
    item.stringClosed = false;
    item.descriptionUtf16 = false;
    item.valueUtf16 = false;
    item.value.utf8.clear();
    item.value.codes.clear();
    item.value.pendingHigh = 0;
    item.stringCount = 0;
    open_ = count_++;
    target_ = &item.value;
    inString_ = false;
}

void FieldBuilder::CloseString(Item& item) {
    Text& text = item.strings[item.stringCount - 1].text;
    FlushPending(text.pendingHigh, text.utf8);
    inString_ = false;
    target_ = &item.value;
}

void FieldBuilder::CloseOpen() {
    if (open_ == kNone) return;
    Item& item = OpenItem();
    if (inString_) CloseString(item);
    FlushPending(item.value.pendingHigh, item.value.utf8);
    item.closed = true;
    open_ = kNone;
    target_ = nullptr;
    EmitReady();
}

void FieldBuilder::BeginField(uint32_t tag, uint32_t number) {
    if (halted_) return;
    CloseOpen();
    Open(KZ_HOST_ITEM_FIELD, tag, number);
}

void FieldBuilder::EndField() {
    if (open_ != kNone && OpenItem().kind == KZ_HOST_ITEM_FIELD) CloseOpen();
}

void FieldBuilder::BeginString(uint32_t tag) {
    if (halted_) return;
    if (open_ == kNone) Open(KZ_HOST_ITEM_OUTSIDE, 0, 0);
    Item& item = OpenItem();
    if (inString_) EndString();
    // The value's text goes on after the string: a high surrogate before it
    // has lost its low half.
    FlushPending(item.value.pendingHigh, item.value.utf8);
    if (item.stringCount == item.strings.size()) item.strings.emplace_back();
    StringTag& string = item.strings[item.stringCount++];
    string.tag = tag;
    string.offset = item.value.utf8.size();
    string.text.utf8.clear();
    string.text.codes.clear();
    string.text.pendingHigh = 0;
    inString_ = true;
    target_ = &string.text;
    if (utf16_ && !item.stringClosed) item.descriptionUtf16 = true;
}

void FieldBuilder::EndString() {
    if (!inString_) return;
    Item& item = OpenItem();
    CloseString(item);
    item.stringClosed = true;
}

void FieldBuilder::SetUtf16(bool utf16) {
    utf16_ = utf16;
    if (!utf16 || open_ == kNone) return;
    Item& item = OpenItem();
    if (inString_ && !item.stringClosed) item.descriptionUtf16 = true;
    if (!inString_ && item.stringClosed) item.valueUtf16 = true;
}

void FieldBuilder::FrameBreak() {
    if (open_ != kNone && OpenItem().kind == KZ_HOST_ITEM_OUTSIDE) CloseOpen();
    for (size_t i = first_; i < count_; ++i) items_[i]->decided = true;
    EmitReady();
}

void FieldBuilder::Failure(uint32_t code) {
    if (halted_) return;
    CloseOpen();
    Open(KZ_HOST_ITEM_FAILURE, code, 0);
    CloseOpen();
}

void FieldBuilder::Finish(bool endSeen) {
    CloseOpen();
    for (size_t i = first_; i < count_; ++i) {
        Item& item = *items_[i];
        if (!item.decided) item.id3v1 = endSeen && item.kind == KZ_HOST_ITEM_FIELD;
        item.decided = true;
    }
    EmitReady();
}

void FieldBuilder::EmitReady() {
    while (first_ < count_ && !halted_) {
        Item& item = *items_[first_];
        if (!item.closed || (item.kind == KZ_HOST_ITEM_FIELD && !item.decided)) return;
        ++first_;
        Emit(item);
    }
    // Every held item is out: the slots are free again.
    if (first_ == count_) first_ = count_ = 0;
}

void FieldBuilder::Emit(Item& item) {
    kz_host_field field{};
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
            std::snprintf(item.ident, sizeof item.ident, "field %u", item.number);
            field.ident = item.ident;
        }
    }
    stringViews_.resize(item.stringCount);
    for (size_t i = 0; i < item.stringCount; ++i) {
        const StringTag& string = item.strings[i];
        kz_host_string& view = stringViews_[i];
        view.tag = string.tag;
        view.offset = string.offset;
        view.text = string.text.utf8.c_str();
        view.text_len = string.text.utf8.size();
        view.codes = keepCodes_ ? string.text.codes.data() : nullptr;
        view.code_count = keepCodes_ ? string.text.codes.size() : 0;
    }
    if (userDefined && item.stringCount != 0) {
        field.description = stringViews_[0].text;
        field.description_len = stringViews_[0].text_len;
    }
    field.text = item.value.utf8.c_str();
    field.text_len = item.value.utf8.size();
    field.strings = stringViews_.data();
    field.string_count = item.stringCount;
    field.codes = keepCodes_ ? item.value.codes.data() : nullptr;
    field.code_count = keepCodes_ ? item.value.codes.size() : 0;
    ++delivered_;
    if (visitor_(&field, user_) != 0) halted_ = true;
}

}  // namespace kzhost
