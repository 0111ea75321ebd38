#include "fuzz_host.h"

#include <initializer_list>

namespace kzfuzz {
namespace {

FuzzHost* Host(uint64_t user1, uint64_t user2) {
    if (user2 != ~user1) Finding();  // the user pair came back altered
    return reinterpret_cast<FuzzHost*>(user1);
}

void Fold(FuzzHost* host, uint64_t routine, uint64_t a, uint64_t b = 0, uint64_t c = 0) {
    for (uint64_t value : {routine, a, b, c}) host->hash = (host->hash ^ value) * 0x100000001B3ull;
    ++host->calls;
}

void OutChar(uint16_t code, uint64_t u1, uint64_t u2) { Fold(Host(u1, u2), 1, code); }
void OutSpecial(uint16_t code, uint64_t u1, uint64_t u2) { Fold(Host(u1, u2), 2, code); }
uint32_t OutBreak(uint16_t kind, uint16_t zero, uint64_t u1, uint64_t u2) {
    FuzzHost* host = Host(u1, u2);
    Fold(host, 5, kind, zero);
    if (kind == SO_BREAK_END) {
        ++host->endBreaks;
        return 0;
    }
    const uint32_t n = host->frameBreaks++;
    return (host->stopPattern >> (n % 8)) & 1;
}
void StartSection(uint32_t a, uint32_t b, uint32_t c, uint64_t u1, uint64_t u2) {
    Fold(Host(u1, u2), 18, a, b, c);
}
void ReportFailure(uint32_t code, uint64_t u1, uint64_t u2) { Fold(Host(u1, u2), 20, code); }
void BeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor, uint64_t u1,
              uint64_t u2) {
    Fold(Host(u1, u2), 49, kind, number, descriptor->fieldNumber);
}
void EndTag(uint32_t kind, uint32_t number, uint64_t u1, uint64_t u2) {
    Fold(Host(u1, u2), 50, kind, number);
}
void SetCharSet(uint32_t charset, uint64_t u1, uint64_t u2) { Fold(Host(u1, u2), 90, charset); }
void SetSectionFlags(uint32_t flags, uint64_t u1, uint64_t u2) { Fold(Host(u1, u2), 142, flags); }

template <typename Routine>
SORoutine Generic(Routine routine) {
    return reinterpret_cast<SORoutine>(routine);
}

}  // namespace

void RegisterHost(VwContext* context, FuzzHost* host) {
    uint64_t ignored = 0;
    VwLocalUp(0, &ignored, context);
    VwSetSoRtn(SO_ROUTINE_OUTCHAR, Generic(OutChar), context);
    VwSetSoRtn(SO_ROUTINE_OUTSPECIAL, Generic(OutSpecial), context);
    VwSetSoRtn(SO_ROUTINE_OUTBREAK, Generic(OutBreak), context);
    VwSetSoRtn(SO_ROUTINE_STARTSECTION, Generic(StartSection), context);
    VwSetSoRtn(SO_ROUTINE_REPORTFAILURE, Generic(ReportFailure), context);
    VwSetSoRtn(SO_ROUTINE_BEGINTAG, Generic(BeginTag), context);
    VwSetSoRtn(SO_ROUTINE_ENDTAG, Generic(EndTag), context);
    VwSetSoRtn(SO_ROUTINE_SETCHARSET, Generic(SetCharSet), context);
    VwSetSoRtn(SO_ROUTINE_SETSECTIONFLAGS, Generic(SetSectionFlags), context);
    const auto user1 = reinterpret_cast<uint64_t>(host);
    VwSetUser(user1, ~user1, context);
}

}  // namespace kzfuzz
