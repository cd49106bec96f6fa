// Reading a file that other programs may write, replace or remove at any moment: which state of it was read,
// and its bytes.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>

#include "platform/linux/preferences/DurableFile.h"
#include "shared/System/Descriptor.h"

namespace vexil {

// Tells one state of a file from another. A file that is replaced differs in its inode as long as the one
// that was read is kept open; one that is rewritten in place, in its times.
struct FileIdentity {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};
    bool operator==(const FileIdentity& other) const;
};
FileIdentity IdentityOf(const struct stat& status);

// Whether a further change of the file could get the same time stamps as the state now seen: time stamps
// advance with the coarse clock.
bool MayChangeUnseen(const struct stat& status);

struct FileReading {
    enum class Result {
        Read,
        Changing,  // is no longer what `status` said: to be looked at again
        Bad,       // no regular file, too large, not readable; `problem` says which
        Failed     // `failure`
    };
    Result result = Result::Read;
    std::string bytes;
    Descriptor file;  // of what was read
    std::string problem;
    FileFailure failure{};
};

// Reads the file at `path`, which `status` was taken of (lstat). Links are not followed; nothing is waited
// for, a pipe neither. Up to `limit` bytes.
FileReading ReadFile(const std::string& path, const struct stat& status, std::size_t limit);

}  // namespace vexil
