// Entry table, process context allocation, the do-nothing entry points and
// the version marker.
// The header declares the exported `version` only on request.
#define KZ_ID3_DECLARE_VERSION_SYMBOL
#include <cstring>

#include "filter/context.h"

using kz::ProcessContext;

namespace {

constexpr char kVersionMarker[] = "\0QZV_VER=8.5.4.9.1901010828";

template <typename Function>
VwEntry Entry(Function function) {
    return reinterpret_cast<VwEntry>(function);
}

}  // namespace

KZ_EXPORT const char* const version = kVersionMarker;

KZ_EXPORT void VwGetRtns(VwEntry* entryTable, uint16_t interfaceLevel) {
    entryTable[34] = nullptr;
    entryTable[35] = nullptr;
    if (interfaceLevel == 0) return;
    entryTable[VW_ENTRY_STREAMOPEN] = Entry(VwStreamOpen);
    entryTable[VW_ENTRY_STREAMSECTION] = Entry(VwStreamSection);
    entryTable[VW_ENTRY_STREAMREAD] = Entry(VwStreamRead);
    entryTable[VW_ENTRY_STREAMTELL] = Entry(VwStreamTell);
    entryTable[VW_ENTRY_STREAMSEEK] = Entry(VwStreamSeek);
    entryTable[VW_ENTRY_GETINFO] = Entry(VwGetInfo);
    entryTable[VW_ENTRY_GETDATA] = Entry(VwGetData);
    entryTable[VW_ENTRY_SETDATA] = Entry(VwSetData);
    entryTable[VW_ENTRY_LOCALUP] = Entry(VwLocalUp);
    entryTable[VW_ENTRY_LOCALDOWN] = Entry(VwLocalDown);
    entryTable[VW_ENTRY_ALLOCPROC] = Entry(VwAllocProc);
    entryTable[VW_ENTRY_FREEPROC] = Entry(VwFreeProc);
    entryTable[VW_ENTRY_SETUSER] = Entry(VwSetUser);
    entryTable[VW_ENTRY_SETSORTN] = Entry(VwSetSoRtn);
    entryTable[VW_ENTRY_STREAMCLOSE] = Entry(VwStreamClose);
    entryTable[15] = nullptr;
    entryTable[16] = nullptr;
    entryTable[VW_ENTRY_STREAMREADRECORD] = Entry(VwStreamReadRecord);
    if (interfaceLevel <= VW_LEVEL_DOSPECIAL) return;
    entryTable[VW_ENTRY_DOSPECIAL] = Entry(VwDoSpecial);
    if (interfaceLevel <= VW_LEVEL_NULL_19_22) return;
    for (int entry = 19; entry <= 22; ++entry) entryTable[entry] = nullptr;
    if (interfaceLevel <= VW_LEVEL_NULL_23_33) return;
    for (int entry = 23; entry <= 33; ++entry) entryTable[entry] = nullptr;
}

KZ_EXPORT VwContext* VwAllocProc(void) {
    const KzHandle handle = SYSNativeAlloc(sizeof(ProcessContext));
    if (handle == nullptr) return nullptr;
    void* block = SYSNativeLock(handle);
    if (block == nullptr) {
        SYSNativeFree(handle);
        return nullptr;
    }
    std::memset(block, 0, sizeof(ProcessContext));
    static_cast<ProcessContext*>(block)->allocHandle = handle;
    return static_cast<VwContext*>(block);
}

KZ_EXPORT void VwFreeProc(VwContext* context) {
    // A host may pass on what a failed VwAllocProc gave it.
    if (context == nullptr) return;
    const KzHandle handle = kz::ToContext(context)->allocHandle;
    if (handle == nullptr) return;
    SYSNativeUnlock(handle);
    SYSNativeFree(handle);
}

KZ_EXPORT void VwLocalDown(uint64_t value, uint64_t* out) { *out = value; }

KZ_EXPORT int32_t VwDoSpecial(void) { return 0; }

KZ_EXPORT void VwStreamClose(KzStream*, VwContext*) {}
KZ_EXPORT void VwStreamReadRecord(void) {}
KZ_EXPORT void VwGetSectionDataFunc(void) {}
KZ_EXPORT void VwSetSectionDataFunc(void) {}
