#include "module.h"

#include "kz_host.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <vector>

namespace kzhost {

namespace {

// The interface level the kit asks for: it fills every entry the module has.
constexpr uint16_t kInterfaceLevel = 30;

// The directory of this library, as the dynamic loader knows it.
std::string LibraryDirectory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&LoadModule), &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    const std::string file = info.dli_fname;
    const size_t slash = file.rfind('/');
    return slash == std::string::npos ? std::string(".") : file.substr(0, slash);
}

bool Exists(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

template <typename Fn>
bool Take(const VwEntry* table, int entry, Fn& slot) {
    slot = reinterpret_cast<Fn>(table[entry]);
    return slot != nullptr;
}

// Loads the module file at `path`, which exists.
int Load(const std::string& path, Module& module, std::string& message) {
    // A name without a slash would make dlopen search the library path; the
    // module is always taken from the file named.
    const std::string openPath = path.find('/') == std::string::npos ? "./" + path : path;
    void* handle = dlopen(openPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();
        message = path + ": cannot load the module: " + (reason ? reason : "unknown reason");
        return KZ_HOST_ERROR_MODULE_INVALID;
    }
    auto getRtns = reinterpret_cast<VwGetRtnsFn>(dlsym(handle, "VwGetRtns"));
    if (getRtns == nullptr) {
        message = path + ": not a filter module: no VwGetRtns";
        dlclose(handle);
        return KZ_HOST_ERROR_MODULE_INVALID;
    }
    std::array<VwEntry, VW_ENTRY_TABLE_SIZE> table{};
    getRtns(table.data(), kInterfaceLevel);
    const bool complete = Take(table.data(), VW_ENTRY_STREAMOPEN, module.streamOpen) &&
                          Take(table.data(), VW_ENTRY_STREAMSECTION, module.streamSection) &&
                          Take(table.data(), VW_ENTRY_STREAMREAD, module.streamRead) &&
                          Take(table.data(), VW_ENTRY_STREAMTELL, module.streamTell) &&
                          Take(table.data(), VW_ENTRY_STREAMSEEK, module.streamSeek) &&
                          Take(table.data(), VW_ENTRY_GETDATA, module.getData) &&
                          Take(table.data(), VW_ENTRY_SETDATA, module.setData) &&
                          Take(table.data(), VW_ENTRY_LOCALUP, module.localUp) &&
                          Take(table.data(), VW_ENTRY_ALLOCPROC, module.allocProc) &&
                          Take(table.data(), VW_ENTRY_FREEPROC, module.freeProc) &&
                          Take(table.data(), VW_ENTRY_SETUSER, module.setUser) &&
                          Take(table.data(), VW_ENTRY_SETSORTN, module.setSoRtn) &&
                          Take(table.data(), VW_ENTRY_STREAMCLOSE, module.streamClose);
    if (!complete) {
        message = path + ": VwGetRtns left an entry point of the table empty";
        dlclose(handle);
        return KZ_HOST_ERROR_MODULE_INVALID;
    }
    const auto* marker = static_cast<const char* const*>(dlsym(handle, "version"));
    if (marker != nullptr && *marker != nullptr) module.version = *marker + 1;
    module.handle = handle;
    module.path = path;
    return KZ_HOST_OK;
}

}  // namespace

int LoadModule(const char* explicitPath, Module& module, std::string& message) {
    // A place named by the host or the environment is the only one looked
    // at: loading some other module instead would hide the mistake.
    const char* fromEnvironment = std::getenv("KZ_ID3_MODULE");
    std::string named;
    if (explicitPath != nullptr) {
        named = explicitPath;
    } else if (fromEnvironment != nullptr && *fromEnvironment != '\0') {
        named = fromEnvironment;
    }
    if (!named.empty() || explicitPath != nullptr) {
        if (!Exists(named)) {
            message = named + ": no such module file" +
                      (explicitPath == nullptr ? " (named by KZ_ID3_MODULE)" : "");
            return KZ_HOST_ERROR_MODULE_NOT_FOUND;
        }
        return Load(named, module, message);
    }
    std::vector<std::string> places;
    const std::string directory = LibraryDirectory();
    if (!directory.empty()) places.push_back(directory + "/kz_id3/libkz_id3.so");
#ifdef KZ_HOST_BUILD_MODULE
    if (places.empty() || places.front() != KZ_HOST_BUILD_MODULE) {
        places.emplace_back(KZ_HOST_BUILD_MODULE);
    }
#endif
    for (const std::string& place : places) {
        if (Exists(place)) return Load(place, module, message);
    }
    message = "no libkz_id3.so found: KZ_ID3_MODULE is not set, and none at";
    for (size_t i = 0; i < places.size(); ++i) message += (i == 0 ? " " : ", ") + places[i];
    return KZ_HOST_ERROR_MODULE_NOT_FOUND;
}

void UnloadModule(Module& module) {
    if (module.handle != nullptr) dlclose(module.handle);
    module = Module{};
}

}  // namespace kzhost
