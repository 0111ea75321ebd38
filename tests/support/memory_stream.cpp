#include "memory_stream.h"

#include <algorithm>
#include <cstring>

namespace kztest {

MemoryStream::MemoryStream(std::vector<uint8_t> data) : data_(std::move(data)) {
    handle_.base = KzStream{nullptr, &Read, nullptr, &Seek, &Tell};
    handle_.owner = this;
}

MemoryStream* MemoryStream::Owner(KzStream* stream) {
    return reinterpret_cast<Handle*>(stream)->owner;
}

int32_t MemoryStream::Read(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead) {
    MemoryStream* self = Owner(stream);
    const int index = self->reads++;
    if (self->failRead && self->failRead(index)) return -1;
    const uint32_t from = self->neverMoves ? 0 : self->position_;
    const uint32_t available =
        from < self->data_.size() ? static_cast<uint32_t>(self->data_.size()) - from : 0;
    uint32_t n = std::min(count, available);
    if (self->readLimit) n = std::min(n, self->readLimit(index, count));
    if (n > 0) std::memcpy(buffer, self->data_.data() + from, n);
    if (!self->neverMoves) self->position_ += n;
    *countRead = n;
    return 0;
}

int32_t MemoryStream::Seek(KzStream* stream, uint16_t origin, int32_t offset) {
    MemoryStream* self = Owner(stream);
    const int index = self->seeks++;
    if (self->neverMoves) return 0;
    const auto size = static_cast<int64_t>(self->data_.size());
    const int64_t target = offset + (origin == SO_SEEK_CUR ? self->position_ : origin == SO_SEEK_END ? size : 0);
    if ((self->refuseSeek && self->refuseSeek(index)) || origin > SO_SEEK_END || target < 0 || target > size) return -1;
    self->position_ = static_cast<uint32_t>(target);
    return 0;
}

int32_t MemoryStream::Tell(KzStream* stream, uint32_t* position) {
    MemoryStream* self = Owner(stream);
    const int index = self->tells++;
    if (self->failTell && self->failTell(index)) return 1;
    *position = self->tellsZero || self->neverMoves ? 0 : self->position_;
    return 0;
}

}  // namespace kztest
