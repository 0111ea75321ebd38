// What the module delivers, made into fields call by call: the text of each
// field as UTF-8, its string tags, optionally its raw codes, its identifier
// and whether it belongs to the ID3v1 trailer.  A field goes to the visitor
// as soon as it is closed and its kind is known.
//
// Nearly every call the module makes is one character, most of them ASCII,
// so characters have a path of their own: the UTF-8 bytes stored at a
// cursor in the text being built, while the cursor is below a bound.
// Every other call first settles what the cursor wrote (the text's length,
// the characters counted), does its work, and then arms the cursor again:
// its bound is the end of the room the text has, within the character
// limit, or the cursor itself whenever a character needs more than a store
// (codes kept, a surrogate half waiting, nothing open, the read halted).
#ifndef KZ_HOST_FIELD_BUILDER_H
#define KZ_HOST_FIELD_BUILDER_H

#include "kz_host.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kzhost {

// A growing byte buffer; its texts are addressed by offset, so that growth
// may move it.
class TextBuffer {
public:
    TextBuffer() = default;
    ~TextBuffer();
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    char* Data() const { return data_; }
    size_t Size() const { return size_; }
    void SetSize(size_t size) { size_ = size; }
    size_t Capacity() const { return capacity_; }
    // Room for `extra` more bytes; throws std::bad_alloc when memory runs out.
    void Reserve(size_t extra) {
        if (capacity_ - size_ < extra) Grow(extra);
    }
    void Put(char byte) { data_[size_++] = byte; }
    // Empties it; `release` gives the memory back too.
    void Reset(bool release);

private:
    void Grow(size_t extra);

    char* data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// Writes the UTF-8 bytes of a code point at `out`; returns their end.
inline char* EncodeUtf8(char32_t cp, char* out) {
    if (cp < 0x80) {
        *out++ = static_cast<char>(cp);
    } else if (cp < 0x800) {
        *out++ = static_cast<char>(0xC0 | (cp >> 6));
        *out++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (cp >> 12));
        *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (cp >> 18));
        *out++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (cp & 0x3F));
    }
    return out;
}

class FieldBuilder {
public:
    // Begins a file.  Characters beyond `charLimit` are dropped (and
    // Overflowed() says so).
    void Start(uint64_t charLimit, bool keepCodes, kz_host_visitor visitor, void* user);

    // An ASCII character stored at the cursor; false when the call needs
    // StoreOther.
    bool StoreAscii(uint16_t code) {
        if (code >= 0x80 || !(cursor_ < bound_)) return false;
        *cursor_++ = static_cast<char>(code);
        return true;
    }
    // A character StoreAscii did not take.  One that is not a surrogate half
    // goes at the cursor as two or three bytes when there is room.
    void StoreOther(uint16_t code) {
        const ptrdiff_t bytes = code < 0x800 ? 2 : 3;
        if (code >= 0x80 && (code < 0xD800 || code > 0xDFFF) && bound_ - cursor_ >= bytes) {
            cursor_ = EncodeUtf8(code, cursor_);
            extraBytes_ += static_cast<size_t>(bytes - 1);
        } else {
            OtherChar(code);
        }
    }
    void Special(uint16_t code);
    void BeginField(uint32_t tag, uint32_t number);
    void EndField();
    void BeginString(uint32_t tag);
    void EndString();
    void SetUtf16(bool utf16);
    void FrameBreak();
    void Failure(uint32_t code);
    // Closes what is open and hands over every held item; the fields opened
    // after the last frame break are ID3v1 fields when the end break came.
    void Finish(bool endSeen);
    // Stops taking calls (the visitor asked to stop, or memory ran out).
    void Halt();

    bool Halted() const { return halted_; }
    bool Overflowed() const { return overflowed_; }
    size_t Delivered() const { return delivered_; }

private:
    struct StringTag {
        uint32_t tag;
        size_t offset;      // in the value's text, where the string stood
        size_t start;       // its text in strings_
        size_t length;
        size_t codesStart;  // its codes in stringCodes_
        size_t codeCount;
    };
    // An item is closed when it is not the open one, and known not to be
    // from the ID3v1 trailer when a frame break came after it opened (it
    // lies before decidedEnd_).
    struct Item {
        int kind;
        uint32_t tag;
        uint32_t number;
        bool id3v1;
        bool stringClosed;      // a string tag has closed in this item
        bool descriptionUtf16;  // UTF-16 was in force in the first string
        bool valueUtf16;        // switched to UTF-16 after a string closed
        size_t start;           // its value's text in values_
        size_t length;
        size_t codesStart;      // its value's codes in valueCodes_
        size_t codeCount;
        size_t firstString;     // its string tags in stringTags_
        size_t stringCount;
    };

    // Takes in what the cursor wrote since it was armed.
    void Settle() {
        const auto ran = static_cast<size_t>(cursor_ - runStart_);
        if (ran == 0) return;
        target_->SetSize(target_->Size() + ran);
        chars_ += ran - extraBytes_;
        runStart_ = cursor_;
        extraBytes_ = 0;
    }
    // Places the cursor at the end of the text being built, and its bound.
    void Arm();
    // Every character the cursor does not take.
    [[gnu::noinline]] void OtherChar(uint16_t code);
    // False when the call must be dropped; opens an outside item if none is
    // open and counts a character against the limit.
    bool Admit();
    // Appends a code point as UTF-8 to the text being built.
    void PutUtf8(char32_t cp);
    // A high surrogate left without its low half becomes U+FFFD.
    void FlushPending() {
        if (pendingHigh_ != 0) PutReplacement();
    }
    void PutReplacement();
    void Open(int kind, uint32_t tag, uint32_t number);
    [[gnu::noinline]] void AddItemSlot();
    void CloseString();
    void CloseOpen();
    // Ends the text being built, which began at `start`, with a NUL;
    // returns its length.
    size_t EndText(size_t start);
    // Hands over the held items, in order, up to the first that is still
    // open or not yet known to be ID3v2 or ID3v1.
    void EmitReady() {
        if (first_ < count_ && first_ != open_ &&
            (first_ < decidedEnd_ || items_[first_].kind != KZ_HOST_ITEM_FIELD)) {
            EmitHeld();
        }
    }
    void EmitHeld();
    void Emit(const Item& item);
    Item& OpenItem() { return items_[open_]; }

    static constexpr size_t kNone = static_cast<size_t>(-1);

    // The cursor first, on one cache line.
    char* cursor_ = nullptr;
    char* bound_ = nullptr;
    char* runStart_ = nullptr;      // where the cursor was armed
    size_t extraBytes_ = 0;         // bytes of the run beyond one per character
    TextBuffer* target_ = nullptr;  // values_ or strings_; null when nothing is open

    uint64_t charLimit_ = 0;
    uint64_t chars_ = 0;        // settled characters
    uint32_t pendingHigh_ = 0;  // a high surrogate waiting for its low half
    bool keepCodes_ = false;
    bool utf16_ = false;
    bool inString_ = false;
    bool overflowed_ = false;
    bool halted_ = false;

    // Held items: [first_, count_) of items_, whose slots are reused from
    // file to file; the texts of the held items, and of the open one, in
    // two buffers.
    std::vector<Item> items_;
    size_t first_ = 0;
    size_t count_ = 0;
    size_t decidedEnd_ = 0;
    size_t open_ = kNone;
    TextBuffer values_;
    TextBuffer strings_;
    std::vector<StringTag> stringTags_;
    std::vector<uint32_t> valueCodes_;
    std::vector<uint32_t> stringCodes_;
    std::vector<kz_host_string> stringViews_;
    char numberedIdent_[24] = {};  // "field N" of the item being handed over

    kz_host_visitor visitor_ = nullptr;
    void* user_ = nullptr;
    size_t delivered_ = 0;
};

}  // namespace kzhost

#endif  // KZ_HOST_FIELD_BUILDER_H
