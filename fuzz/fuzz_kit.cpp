// The host kit over an arbitrary buffer in memory (kz_host_read_memory and
// kz_host_collect_memory).  The first input byte decides the read options:
//   bits 0-1  stop at every n-th frame break, save and restore (0: never)
//   bit 2     hand over the raw codes too
//   bit 3     file type 1707 instead of detection
//   bits 4-7  at most n * 16 characters (0: the default bound)
// Findings: a crash or sanitizer report; a text, description or string that
// is not UTF-8 or not NUL-terminated; a status the read may not give; two
// reads, a streamed and a collected read, the packed form, or the same bytes
// read from memory and read by path as a file (an in-memory file) that
// disagree.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "kz_host.h"

namespace {

[[noreturn]] void Finding() { std::abort(); }

// Valid UTF-8 (NUL characters included) followed by a NUL.
void CheckText(const char* text, size_t length) {
    if (text == nullptr || text[length] != '\0') Finding();
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    for (size_t i = 0; i < length;) {
        const unsigned char lead = p[i];
        const size_t size = lead < 0x80 ? 1 : lead >= 0xC2 && lead <= 0xDF ? 2
                            : lead >= 0xE0 && lead <= 0xEF ? 3 : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
        if (size == 0 || i + size > length) Finding();
        uint32_t cp = size == 1 ? lead : lead & (0x7F >> size);
        for (size_t k = 1; k < size; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) Finding();
            cp = cp << 6 | (p[i + k] & 0x3F);
        }
        if ((size == 3 && cp < 0x800) || (size == 4 && cp < 0x10000) || cp > 0x10FFFF ||
            (cp >= 0xD800 && cp <= 0xDFFF)) {
            Finding();
        }
        i += size;
    }
}

// Every item of a read as it would be packed (idents, descriptions and
// texts), so that reads can be compared.
void Append(std::string& out, const kz_host_field& field) {
    CheckText(field.text, field.text_len);
    if (field.ident == nullptr) Finding();
    if (field.description != nullptr) CheckText(field.description, field.description_len);
    for (size_t i = 0; i < field.string_count; ++i) {
        CheckText(field.strings[i].text, field.strings[i].text_len);
        if (field.strings[i].offset > field.text_len) Finding();
    }
    const uint32_t header[] = {static_cast<uint32_t>(field.kind), static_cast<uint32_t>(field.id3v1),
                               field.tag, field.number,
                               field.description != nullptr ? static_cast<uint32_t>(field.description_len)
                                                            : KZ_HOST_PACKED_NO_DESCRIPTION,
                               static_cast<uint32_t>(field.text_len)};
    out.append(reinterpret_cast<const char*>(header), sizeof header);
    out += field.ident;
    if (field.description != nullptr) out.append(field.description, field.description_len);
    out.append(field.text, field.text_len);
}

int Collect(const kz_host_field* field, void* user) {
    Append(*static_cast<std::string*>(user), *field);
    return 0;
}

// The packed items in the form of Append.
std::string Unpack(const kz_host_result* result) {
    size_t size = 0;
    const auto* p = static_cast<const uint8_t*>(kz_host_result_packed(result, &size));
    if (p == nullptr || size < 12) Finding();
    const uint8_t* end = p + size;
    uint32_t count;
    std::memcpy(&count, p, sizeof count);
    p += 11 + p[11] + 1;
    std::string out;
    for (uint32_t i = 0; i < count; ++i) {
        if (end - p < 20) Finding();
        uint32_t words[4];
        std::memcpy(words, p + 4, sizeof words);
        const uint32_t header[] = {p[0], p[1], words[0], words[1], words[2], words[3]};
        const size_t identLength = p[2];
        const size_t length = identLength +
                              (words[2] != KZ_HOST_PACKED_NO_DESCRIPTION ? words[2] : 0) + words[3];
        p += 20;
        if (static_cast<size_t>(end - p) < length) Finding();
        out.append(reinterpret_cast<const char*>(header), sizeof header);
        out.append(reinterpret_cast<const char*>(p), length);
        p += length;
    }
    if (p != end) Finding();
    return out;
}

bool Allowed(int status) {
    return status == KZ_HOST_OK || status == KZ_HOST_NOTHING_TO_READ ||
           status == KZ_HOST_ERROR_UNFINISHED;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kz_host_reader* reader = [] {
        kz_host_reader* made = nullptr;
        if (kz_host_reader_new(nullptr, &made, nullptr, 0) != KZ_HOST_OK) Finding();
        return made;
    }();
    if (size < 1) return 0;
    kz_host_read_options options;
    kz_host_read_options_init(&options);
    options.stop_every = data[0] & 3;
    options.flags = (data[0] & 4) != 0 ? KZ_HOST_READ_CODES : 0;
    options.file_type = (data[0] & 8) != 0 ? 1707 : KZ_HOST_TYPE_DETECT;
    options.char_limit = static_cast<uint64_t>(data[0] >> 4) * 16;
    const uint8_t* file = data + 1;
    const size_t fileSize = size - 1;

    std::string streamed;
    kz_host_file_info info;
    kz_host_file_info_init(&info);
    const int status = kz_host_read_memory(reader, file, fileSize, &options, &Collect, &streamed, &info);
    if (!Allowed(status) || (status == KZ_HOST_ERROR_UNFINISHED && !info.truncated)) Finding();

    std::string again;
    if (kz_host_read_memory(reader, file, fileSize, &options, &Collect, &again, nullptr) != status ||
        again != streamed) {
        Finding();
    }

    // The same bytes as a file, read by its path through the file stream.
    static const std::string filePath = [] {
        const int fd = memfd_create("fuzz_kit", MFD_CLOEXEC);
        if (fd < 0) Finding();
        return "/proc/self/fd/" + std::to_string(fd);
    }();
    static const int fileFd = std::stoi(filePath.substr(filePath.rfind('/') + 1));
    if (ftruncate(fileFd, 0) != 0 ||
        (fileSize != 0 && pwrite(fileFd, file, fileSize, 0) != static_cast<ssize_t>(fileSize))) {
        Finding();
    }
    std::string byPath;
    kz_host_file_info fileInfo;
    kz_host_file_info_init(&fileInfo);
    if (kz_host_read_file(reader, filePath.c_str(), &options, &Collect, &byPath, &fileInfo) != status ||
        byPath != streamed || fileInfo.file_type != info.file_type || fileInfo.audio != info.audio ||
        fileInfo.truncated != info.truncated) {
        Finding();
    }

    kz_host_result* result = nullptr;
    if (kz_host_collect_memory(reader, file, fileSize, &options, &result) != status) Finding();
    std::string collected;
    for (size_t i = 0; i < kz_host_result_count(result); ++i) {
        Append(collected, *kz_host_result_field(result, i));
    }
    if (collected != streamed || Unpack(result) != streamed ||
        kz_host_result_info(result)->field_count != info.field_count) {
        Finding();
    }
    kz_host_result_free(result);
    return 0;
}
