// Loading the filter module as a host engine does: dlopen, one dlsym for
// VwGetRtns, every other entry point from the table it fills.
#ifndef KZ_HOST_MODULE_H
#define KZ_HOST_MODULE_H

#include "kz_id3.h"

#include <string>

namespace kzhost {

struct Module {
    void* handle = nullptr;
    std::string path;
    std::string version;  // the marker after the leading NUL of `version`
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

// Finds and loads the module: `explicitPath` when not null, else the file
// named by KZ_ID3_MODULE when it is set, else the first that exists of
// kz_id3/libkz_id3.so beside libkz_host.so and the module of the build tree.
// Returns a KZ_HOST_* status; on failure `message` names every place tried.
int LoadModule(const char* explicitPath, Module& module, std::string& message);
void UnloadModule(Module& module);

}  // namespace kzhost

#endif  // KZ_HOST_MODULE_H
