// Directory walks: depth first, names sorted byte-wise, one listing per
// open directory held at a time, every directory that cannot be listed
// given as an entry of its own.  Each directory is opened from its parent
// and stays open while its entries are given, so that neither the walk nor
// its reader looks up a whole path again.
#include "kz_host.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct kz_host_walk {
    struct Listing {
        std::string path;
        DIR* stream = nullptr;  // open until the last entry is given
        std::vector<std::pair<std::string, bool>> entries;  // name, is a directory
        size_t next = 0;
    };

    ~kz_host_walk() {
        for (Listing& listing : open) closedir(listing.stream);
    }

    std::vector<std::string> extensions;  // lower case, without the dot
    std::vector<std::string> excludes;
    std::vector<Listing> open;
    std::string pendingRoot;  // the root, until it is entered
    bool rootPending = true;
    std::string path;  // of the entry handed out last
    kz_host_walk_entry entry{};

    // Hands out `path` with `error`; a file with its directory and the
    // length of its name.
    void Give(std::string given, int error, int directory = -1, size_t nameLength = 0) {
        path = std::move(given);
        entry.struct_size = sizeof entry;
        entry.path = path.c_str();
        entry.path_len = path.size();
        entry.error = error;
        entry.directory = directory;
        entry.name = path.c_str() + path.size() - nameLength;
    }

    bool Excluded(const char* name) const {
        for (const std::string& pattern : excludes) {
            if (fnmatch(pattern.c_str(), name, 0) == 0) return true;
        }
        return false;
    }

    bool Wanted(std::string_view name) const {
        if (extensions.empty()) return true;
        const size_t dot = name.rfind('.');
        if (dot == std::string_view::npos) return false;
        const std::string_view extension = name.substr(dot + 1);
        return std::any_of(extensions.begin(), extensions.end(), [extension](const std::string& wanted) {
            return wanted.size() == extension.size() &&
                   std::equal(wanted.begin(), wanted.end(), extension.begin(), [](char w, char c) {
                       return w == (c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
                   });
        });
    }

    static std::string Join(const std::string& directory, const std::string& name) {
        return directory.ends_with('/') ? directory + name : directory + "/" + name;
    }

    // Lists the directory `name` of the open `parent` (AT_FDCWD for the
    // root), sorted; its entries carry their type from the listing where
    // the file system gives it, so most need no stat.  The errno when it
    // cannot be opened or read, else 0.
    int Enter(int parent, const char* name, std::string directory) {
        const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        DIR* stream = fd >= 0 ? fdopendir(fd) : nullptr;
        if (stream == nullptr) {
            const int error = errno;
            if (fd >= 0) close(fd);
            return error;
        }
        Listing listing;
        for (;;) {
            // readdir tells an error from the end of the listing by errno.
            errno = 0;
            const dirent* item = readdir(stream);
            if (item == nullptr) break;
            const char* entryName = item->d_name;
            if (std::strcmp(entryName, ".") == 0 || std::strcmp(entryName, "..") == 0 || Excluded(entryName)) {
                continue;
            }
            struct stat status;
            bool isDirectory = item->d_type == DT_DIR;
            if (item->d_type == DT_UNKNOWN) {
                isDirectory = fstatat(fd, entryName, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
            } else if (item->d_type == DT_LNK && fstatat(fd, entryName, &status, 0) == 0 &&
                       S_ISDIR(status.st_mode)) {
                continue;
            }
            if (isDirectory || Wanted(entryName)) listing.entries.emplace_back(entryName, isDirectory);
        }
        const int error = errno;
        if (error != 0) {
            closedir(stream);
            return error;
        }
        std::sort(listing.entries.begin(), listing.entries.end());
        listing.path = std::move(directory);
        listing.stream = stream;
        open.push_back(std::move(listing));
        return 0;
    }

    int Next() {
        if (rootPending) {
            rootPending = false;
            if (const int error = Enter(AT_FDCWD, pendingRoot.c_str(), pendingRoot)) {
                Give(std::move(pendingRoot), error);
                return KZ_HOST_OK;
            }
        }
        while (!open.empty()) {
            Listing& listing = open.back();
            if (listing.next == listing.entries.size()) {
                closedir(listing.stream);
                open.pop_back();
                continue;
            }
            auto& [name, isDirectory] = listing.entries[listing.next++];
            std::string entryPath = Join(listing.path, name);
            if (!isDirectory) {
                Give(std::move(entryPath), 0, dirfd(listing.stream), name.size());
                return KZ_HOST_OK;
            }
            // Entering may move the listings: the name is used first.
            if (const int error = Enter(dirfd(listing.stream), name.c_str(), entryPath)) {
                Give(std::move(entryPath), error);
                return KZ_HOST_OK;
            }
        }
        return KZ_HOST_WALK_END;
    }
};

extern "C" {

void kz_host_walk_options_init(kz_host_walk_options* options) {
    if (options == nullptr) return;
    *options = kz_host_walk_options{};
    options->struct_size = sizeof *options;
}

int kz_host_walk_new(const char* root, const kz_host_walk_options* options, kz_host_walk** walk) {
    if (walk != nullptr) *walk = nullptr;
    if (root == nullptr || walk == nullptr ||
        (options != nullptr &&
         (options->struct_size != sizeof *options ||
          (options->extension_count != 0 && options->extensions == nullptr) ||
          (options->exclude_count != 0 && options->excludes == nullptr)))) {
        return KZ_HOST_ERROR_ARGUMENT;
    }
    try {
        auto* made = new kz_host_walk;
        made->pendingRoot = root;
        for (size_t i = 0; options != nullptr && i < options->extension_count; ++i) {
            std::string extension = options->extensions[i] != nullptr ? options->extensions[i] : "";
            for (char& c : extension) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
            made->extensions.push_back(std::move(extension));
        }
        for (size_t i = 0; options != nullptr && i < options->exclude_count; ++i) {
            made->excludes.emplace_back(options->excludes[i] != nullptr ? options->excludes[i] : "");
        }
        *walk = made;
        return KZ_HOST_OK;
    } catch (const std::bad_alloc&) {
        return KZ_HOST_ERROR_NO_MEMORY;
    }
}

int kz_host_walk_next(kz_host_walk* walk, const kz_host_walk_entry** entry) {
    if (entry != nullptr) *entry = nullptr;
    if (walk == nullptr || entry == nullptr) return KZ_HOST_ERROR_ARGUMENT;
    try {
        const int status = walk->Next();
        if (status == KZ_HOST_OK) *entry = &walk->entry;
        return status;
    } catch (const std::bad_alloc&) {
        return KZ_HOST_ERROR_NO_MEMORY;
    }
}

void kz_host_walk_free(kz_host_walk* walk) { delete walk; }

}  // extern "C"
