// The C interface of the kit: argument checks, ownership, and no exception
// ever leaving a function.
#include "kz_host.h"

#include "detect.h"
#include "reader.h"
#include "result.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

struct kz_host_reader {
    kzhost::Reader reader;
};

namespace {

constexpr unsigned kKnownReadFlags = KZ_HOST_READ_CODES;

void WriteMessage(char* message, size_t size, const std::string& text) {
    if (message == nullptr || size == 0) return;
    std::snprintf(message, size, "%s", text.c_str());
}

// The options of a read, defaults filled in; false when they are bad.
bool TakeOptions(const kz_host_read_options* given, kz_host_read_options& options) {
    kz_host_read_options_init(&options);
    if (given == nullptr) return true;
    if (given->struct_size != sizeof options || (given->flags & ~kKnownReadFlags) != 0) {
        return false;
    }
    options = *given;
    return true;
}

// A failed system call's error, where the caller looks for it too.
int WithErrno(int status, int error) {
    if ((status == KZ_HOST_ERROR_IO || status == KZ_HOST_ERROR_NOT_REGULAR) && error != 0) errno = error;
    return status;
}

// Opens the file (`fromFile`) or the buffer and reads it into the sink;
// `started` tells whether the module was given the source.
int ReadSource(kz_host_reader* reader, bool fromFile, const char* path, const void* data,
               size_t size, const kz_host_read_options* givenOptions, const kzhost::Sink& sink,
               kz_host_file_info& info, bool* started) {
    kz_host_read_options options{};
    if (reader == nullptr || (fromFile ? path == nullptr : data == nullptr && size != 0) ||
        (sink.visitor == nullptr && sink.tracer == nullptr) ||
        !TakeOptions(givenOptions, options) || reader->reader.Busy()) {
        return KZ_HOST_ERROR_ARGUMENT;
    }
    if (!fromFile) {
        if (size > std::numeric_limits<uint32_t>::max()) return KZ_HOST_ERROR_TOO_LARGE;
        kzhost::MemorySource& memory = reader->reader.Memory();
        memory.Open(static_cast<const uint8_t*>(data), static_cast<uint32_t>(size));
        if (started != nullptr) *started = true;
        return reader->reader.Read(memory, options, sink, info);
    }
    kzhost::FileSource& file = reader->reader.File();
    const int opened = file.Open(options.directory, path, info.errno_value);
    if (opened != KZ_HOST_OK) return opened;
    if (started != nullptr) *started = true;
    const int status = reader->reader.Read(file, options, sink, info);
    file.Close();
    return status;
}

int Read(kz_host_reader* reader, bool fromFile, const char* path, const void* data, size_t size,
         const kz_host_read_options* options, const kzhost::Sink& sink,
         kz_host_file_info* givenInfo, bool* started = nullptr) {
    if (givenInfo != nullptr && givenInfo->struct_size != sizeof *givenInfo) return KZ_HOST_ERROR_ARGUMENT;
    kz_host_file_info localInfo{};
    kz_host_file_info& info = givenInfo != nullptr ? *givenInfo : localInfo;
    info = kz_host_file_info{};
    info.struct_size = sizeof info;
    const int status = ReadSource(reader, fromFile, path, data, size, options, sink, info, started);
    return WithErrno(status, info.errno_value);
}

kzhost::Sink Visit(kz_host_visitor visitor, void* user) {
    kzhost::Sink sink;
    sink.visitor = visitor;
    sink.user = user;
    return sink;
}

kzhost::Sink TraceTo(kz_host_tracer tracer, void* user) {
    kzhost::Sink sink;
    sink.tracer = tracer;
    sink.user = user;
    return sink;
}

int Collect(kz_host_reader* reader, bool fromFile, const char* path, const void* data,
            size_t size, const kz_host_read_options* options, kz_host_result** result) {
    if (result == nullptr) return KZ_HOST_ERROR_ARGUMENT;
    *result = nullptr;
    std::unique_ptr<kz_host_result> collected(new (std::nothrow) kz_host_result);
    if (!collected) return KZ_HOST_ERROR_NO_MEMORY;
    kz_host_file_info info{};
    info.struct_size = sizeof info;
    bool started = false;
    const int status = Read(reader, fromFile, path, data, size, options,
                            Visit(&kz_host_result::Collect, collected.get()), &info, &started);
    // A read error in the middle of a file keeps what was read before it.
    if (!started || (status != KZ_HOST_OK && status != KZ_HOST_NOTHING_TO_READ &&
                     status != KZ_HOST_ERROR_UNFINISHED && status != KZ_HOST_ERROR_IO)) {
        return status;
    }
    try {
        collected->Seal(info);
    } catch (const std::bad_alloc&) {
        return KZ_HOST_ERROR_NO_MEMORY;
    }
    *result = collected.release();
    return status;
}

}  // namespace

extern "C" {

const char* kz_host_strerror(int status) {
    switch (status) {
        case KZ_HOST_OK: return "success";
        case KZ_HOST_NOTHING_TO_READ: return "nothing to read: the file holds no tag the module reads";
        case KZ_HOST_WALK_END: return "the walk has no more entries";
        case KZ_HOST_ERROR_ARGUMENT: return "invalid argument";
        case KZ_HOST_ERROR_NO_MEMORY: return "out of memory";
        case KZ_HOST_ERROR_MODULE_NOT_FOUND: return "the filter module was not found";
        case KZ_HOST_ERROR_MODULE_INVALID: return "the file is not a usable filter module";
        case KZ_HOST_ERROR_NO_CONTEXT: return "the module could not allocate a context";
        case KZ_HOST_ERROR_IO: return "input/output error";
        case KZ_HOST_ERROR_NOT_REGULAR: return "not a regular file";
        case KZ_HOST_ERROR_TOO_LARGE: return "larger than 4 GiB: beyond the module's 32-bit positions";
        case KZ_HOST_ERROR_UNFINISHED: return "the module did not finish the file";
        case KZ_HOST_ERROR_STOPPED: return "stopped by the visitor";
        default: return "unknown status";
    }
}

const char* kz_host_version(void) { return KZ_HOST_VERSION; }

void kz_host_reader_options_init(kz_host_reader_options* options) {
    if (options == nullptr) return;
    *options = kz_host_reader_options{};
    options->struct_size = sizeof *options;
}

int kz_host_reader_new(const kz_host_reader_options* options, kz_host_reader** reader,
                       char* message, size_t message_size) {
    WriteMessage(message, message_size, "");
    if (reader == nullptr ||
        (options != nullptr && (options->struct_size != sizeof *options ||
                                (options->module_path != nullptr && *options->module_path == '\0')))) {
        WriteMessage(message, message_size, kz_host_strerror(KZ_HOST_ERROR_ARGUMENT));
        return KZ_HOST_ERROR_ARGUMENT;
    }
    *reader = nullptr;
    try {
        std::unique_ptr<kz_host_reader> created(new kz_host_reader);
        std::string reason;
        const int status =
            created->reader.Init(options != nullptr ? options->module_path : nullptr, reason);
        if (status != KZ_HOST_OK) {
            WriteMessage(message, message_size, reason);
            return status;
        }
        *reader = created.release();
        return KZ_HOST_OK;
    } catch (const std::bad_alloc&) {
        WriteMessage(message, message_size, kz_host_strerror(KZ_HOST_ERROR_NO_MEMORY));
        return KZ_HOST_ERROR_NO_MEMORY;
    }
}

void kz_host_reader_free(kz_host_reader* reader) { delete reader; }

const char* kz_host_reader_module_path(const kz_host_reader* reader) {
    return reader != nullptr ? reader->reader.LoadedModule().path.c_str() : "";
}

const char* kz_host_reader_module_version(const kz_host_reader* reader) {
    return reader != nullptr ? reader->reader.LoadedModule().version.c_str() : "";
}

void kz_host_file_info_init(kz_host_file_info* info) {
    if (info == nullptr) return;
    *info = kz_host_file_info{};
    info->struct_size = sizeof *info;
}

void kz_host_read_options_init(kz_host_read_options* options) {
    if (options == nullptr) return;
    *options = kz_host_read_options{};
    options->struct_size = sizeof *options;
    options->directory = -1;
}

int kz_host_read_file(kz_host_reader* reader, const char* path,
                      const kz_host_read_options* options, kz_host_visitor visitor, void* user,
                      kz_host_file_info* info) {
    return Read(reader, true, path, nullptr, 0, options, Visit(visitor, user), info);
}

int kz_host_read_memory(kz_host_reader* reader, const void* data, size_t size,
                        const kz_host_read_options* options, kz_host_visitor visitor, void* user,
                        kz_host_file_info* info) {
    return Read(reader, false, nullptr, data, size, options, Visit(visitor, user), info);
}

int kz_host_trace_file(kz_host_reader* reader, const char* path,
                       const kz_host_read_options* options, kz_host_tracer tracer, void* user,
                       kz_host_file_info* info) {
    return Read(reader, true, path, nullptr, 0, options, TraceTo(tracer, user), info);
}

int kz_host_trace_memory(kz_host_reader* reader, const void* data, size_t size,
                         const kz_host_read_options* options, kz_host_tracer tracer, void* user,
                         kz_host_file_info* info) {
    return Read(reader, false, nullptr, data, size, options, TraceTo(tracer, user), info);
}

int kz_host_collect_file(kz_host_reader* reader, const char* path,
                         const kz_host_read_options* options, kz_host_result** result) {
    return Collect(reader, true, path, nullptr, 0, options, result);
}

int kz_host_collect_memory(kz_host_reader* reader, const void* data, size_t size,
                           const kz_host_read_options* options, kz_host_result** result) {
    return Collect(reader, false, nullptr, data, size, options, result);
}

size_t kz_host_result_count(const kz_host_result* result) {
    return result != nullptr ? result->fields.size() : 0;
}

const kz_host_field* kz_host_result_field(const kz_host_result* result, size_t index) {
    return result != nullptr && index < result->fields.size() ? &result->fields[index] : nullptr;
}

const kz_host_file_info* kz_host_result_info(const kz_host_result* result) {
    return result != nullptr ? &result->info : nullptr;
}

const void* kz_host_result_packed(const kz_host_result* result, size_t* size) {
    const std::string* packed = result != nullptr ? result->Packed() : nullptr;
    if (size != nullptr) *size = packed != nullptr ? packed->size() : 0;
    return packed != nullptr ? packed->data() : nullptr;
}

void kz_host_result_free(kz_host_result* result) { delete result; }

int kz_host_detect_file(const char* path, uint16_t* file_type, int* audio) {
    if (path == nullptr || file_type == nullptr) return KZ_HOST_ERROR_ARGUMENT;
    try {
        kzhost::FileSource file;
        int error = 0;
        const int status = file.Open(-1, path, error);
        if (status != KZ_HOST_OK) return WithErrno(status, error);
        const kzhost::DetectedType detected = kzhost::DetectType(file);
        *file_type = detected.fileType;
        if (audio != nullptr) *audio = detected.audio ? 1 : 0;
        return WithErrno(file.ReadError() != 0 ? KZ_HOST_ERROR_IO : KZ_HOST_OK, file.ReadError());
    } catch (const std::bad_alloc&) {
        return KZ_HOST_ERROR_NO_MEMORY;
    }
}

int kz_host_detect_memory(const void* data, size_t size, uint16_t* file_type, int* audio) {
    if ((data == nullptr && size != 0) || file_type == nullptr) return KZ_HOST_ERROR_ARGUMENT;
    if (size > std::numeric_limits<uint32_t>::max()) return KZ_HOST_ERROR_TOO_LARGE;
    kzhost::MemorySource memory;
    memory.Open(static_cast<const uint8_t*>(data), static_cast<uint32_t>(size));
    const kzhost::DetectedType detected = kzhost::DetectType(memory);
    *file_type = detected.fileType;
    if (audio != nullptr) *audio = detected.audio ? 1 : 0;
    return KZ_HOST_OK;
}

const char* kz_host_field_ident(uint32_t number) { return KzFieldIdent(number); }

const char* kz_host_field_label(uint32_t number) { return KzFieldLabel(number); }

int kz_host_frame_field(const char* ident, uint32_t* number) {
    if (ident == nullptr || number == nullptr) return KZ_HOST_ERROR_ARGUMENT;
    struct Frame {
        std::string_view ident;
        std::string_view threeLetterForm;
        uint32_t number;
    };
    static constexpr Frame kFrames[] = {
#define KZ_HOST_FRAME(ident, threeLetterForm, number) {ident, threeLetterForm, number},
        KZ_ID3_FRAME_TABLE(KZ_HOST_FRAME)
#undef KZ_HOST_FRAME
    };
    const std::string_view wanted = ident;
    for (const Frame& frame : kFrames) {
        if (wanted == frame.ident || (!frame.threeLetterForm.empty() && wanted == frame.threeLetterForm)) {
            *number = frame.number;
            return KZ_HOST_OK;
        }
    }
    return KZ_HOST_ERROR_ARGUMENT;
}

}  // extern "C"
