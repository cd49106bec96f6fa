// Replacing a file so that it is the old one or the new one, whole, whatever happens, and permanently the new
// one once that is reported. Also the lock under which that is done, and setting a file aside.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "shared/System/Descriptor.h"

namespace vexil {

// The system calls on whose presence and order it depends that a written file lasts. Replaced only by what
// checks that a missing one would be noticed.
struct DurabilityCalls {
    ssize_t (*write)(int file, const void* bytes, std::size_t count);
    int (*fdatasync)(int file);
    int (*rename)(int oldFolder, const char* oldName, int newFolder, const char* newName);
    int (*fsync)(int file);
};
DurabilityCalls SystemDurabilityCalls();

// What failed and the errno value that it failed with.
struct FileFailure {
    const char* operation;
    int error;
};
using FileResult = std::optional<FileFailure>;  // null: success

// Who may use a file that is made: its mode, and its owner and group where they are not those of this
// process.
struct FileAccess {
    mode_t mode = 0600;
    uid_t owner = static_cast<uid_t>(-1);
    gid_t group = static_cast<gid_t>(-1);
};

// Opens a folder. With `make`, makes it and its parents (mode 0700) where they are missing, permanently.
FileResult OpenFolder(const std::string& path, bool make, const DurabilityCalls& calls, Descriptor& folder);

// Takes the exclusive lock on the file `name`, making the file when it is missing; the lock lasts as long as
// `lock`. Waits no longer than `patience` for another holder (ETIMEDOUT).
FileResult TakeLock(const Descriptor& folder, const std::string& name, const FileAccess& access,
                    std::chrono::milliseconds patience, Descriptor& lock);

// Replaces the file `name` (or makes it) by one with the given content, which `file` then is. On failure the
// old file is still there and the new one is not. To be called by one program at a time, under the lock: the
// names "NAME.new" and "NAME.old" beside the file are used, and what an earlier holder left there when it was
// killed is removed.
//
// Where the file system knows no hard links, a failure of the very last step (making the folder's entry
// permanent) leaves the new file in place.
FileResult ReplaceFile(const Descriptor& folder, const std::string& name, std::string_view content,
                       const FileAccess& access, const DurabilityCalls& calls, Descriptor& file);

// Renames what `name` is, of whatever type, to "NAME.damaged-YYYYMMDD-HHMMSS" (UTC; with a number behind it
// when that is taken) without replacing anything. `newName` is the name it got.
FileResult SetAside(const Descriptor& folder, const std::string& name, std::string& newName);

}  // namespace vexil
