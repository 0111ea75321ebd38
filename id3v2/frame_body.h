// What every frame handler shares: the body (in frameBuffer or a host
// block), the field bracket around it, and the ways body bytes go out.
//
// A handler then reads as its emission steps, for example
//
//   EmitFrame(stream, frameSize, ctx, KZ_FIELD_POSS, [](BodyOutput& out) {
//       out.Byte(0);
//       out.Space();
//       out.BytesToEnd(1);
//   });
//
// Positions are full-width offsets into the body; a position at or past the
// end of the body reads as the byte 0, and nothing outside the body is read.
#ifndef KZ_ID3V2_FRAME_BODY_H
#define KZ_ID3V2_FRAME_BODY_H

#include <cstdint>
#include <initializer_list>

#include "filter/context.h"

namespace kz {

// Bounded read access to a body of `size` bytes.
struct BodyView {
    const uint8_t* data;
    uint32_t size;

    uint8_t At(uint32_t pos) const { return pos < size ? data[pos] : 0; }
    // The 16-bit unit at pos, little-endian when `little`.
    uint16_t Unit(uint32_t pos, bool little) const {
        const uint16_t first = At(pos);
        const uint16_t second = At(pos + 1);
        return little ? static_cast<uint16_t>(first | second << 8)
                      : static_cast<uint16_t>(first << 8 | second);
    }
};

inline BodyView MakeView(const uint8_t* body, int32_t limit) {
    return {body, limit > 0 ? static_cast<uint32_t>(limit) : 0u};
}

// Takes exactly frameSize bytes from the stream.  Up to 16,383 bytes are
// read into frameBuffer (not cleared first); a larger body is read into a
// zero-filled host block of exactly its size, released on destruction.
// When no block can be had the body is skipped by a relative seek and the
// body is absent.
class FrameBody {
public:
    FrameBody(KzStream* stream, int32_t frameSize, ProcessContext* ctx);
    ~FrameBody();
    FrameBody(const FrameBody&) = delete;
    FrameBody& operator=(const FrameBody&) = delete;

    bool Present() const { return view_.data != nullptr; }
    const BodyView& View() const { return view_; }
    // True when the body is in a host block rather than frameBuffer.
    bool InHostBlock() const { return handle_ != nullptr; }

private:
    BodyView view_{nullptr, 0};
    KzHandle handle_ = nullptr;
};

// How a line feed (0x0A) in single-byte text goes out.
enum class LineFeed { AsChar, AsBreak };

// Emission of body content, one host call per character.
class BodyOutput {
public:
    BodyOutput(ProcessContext* ctx, const BodyView& body) : ctx_(ctx), body_(body), chars_(ctx) {}

    const BodyView& Body() const { return body_; }
    uint32_t Size() const { return body_.size; }
    uint8_t At(uint32_t pos) const { return body_.At(pos); }

    void Char(uint16_t code) { chars_(code); }
    void Space() { chars_(0x20); }
    // The byte at pos as one character whose code is its value.
    void Byte(uint32_t pos) { Char(At(pos)); }
    // count bytes from pos, nothing between them.
    void Bytes(uint32_t pos, uint32_t count);
    // Fields of the given widths from pos, a space between fields; returns
    // the position after the last.
    uint32_t Groups(uint32_t pos, std::initializer_list<uint8_t> widths);
    // Every byte from pos to the end of the body, zero bytes included.
    void BytesToEnd(uint32_t pos);
    // Every byte from pos to the end of the body, each followed by a space.
    void SpacedBytesToEnd(uint32_t pos);
    // Every byte from pos to the end of the body but zero bytes.
    void NonZeroBytesToEnd(uint32_t pos);
    // Single-byte text from pos up to a zero byte or the end of the body.
    // Returns the position after the terminator (size + 1 when the text ran
    // to the end).
    uint32_t Latin1String(uint32_t pos, LineFeed lineFeed = LineFeed::AsChar);
    // Single-byte text from pos to the end of the body, zero bytes included.
    void Latin1ToEnd(uint32_t pos, LineFeed lineFeed);
    // A UTF-16 string with its byte-order mark at pos; the caller switches
    // the character set.  Returns the position after it.
    uint32_t Utf16String(uint32_t pos);
    void BeginUtf16() { SetCharSet(ctx_, SO_CHARSET_UTF16); }
    void EndUtf16() { SetCharSet(ctx_, SO_CHARSET_LATIN1); }
    // One string in the body's encoding (byte 0: 0 single-byte, else
    // UTF-16); a UTF-16 string is bracketed by the character set switches.
    uint32_t EncodedText(uint32_t pos, LineFeed lineFeed = LineFeed::AsChar);

private:
    void Latin1Char(uint8_t byte, LineFeed lineFeed);

    ProcessContext* ctx_;
    BodyView body_;
    CharSink chars_;
};

// The steps every bracketed frame shares: open the field numbered `number`
// with `fieldNumber`, obtain the body, emit it (unless it had to be
// skipped), release it and close the field.
template <typename Emit>
void EmitFrameField(KzStream* stream, int32_t frameSize, ProcessContext* ctx, uint32_t number,
                    uint32_t fieldNumber, Emit emit) {
    BeginTag(ctx, SO_TAG_FRAME, number, fieldNumber);
    {
        const FrameBody body(stream, frameSize, ctx);
        if (body.Present()) {
            BodyOutput out(ctx, body.View());
            emit(out);
        }
    }
    EndTag(ctx, SO_TAG_FRAME, number);
}

// A frame's field numbered with the frame counter.
template <typename Emit>
void EmitFrame(KzStream* stream, int32_t frameSize, ProcessContext* ctx, uint32_t fieldNumber,
               Emit emit) {
    EmitFrameField(stream, frameSize, ctx, ctx->frameCount, fieldNumber, emit);
}

// The body's content with no field around it.
template <typename Emit>
void EmitUnbracketed(KzStream* stream, int32_t frameSize, ProcessContext* ctx, Emit emit) {
    const FrameBody body(stream, frameSize, ctx);
    if (body.Present()) {
        BodyOutput out(ctx, body.View());
        emit(out, body);
    }
}

}  // namespace kz

#endif  // KZ_ID3V2_FRAME_BODY_H
