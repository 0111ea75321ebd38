// Several files collected with one call, their outcomes packed one after
// another: built on the public collect functions only.
#include "kz_host.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

struct kz_host_batch {
    std::string packed;
};

namespace {

template <typename T>
void Append(std::string& out, T value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.append(bytes, sizeof value);
}

// One file's entry: status, errno, packed size, packed result.
void AppendFile(kz_host_reader* reader, const char* path, const kz_host_read_options* options,
                std::string& out) {
    kz_host_result* result = nullptr;
    errno = 0;
    int status = kz_host_collect_file(reader, path, options, &result);
    const int error = status == KZ_HOST_ERROR_IO || status == KZ_HOST_ERROR_NOT_REGULAR ? errno : 0;
    const void* packed = nullptr;
    size_t size = 0;
    if (status == KZ_HOST_OK || status == KZ_HOST_NOTHING_TO_READ) {
        packed = kz_host_result_packed(result, &size);
        if (packed == nullptr || size > UINT32_MAX) {
            status = KZ_HOST_ERROR_NO_MEMORY;
            size = 0;
        }
    }
    // The packed result belongs to the result: copied before it is freed,
    // and freed even when the copy throws.
    std::unique_ptr<kz_host_result, void (*)(kz_host_result*)> owned(result, kz_host_result_free);
    Append(out, static_cast<int32_t>(status));
    Append(out, static_cast<int32_t>(error));
    Append(out, static_cast<uint32_t>(size));
    if (size != 0) out.append(static_cast<const char*>(packed), size);
}

}  // namespace

extern "C" {

int kz_host_collect_files(kz_host_reader* reader, const char* const* paths, size_t count,
                          const kz_host_read_options* options, kz_host_batch** batch) {
    if (batch != nullptr) *batch = nullptr;
    if (reader == nullptr || batch == nullptr || (paths == nullptr && count != 0) ||
        (options != nullptr && options->struct_size != sizeof *options)) {
        return KZ_HOST_ERROR_ARGUMENT;
    }
    for (size_t i = 0; i < count; ++i) {
        if (paths[i] == nullptr) return KZ_HOST_ERROR_ARGUMENT;
    }
    try {
        auto made = std::make_unique<kz_host_batch>();
        for (size_t i = 0; i < count; ++i) AppendFile(reader, paths[i], options, made->packed);
        *batch = made.release();
        return KZ_HOST_OK;
    } catch (const std::bad_alloc&) {
        return KZ_HOST_ERROR_NO_MEMORY;
    }
}

const void* kz_host_batch_packed(const kz_host_batch* batch, size_t* size) {
    if (size != nullptr) *size = batch != nullptr ? batch->packed.size() : 0;
    return batch != nullptr ? batch->packed.data() : nullptr;
}

void kz_host_batch_free(kz_host_batch* batch) { delete batch; }

}  // extern "C"
