#include "file_record.h"

namespace kzdump {

void FileRecord::Reset(size_t codeLimit) {
    items_.clear();
    codes_.clear();
    stringTags_.clear();
    open_ = kNone;
    codeLimit_ = codeLimit;
    frameBreaks_ = 0;
    utf16_ = false;
    inString_ = false;
    overflowed_ = false;
}

void FileRecord::CloseOpen() {
    if (open_ == kNone) return;
    if (inString_) {
        codes_.push_back(kStringEnd);
        inString_ = false;
    }
    items_[open_].end = codes_.size();
    open_ = kNone;
}

void FileRecord::Open(Item::Kind kind, uint32_t tag, uint32_t fieldNumber) {
    Item item;
    item.kind = kind;
    item.tag = tag;
    item.fieldNumber = fieldNumber;
    item.begin = codes_.size();
    item.end = item.begin;
    item.firstString = stringTags_.size();
    item.frameBreaksBefore = frameBreaks_;
    open_ = items_.size();
    items_.push_back(item);
}

void FileRecord::BeginField(uint32_t tag, uint32_t fieldNumber) {
    CloseOpen();
    Open(Item::Kind::Field, tag, fieldNumber);
}

void FileRecord::EndField() {
    if (open_ != kNone && items_[open_].kind == Item::Kind::Field) CloseOpen();
}

void FileRecord::BeginString(uint32_t tag) {
    if (open_ == kNone) Open(Item::Kind::Outside, 0, 0);
    if (inString_) EndString();
    // Markers are kept even past the limit, so that the strings pair up.
    codes_.push_back(kStringBegin);
    stringTags_.push_back(tag);
    inString_ = true;
    Item& item = items_[open_];
    if (utf16_ && !item.stringClosed) item.descriptionUtf16 = true;
}

void FileRecord::EndString() {
    if (!inString_) return;
    codes_.push_back(kStringEnd);
    inString_ = false;
    items_[open_].stringClosed = true;
}

void FileRecord::SetUtf16(bool utf16) {
    utf16_ = utf16;
    if (!utf16 || open_ == kNone) return;
    Item& item = items_[open_];
    if (inString_ && !item.stringClosed) item.descriptionUtf16 = true;
    if (!inString_ && item.stringClosed) item.valueUtf16 = true;
}

void FileRecord::FrameBreak() {
    if (open_ != kNone && items_[open_].kind == Item::Kind::Outside) CloseOpen();
    ++frameBreaks_;
}

void FileRecord::Failure(uint32_t code) {
    CloseOpen();
    Item item;
    item.kind = Item::Kind::Failure;
    item.tag = code;
    item.begin = codes_.size();
    item.end = item.begin;
    item.firstString = stringTags_.size();
    item.frameBreaksBefore = frameBreaks_;
    items_.push_back(item);
}

void FileRecord::Finish(bool endSeen) {
    CloseOpen();
    if (!endSeen) return;
    for (Item& item : items_) {
        item.trailer = item.kind == Item::Kind::Field && item.frameBreaksBefore == frameBreaks_;
    }
}

}  // namespace kzdump
