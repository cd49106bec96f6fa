// Where a file of the user's own folder really is, when a symbolic link stands at its place: a home that is
// kept in version control has links where programs look for their files.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

namespace vexil {

struct LinkedFile {
    enum class State {
        There,    // `status` is the file's
        Missing,  // nothing there, or the end of the links leads to nothing: may be made at `path`
        Refused,  // a link that must not be followed; `status` is the link's
        Failed    // `error` says why it cannot be told
    };
    State state = State::Missing;
    std::string path;  // where the links lead; the place itself where there is no link
    struct stat status {};
    std::string refusal;  // why it is refused, for the log
    int error = 0;        // errno of lstat
};

// What is at `folder`/`name`. With `follow`, links are followed to a regular file of the caller; root follows
// none in the folder of another user, who could lead it anywhere. Without, a link is what is there.
LinkedFile FindLinkedFile(const std::string& folder, const std::string& name, bool follow);

// The paths that links lead through from `path` on, which is the first; the last is no link, or missing.
std::vector<std::string> LinkChain(const std::string& path);

// The folder and the name of a path, which is to hold a "/".
std::string FolderOf(const std::string& path);
std::string NameOf(const std::string& path);

}  // namespace vexil
