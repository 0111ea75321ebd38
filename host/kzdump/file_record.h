// What the module delivered for one file, recorded call by call and shown
// once the file is finished (the ID3v1 fields are known only at the end).
#ifndef KZDUMP_FILE_RECORD_H
#define KZDUMP_FILE_RECORD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kzdump {

// Entries of FileRecord::codes: a character code with the character set it
// came under, or a marker.
constexpr uint32_t kCodeMask = 0xFFFF;
constexpr uint32_t kUtf16Flag = 0x10000;        // code is a UTF-16 unit
constexpr uint32_t kSpecialFlag = 0x20000;      // SOOutSpecial(code)
constexpr uint32_t kStringBegin = 0x40000;      // a SO_TAG_STRING opens
constexpr uint32_t kStringEnd = 0x80000;        // it closes
constexpr uint32_t kLineBreakSpecial = 5;

struct Item {
    enum class Kind : uint8_t { Field, Outside, Failure };
    Kind kind = Kind::Field;
    bool trailer = false;             // an ID3v1 field (decided at the end)
    bool stringClosed = false;        // a string tag has closed in this field
    bool descriptionUtf16 = false;    // the character set was UTF-16 in the first string
    bool valueUtf16 = false;          // switched to UTF-16 after a string closed
    uint32_t tag = 0;                 // tag number, or the failure code
    uint32_t fieldNumber = 0;
    uint32_t frameBreaksBefore = 0;   // frame breaks seen when the field opened
    size_t begin = 0;                 // range in FileRecord::codes
    size_t end = 0;
    size_t firstString = 0;           // index in FileRecord::stringTags
};

class FileRecord {
public:
    // Clears everything, keeping the memory for the next file.  Characters
    // beyond `codeLimit` are dropped (and Overflowed() reports it).
    void Reset(size_t codeLimit);

    void BeginField(uint32_t tag, uint32_t fieldNumber);
    void EndField();
    void BeginString(uint32_t tag);
    void EndString();
    void Char(uint16_t code) { Push(code | (utf16_ ? kUtf16Flag : 0)); }
    void Special(uint16_t code) { Push(kSpecialFlag | code); }
    void SetUtf16(bool utf16);
    void FrameBreak();
    void Failure(uint32_t code);
    // Closes what is open and marks the ID3v1 fields: those opened after the
    // last frame break, when the end break came.
    void Finish(bool endSeen);

    bool Overflowed() const { return overflowed_; }
    const std::vector<Item>& Items() const { return items_; }
    const std::vector<uint32_t>& Codes() const { return codes_; }
    const std::vector<uint32_t>& StringTags() const { return stringTags_; }

private:
    void Push(uint32_t entry) {
        if (open_ == kNone) Open(Item::Kind::Outside, 0, 0);
        if (codes_.size() >= codeLimit_) {
            overflowed_ = true;
            return;
        }
        codes_.push_back(entry);
    }
    // Opens an item at the current end of the codes.
    void Open(Item::Kind kind, uint32_t tag, uint32_t fieldNumber);
    void CloseOpen();

    static constexpr size_t kNone = static_cast<size_t>(-1);

    std::vector<Item> items_;
    std::vector<uint32_t> codes_;
    std::vector<uint32_t> stringTags_;
    size_t open_ = kNone;  // index of the open item
    size_t codeLimit_ = 0;
    uint32_t frameBreaks_ = 0;
    bool utf16_ = false;
    bool inString_ = false;
    bool overflowed_ = false;
};

}  // namespace kzdump

#endif  // KZDUMP_FILE_RECORD_H
