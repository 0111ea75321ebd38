// A collected result: every item of one read, owned, with the packed form
// built on first request.
#ifndef KZ_HOST_RESULT_H
#define KZ_HOST_RESULT_H

#include "kz_host.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

struct kz_host_result {
    // The visitor that copies each item in.
    static int Collect(const kz_host_field* field, void* result);
    // Points the public records at the owned copies; after the last item.
    void Seal(const kz_host_file_info& fileInfo);
    // Null when memory ran out or a length does not fit the layout.
    const std::string* Packed() const;

    kz_host_file_info info{};
    std::vector<kz_host_field> fields;

private:
    struct OwnedString {
        uint32_t tag;
        size_t offset;
        std::string text;
        std::vector<uint32_t> codes;
        bool hasCodes;
    };
    struct OwnedItem {
        kz_host_field field;  // scalars; the pointers are set by Seal
        std::string ident;
        std::string text;
        std::vector<uint32_t> codes;
        bool hasCodes;
        size_t firstString;
        size_t stringCount;
        bool hasDescription;
    };

    void Pack() const;

    std::vector<OwnedItem> items_;
    std::vector<OwnedString> ownedStrings_;
    std::vector<kz_host_string> strings_;
    mutable std::once_flag packOnce_;
    mutable std::string packed_;
    mutable bool packedValid_ = false;
};

#endif  // KZ_HOST_RESULT_H
