// Loading the filter module as a host engine does: dlopen, one dlsym for
// VwGetRtns, every other entry point from the table it fills.
#ifndef KZDUMP_MODULE_LOADER_H
#define KZDUMP_MODULE_LOADER_H

#include "kz_id3.h"

#include <string>

namespace kzdump {

struct Module {
    void* handle = nullptr;
    VwStreamOpenFn streamOpen = nullptr;
    VwStreamFn streamSection = nullptr;
    VwStreamFn streamRead = nullptr;
    VwStreamFn streamTell = nullptr;
    VwStreamFn streamSeek = nullptr;
    VwGetDataFn getData = nullptr;
    VwSetDataFn setData = nullptr;
    VwLocalUpFn localUp = nullptr;
    VwAllocProcFn allocProc = nullptr;
    VwFreeProcFn freeProc = nullptr;
    VwSetUserFn setUser = nullptr;
    VwSetSoRtnFn setSoRtn = nullptr;
    VwStreamCloseFn streamClose = nullptr;
};

// The interface level kzdump asks for: it fills every entry the module has.
constexpr uint16_t kInterfaceLevel = 30;

// The module to load when no --filter is given: the file named by the
// environment variable KZ_ID3_MODULE, else libkz_id3.so in the installed
// module directory relative to the running program, else in the build tree's
// (../lib/kz_id3).  Returns the installed location when neither exists.
std::string DefaultModulePath();

// The version marker the module exports: the text after the leading NUL of
// its `version` data; empty when it exports none.
std::string ModuleVersionMarker(const Module& module);

// On failure returns false with "<path>: <reason>" in `error`.
bool LoadModule(const std::string& path, Module& module, std::string& error);
void UnloadModule(Module& module);

}  // namespace kzdump

#endif  // KZDUMP_MODULE_LOADER_H
