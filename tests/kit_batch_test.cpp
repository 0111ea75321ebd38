// kz_host_collect_files: several files with one call, each entry the same
// as kz_host_collect_file gives for that file alone.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kz_host.h"
#include "processes.h"
#include "tag_builder.h"

namespace {

using namespace kztest;

TEST(KitBatch, EachFileAsCollectedAloneInTheOrderGiven) {
    TempDir dir;
    const Strings names = {
        dir.Write("tagged.mp3", Tag(3, Frame(3, "TIT2", Raw({0}) + Latin1("Song"))) + SilentMpegFrames(2)),
        dir.path.string() + "/missing.mp3", dir.path.string(), dir.Write("plain.mp3", Latin1("no tag")),
        dir.Write("v1.mp3", Id3v1({.title = "Old"}))};
    // Each file's status and errno.
    const int32_t outcomes[][2] = {{KZ_HOST_OK, 0}, {KZ_HOST_ERROR_IO, ENOENT}, {KZ_HOST_ERROR_NOT_REGULAR, EISDIR},
                                   {KZ_HOST_NOTHING_TO_READ, 0}, {KZ_HOST_OK, 0}};
    std::vector<const char*> paths;
    for (const std::string& name : names) paths.push_back(name.c_str());
    kz_host_reader* reader = nullptr;
    ASSERT_EQ(kz_host_reader_new(nullptr, &reader, nullptr, 0), KZ_HOST_OK);
    kz_host_read_options typed;
    kz_host_read_options_init(&typed);
    typed.file_type = KZ_HOST_TYPE_ID3V2;
    for (const kz_host_read_options* options : {static_cast<const kz_host_read_options*>(nullptr),
                                                static_cast<const kz_host_read_options*>(&typed)}) {
        // Per file: i32 status, i32 errno, u32 size, the packed result of the file read alone.
        std::string expected;
        for (size_t i = 0; i < names.size(); ++i) {
            kz_host_result* result = nullptr;
            EXPECT_EQ(kz_host_collect_file(reader, paths[i], options, &result), outcomes[i][0]) << names[i];
            size_t size = 0;
            const auto* packed = static_cast<const char*>(kz_host_result_packed(result, &size));
            const uint32_t fields[3] = {static_cast<uint32_t>(outcomes[i][0]), static_cast<uint32_t>(outcomes[i][1]),
                                        static_cast<uint32_t>(size)};
            expected.append(reinterpret_cast<const char*>(fields), sizeof fields).append(packed ? packed : "", size);
            kz_host_result_free(result);
        }
        kz_host_batch* batch = nullptr;
        ASSERT_EQ(kz_host_collect_files(reader, paths.data(), paths.size(), options, &batch), KZ_HOST_OK);
        size_t size = 0;
        const auto* packed = static_cast<const char*>(kz_host_batch_packed(batch, &size));
        const std::string got(packed, size);
        kz_host_batch_free(batch);
        EXPECT_EQ(got, expected);
        // The packed head of the tagged file: its type, and its name when given.
        EXPECT_EQ(got.substr(12 + 8, 2), options ? "\xAD\x06" : "\xAB\x06");
    }
    // No files: an empty batch.  Bad arguments: no batch.
    kz_host_batch* batch = nullptr;
    ASSERT_EQ(kz_host_collect_files(reader, nullptr, 0, nullptr, &batch), KZ_HOST_OK);
    size_t size = 7;
    EXPECT_NE(kz_host_batch_packed(batch, &size), nullptr);
    EXPECT_EQ(size, 0u);
    kz_host_batch_free(batch);
    typed.struct_size = 1;
    paths[1] = nullptr;
    EXPECT_EQ(kz_host_collect_files(nullptr, paths.data(), 1, nullptr, &batch), KZ_HOST_ERROR_ARGUMENT);
    EXPECT_EQ(kz_host_collect_files(reader, nullptr, 1, nullptr, &batch), KZ_HOST_ERROR_ARGUMENT);
    EXPECT_EQ(kz_host_collect_files(reader, paths.data(), 2, nullptr, &batch), KZ_HOST_ERROR_ARGUMENT);
    EXPECT_EQ(kz_host_collect_files(reader, paths.data(), 1, &typed, &batch), KZ_HOST_ERROR_ARGUMENT);
    EXPECT_EQ(batch, nullptr);
    EXPECT_EQ(kz_host_collect_files(reader, paths.data(), 1, nullptr, nullptr), KZ_HOST_ERROR_ARGUMENT);
    EXPECT_EQ(kz_host_batch_packed(nullptr, &size), nullptr);
    EXPECT_EQ(size, 0u);
    kz_host_reader_free(reader);
}

}  // namespace
