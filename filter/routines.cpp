// Host routine registration and the user pair.
#include "filter/context.h"

using kz::ProcessContext;

KZ_EXPORT uint32_t SODummy(void) { return 0; }

KZ_EXPORT void VwLocalUp(uint64_t value, uint64_t* out, VwContext* context) {
    *out = value;
    ProcessContext* ctx = kz::ToContext(context);
    for (uint32_t identifier = 1; identifier <= SO_ROUTINE_MAX; ++identifier) {
        const int slot = kz::RoutineSlot(identifier);
        if (slot >= 0) ctx->routines[slot] = reinterpret_cast<SORoutine>(SODummy);
    }
}

KZ_EXPORT void VwSetSoRtn(uint16_t identifier, SORoutine routine, VwContext* context) {
    if (routine == nullptr) routine = reinterpret_cast<SORoutine>(SODummy);
    const int slot = kz::RoutineSlot(identifier);
    if (slot < 0) return;
    kz::ToContext(context)->routines[slot] = routine;
}

KZ_EXPORT void VwSetUser(uint64_t user1, uint64_t user2, VwContext* context) {
    ProcessContext* ctx = kz::ToContext(context);
    ctx->user1 = user1;
    ctx->user2 = user2;
}
