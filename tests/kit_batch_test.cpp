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

// One file's entry of a batch.
struct Entry {
    int32_t status;
    int32_t error;
    std::string packed;
    bool operator==(const Entry&) const = default;
};

template <typename T>
T Take(const char*& at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    at += sizeof value;
    return value;
}

std::vector<Entry> Entries(const kz_host_batch* batch) {
    size_t size = 0;
    const char* at = static_cast<const char*>(kz_host_batch_packed(batch, &size));
    const char* const end = at + size;
    std::vector<Entry> entries;
    while (at < end) {
        Entry entry{};
        entry.status = Take<int32_t>(at);
        entry.error = Take<int32_t>(at);
        const uint32_t length = Take<uint32_t>(at);
        entry.packed.assign(at, length);
        at += length;
        entries.push_back(entry);
    }
    EXPECT_EQ(at, end);
    return entries;
}

// What kz_host_collect_file gives for one file, as a batch entry.
Entry Alone(kz_host_reader* reader, const std::string& path, const kz_host_read_options* options) {
    kz_host_result* result = nullptr;
    Entry entry{};
    entry.status = kz_host_collect_file(reader, path.c_str(), options, &result);
    entry.error = entry.status == KZ_HOST_ERROR_IO || entry.status == KZ_HOST_ERROR_NOT_REGULAR ? errno : 0;
    if (entry.status == KZ_HOST_OK || entry.status == KZ_HOST_NOTHING_TO_READ) {
        size_t size = 0;
        const void* packed = kz_host_result_packed(result, &size);
        entry.packed.assign(static_cast<const char*>(packed), size);
    }
    kz_host_result_free(result);
    return entry;
}

TEST(KitBatch, EachFileAsCollectedAloneInTheOrderGiven) {
    TempDir dir;
    const std::vector<std::string> names = {
        dir.Write("tagged.mp3", Tag(3, Frame(3, "TIT2", Raw({0}) + Latin1("Song"))) + SilentMpegFrames(2)),
        dir.path.string() + "/missing.mp3", dir.path.string(), dir.Write("plain.mp3", Latin1("no tag")),
        dir.Write("v1.mp3", Id3v1({.title = "Old"}))};
    std::vector<const char*> paths;
    for (const std::string& name : names) paths.push_back(name.c_str());
    kz_host_reader* reader = nullptr;
    ASSERT_EQ(kz_host_reader_new(nullptr, &reader, nullptr, 0), KZ_HOST_OK);
    kz_host_read_options typed;
    kz_host_read_options_init(&typed);
    typed.file_type = KZ_HOST_TYPE_ID3V2;
    for (const kz_host_read_options* options : {static_cast<const kz_host_read_options*>(nullptr),
                                                static_cast<const kz_host_read_options*>(&typed)}) {
        kz_host_batch* batch = nullptr;
        ASSERT_EQ(kz_host_collect_files(reader, paths.data(), paths.size(), options, &batch), KZ_HOST_OK);
        const std::vector<Entry> entries = Entries(batch);
        kz_host_batch_free(batch);
        ASSERT_EQ(entries.size(), 5u);
        const std::vector<std::pair<int, int>> outcomes = {
            {KZ_HOST_OK, 0}, {KZ_HOST_ERROR_IO, ENOENT}, {KZ_HOST_ERROR_NOT_REGULAR, EISDIR},
            {KZ_HOST_NOTHING_TO_READ, 0}, {KZ_HOST_OK, 0}};
        for (size_t i = 0; i < names.size(); ++i) {
            EXPECT_EQ(std::make_pair(int{entries[i].status}, int{entries[i].error}), outcomes[i]) << names[i];
            EXPECT_EQ(entries[i], Alone(reader, names[i], options)) << names[i];
        }
        // The packed head of the tagged file: its type, and its name when given.
        EXPECT_EQ(entries[0].packed.substr(8, 2), options ? "\xAD\x06" : "\xAB\x06");
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
