// What the module delivers, made into fields call by call: the text of each
// field as UTF-8, its string tags, optionally its raw codes, its identifier
// and whether it belongs to the ID3v1 trailer.  A field goes to the visitor
// as soon as it is closed and its kind is known.
#ifndef KZ_HOST_FIELD_BUILDER_H
#define KZ_HOST_FIELD_BUILDER_H

#include "kz_host.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kzhost {

class FieldBuilder {
public:
    // Begins a file.  Characters beyond `charLimit` are dropped (and
    // Overflowed() says so).
    void Start(uint64_t charLimit, bool keepCodes, kz_host_visitor visitor, void* user);

    // Inline for the most common character, an ASCII one going into an open
    // item: one append, no call.
    void Char(uint16_t code) {
        if (code < 0x80 && target_ != nullptr && !keepCodes_ && !halted_ && chars_ < charLimit_ &&
            target_->pendingHigh == 0) {
            ++chars_;
            target_->utf8.push_back(static_cast<char>(code));
            return;
        }
        OtherChar(code);
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
    void Halt() { halted_ = true; }

    bool Halted() const { return halted_; }
    bool Overflowed() const { return overflowed_; }
    size_t Delivered() const { return delivered_; }

private:
    struct Text {
        std::string utf8;
        std::vector<uint32_t> codes;
        uint32_t pendingHigh = 0;  // a high surrogate waiting for its low half
        void Clear();
    };
    struct StringTag {
        uint32_t tag = 0;
        size_t offset = 0;
        Text text;
    };
    struct Item {
        int kind = KZ_HOST_ITEM_FIELD;
        uint32_t tag = 0;
        uint32_t number = 0;
        bool closed = false;
        bool decided = false;           // a frame break came after it opened: not ID3v1
        bool id3v1 = false;
        bool stringClosed = false;      // a string tag has closed in this item
        bool descriptionUtf16 = false;  // UTF-16 was in force in the first string
        bool valueUtf16 = false;        // switched to UTF-16 after a string closed
        Text value;
        std::vector<StringTag> strings;
        size_t stringCount = 0;
        char ident[24] = {};
    };

    // Every character Char does not append itself.
    void OtherChar(uint16_t code);
    // False when the call must be dropped; opens an outside item if none is
    // open and counts a character against the limit.
    bool Admit();
    void Open(int kind, uint32_t tag, uint32_t number);
    void CloseOpen();
    void CloseString(Item& item);
    // Hands over the held items, in order, up to the first that is still
    // open or not yet known to be ID3v2 or ID3v1.
    void EmitReady();
    void Emit(Item& item);
    Item& OpenItem() { return *items_[open_]; }

    static constexpr size_t kNone = static_cast<size_t>(-1);

    // Held items: [first_, count_) of items_, reused from file to file.
    std::vector<std::unique_ptr<Item>> items_;
    size_t first_ = 0;
    size_t count_ = 0;
    size_t open_ = kNone;
    Text* target_ = nullptr;  // where characters go: the open string or the value
    std::vector<kz_host_string> stringViews_;

    kz_host_visitor visitor_ = nullptr;
    void* user_ = nullptr;
    uint64_t charLimit_ = 0;
    uint64_t chars_ = 0;
    size_t delivered_ = 0;
    bool keepCodes_ = false;
    bool utf16_ = false;
    bool inString_ = false;
    bool overflowed_ = false;
    bool halted_ = false;
};

}  // namespace kzhost

#endif  // KZ_HOST_FIELD_BUILDER_H
