// A collected result: every item of one read, owned, with the packed form
// built on first request.  The texts of all items share one buffer and
// their codes another, so that collecting a field costs appends, not
// allocations of its own.
#ifndef KZ_HOST_RESULT_H
#define KZ_HOST_RESULT_H

#include "kz_host.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

struct kz_host_result {
    kz_host_result();
    // The visitor that copies each item in.
    static int Collect(const kz_host_field* field, void* result);
    // Points the public records at the owned copies; after the last item.
    void Seal(const kz_host_file_info& fileInfo);
    // Null when memory ran out or a length does not fit the layout.
    const std::string* Packed() const;

    kz_host_file_info info{};
    std::vector<kz_host_field> fields;

private:
    static constexpr size_t kNone = static_cast<size_t>(-1);
    // Where the pointers of a field or string tag go once the buffers stop
    // growing: offsets in bytes_ and codes_, kNone for a null pointer.
    struct Place {
        size_t text;
        size_t codes;
    };
    struct ItemPlace {
        size_t ident;
        Place value;
        size_t firstString;
        bool hasDescription;
    };

    size_t AddText(const char* text, size_t length);
    size_t AddCodes(const uint32_t* codes, size_t count);
    void Pack() const;

    std::string bytes_;  // every text, each followed by a NUL
    std::vector<uint32_t> codes_;
    std::vector<ItemPlace> itemPlaces_;
    std::vector<Place> stringPlaces_;
    std::vector<kz_host_string> strings_;
    mutable std::once_flag packOnce_;
    mutable std::string packed_;
    mutable bool packedValid_ = false;
};

#endif  // KZ_HOST_RESULT_H
