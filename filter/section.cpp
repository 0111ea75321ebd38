// Section start, and saving and restoring the module's position between
// read calls.
#include <cstring>

#include "filter/context.h"
#include "id3v2/tag_header.h"

using kz::ProcessContext;

KZ_EXPORT int32_t VwStreamSection(KzStream*, VwContext* context) {
    ProcessContext* ctx = kz::ToContext(context);
    kz::CallHost<SOStartSectionRtn, SO_ROUTINE_STARTSECTION>(ctx, 9u, 0u, 0u);
    kz::SetCharSet(ctx, SO_CHARSET_LATIN1);
    kz::CallHost<SOSetSectionFlagsRtn, SO_ROUTINE_SETSECTIONFLAGS>(ctx, SO_SECTION_FLAGS);
    if (ctx->hasId3v2) {
        ctx->tagPos = kz::kTagHeaderSize;
        ctx->sectionState = kz::kTagHeaderRead;
    } else {
        ctx->sectionState = kz::kReadTrailer;
    }
    return 0;
}

KZ_EXPORT int32_t VwStreamTell(KzStream* stream, VwContext* context) {
    kz::StreamTell(stream, &kz::ToContext(context)->savedPos);
    return 0;
}

KZ_EXPORT int32_t VwStreamSeek(KzStream* stream, VwContext* context) {
    return kz::StreamSeek(stream, SO_SEEK_SET, static_cast<int32_t>(kz::ToContext(context)->savedPos));
}

KZ_EXPORT void VwGetData(void* block, VwContext* context) {
    std::memcpy(block, context, VW_SAVED_STATE_SIZE);
}

KZ_EXPORT void VwSetData(const void* block, VwContext* context) {
    std::memcpy(context, block, VW_SAVED_STATE_SIZE);
}
