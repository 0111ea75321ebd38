#include "module_loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>

namespace kzdump {

namespace {

constexpr const char* kModuleName = "libkz_id3.so";

std::filesystem::path ProgramDirectory() {
    std::array<char, 4096> buffer{};
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    if (length <= 0) return std::filesystem::current_path();
    return std::filesystem::path(std::string(buffer.data(), static_cast<size_t>(length)))
        .parent_path();
}

template <typename Fn>
bool Take(const VwEntry* table, int entry, Fn& slot) {
    slot = reinterpret_cast<Fn>(table[entry]);
    return slot != nullptr;
}

}  // namespace

std::string DefaultModulePath() {
    const char* named = std::getenv("KZ_ID3_MODULE");
    if (named != nullptr && *named != '\0') return named;
    const std::filesystem::path directory = ProgramDirectory();
    const std::filesystem::path installed = (directory / KZ_ID3_MODULE_FROM_PROGRAM).lexically_normal();
    const std::filesystem::path built = (directory / "../lib/kz_id3" / kModuleName).lexically_normal();
    std::error_code ec;
    if (!std::filesystem::exists(installed, ec) && std::filesystem::exists(built, ec)) return built.string();
    return installed.string();
}

std::string ModuleVersionMarker(const Module& module) {
    const auto* marker = static_cast<const char* const*>(dlsym(module.handle, "version"));
    return marker != nullptr && *marker != nullptr ? std::string(*marker + 1) : std::string();
}

bool LoadModule(const std::string& path, Module& module, std::string& error) {
    // A name without a slash would make dlopen search the library path; the
    // module is always taken from the file named.
    const std::string openPath = path.find('/') == std::string::npos ? "./" + path : path;
    void* handle = dlopen(openPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();
        error = path + ": cannot load the module: " + (reason ? reason : "unknown reason");
        return false;
    }
    auto getRtns = reinterpret_cast<VwGetRtnsFn>(dlsym(handle, "VwGetRtns"));
    if (getRtns == nullptr) {
        error = path + ": not a filter module: no VwGetRtns";
        dlclose(handle);
        return false;
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
        error = path + ": VwGetRtns left an entry point of the table empty";
        dlclose(handle);
        return false;
    }
    module.handle = handle;
    return true;
}

void UnloadModule(Module& module) {
    if (module.handle != nullptr) dlclose(module.handle);
    module = Module{};
}

}  // namespace kzdump
