#include "id3v2/frame_body.h"

#include <cstring>

#include "id3v2/strings.h"

#if defined(__SANITIZE_ADDRESS__)
#define KZ_POISON_UNUSED_BUFFER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KZ_POISON_UNUSED_BUFFER 1
#endif
#endif

#ifdef KZ_POISON_UNUSED_BUFFER
#include <sanitizer/asan_interface.h>
#endif

namespace kz {

FrameBody::FrameBody(KzStream* stream, int32_t frameSize, ProcessContext* ctx) {
    const uint32_t size = frameSize > 0 ? static_cast<uint32_t>(frameSize) : 0u;
    if (frameSize <= kInlineBodyMax) {
        StreamRead(stream, ctx->frameBuffer, size);
        view_ = {ctx->frameBuffer, size};
#ifdef KZ_POISON_UNUSED_BUFFER
        // While the handler runs, a read past the body is caught even
        // inside frameBuffer.
        ASAN_POISON_MEMORY_REGION(ctx->frameBuffer + size, kFrameBufferSize - size);
#endif
        return;
    }
    handle_ = SYSNativeAlloc(size);
    auto* block = handle_ != nullptr ? static_cast<uint8_t*>(SYSNativeLock(handle_)) : nullptr;
    if (block == nullptr) {
        if (handle_ != nullptr) SYSNativeFree(handle_);
        handle_ = nullptr;
        StreamSeek(stream, SO_SEEK_CUR, frameSize);
        return;
    }
    // The block is zeroed only past what the stream reports it wrote, not
    // whole before the read: the two give the same bytes for every stream
    // that reports its count honestly (the host's side of the contract),
    // and clearing a picture's block before reading it would add half again
    // to the module's time on picture-heavy tags.
    const uint32_t got = StreamRead(stream, block, size);
    if (got < size) std::memset(block + got, 0, size - got);
    view_ = {block, size};
}

FrameBody::~FrameBody() {
    if (handle_ != nullptr) {
        SYSNativeUnlock(handle_);
        SYSNativeFree(handle_);
        return;
    }
#ifdef KZ_POISON_UNUSED_BUFFER
    // A body held in frameBuffer starts at its first byte.
    if (view_.data != nullptr) {
        ASAN_UNPOISON_MEMORY_REGION(view_.data + view_.size, kFrameBufferSize - view_.size);
    }
#endif
}

void BodyOutput::Bytes(uint32_t pos, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) Byte(pos + i);
}

uint32_t BodyOutput::Groups(uint32_t pos, std::initializer_list<uint8_t> widths) {
    bool first = true;
    for (const uint8_t width : widths) {
        if (!first) Space();
        first = false;
        Bytes(pos, width);
        pos += width;
    }
    return pos;
}

void BodyOutput::BytesToEnd(uint32_t pos) {
    for (; pos < body_.size; ++pos) Char(body_.data[pos]);
}

void BodyOutput::SpacedBytesToEnd(uint32_t pos) {
    for (; pos < body_.size; ++pos) {
        Char(body_.data[pos]);
        Space();
    }
}

void BodyOutput::NonZeroBytesToEnd(uint32_t pos) {
    for (; pos < body_.size; ++pos) {
        if (body_.data[pos] != 0) Char(body_.data[pos]);
    }
}

void BodyOutput::Latin1Char(uint8_t byte, LineFeed lineFeed) {
    if (byte == 0x0A && lineFeed == LineFeed::AsBreak) {
        OutLineBreak(ctx_);
    } else {
        Char(byte);
    }
}

uint32_t BodyOutput::Latin1String(uint32_t pos, LineFeed lineFeed) {
    for (; pos < body_.size && body_.data[pos] != 0; ++pos) Latin1Char(body_.data[pos], lineFeed);
    return pos + 1;
}

void BodyOutput::Latin1ToEnd(uint32_t pos, LineFeed lineFeed) {
    for (; pos < body_.size; ++pos) Latin1Char(body_.data[pos], lineFeed);
}

uint32_t BodyOutput::Utf16String(uint32_t pos) {
    return EmitUtf16Text(body_.data, pos, static_cast<int32_t>(body_.size), ctx_);
}

uint32_t BodyOutput::EncodedText(uint32_t pos, LineFeed lineFeed) {
    if (At(0) == 0) return Latin1String(pos, lineFeed);
    BeginUtf16();
    pos = Utf16String(pos);
    EndUtf16();
    return pos;
}

}  // namespace kz
