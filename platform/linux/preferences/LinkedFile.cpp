#include "platform/linux/preferences/LinkedFile.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <utility>

namespace vexil {
namespace {

constexpr int kMostLinks = 40;  // as the system's own limit

// Whether the caller is root and the folder another user's.
bool IsFolderOfAnother(const std::string& folder) {
    struct stat status {};
    return geteuid() == 0 && stat(folder.c_str(), &status) == 0 && status.st_uid != 0;
}

// The path that a link holds, from its own folder on where it is relative; empty when it cannot be read.
std::string LinkText(const std::string& path) {
    std::array<char, PATH_MAX> text{};
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    if (length <= 0 || length == static_cast<ssize_t>(text.size())) {
        return "";
    }
    const std::string target(text.data(), static_cast<std::size_t>(length));
    return target.front() == '/' ? target : FolderOf(path) + "/" + target;
}

bool IsLink(const struct stat& status) {
    return S_ISLNK(status.st_mode);
}

// Why the file that links lead to is not used, or "".
std::string RefusalOf(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return "a symbolic link that leads to no file";
    }
    return status.st_uid == geteuid() ? "" : "a symbolic link to another user's file";
}

LinkedFile Refuse(LinkedFile file, const std::string& place, const struct stat& link, std::string refusal) {
    file.state = LinkedFile::State::Refused;
    file.path = place;
    file.status = link;
    file.refusal = std::move(refusal);
    return file;
}

}  // namespace

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::vector<std::string> LinkChain(const std::string& path) {
    std::vector<std::string> chain = {path};
    struct stat status {};
    for (int links = 0; links < kMostLinks; ++links) {
        if (lstat(chain.back().c_str(), &status) != 0 || !IsLink(status)) {
            break;
        }
        std::string target = LinkText(chain.back());
        if (target.empty()) {
            break;
        }
        chain.push_back(std::move(target));
    }
    return chain;
}

LinkedFile FindLinkedFile(const std::string& folder, const std::string& name, bool follow) {
    const std::string place = folder + "/" + name;
    LinkedFile file;
    file.path = place;
    struct stat link {};
    for (int links = 0;; ++links) {
        if (lstat(file.path.c_str(), &file.status) != 0) {
            file.error = errno;
            if (file.error == ENOENT || file.error == ENOTDIR) {
                file.state = LinkedFile::State::Missing;
            } else if (links == 0) {
                file.state = LinkedFile::State::Failed;
            } else {
                return Refuse(file, place, link, "a symbolic link that leads to an inaccessible place");
            }
            return file;
        }
        if (links == 0) {
            link = file.status;
        }
        if (!follow || !IsLink(file.status)) {
            break;
        }
        const std::string target = LinkText(file.path);
        if (links == kMostLinks || target.empty()) {
            return Refuse(file, place, link, "a symbolic link that leads nowhere");
        }
        if (IsFolderOfAnother(folder)) {
            return Refuse(file, place, link, "a symbolic link in another user's folder");
        }
        file.path = target;
    }
    file.state = LinkedFile::State::There;
    if (follow && IsLink(link)) {
        if (std::string refusal = RefusalOf(file.status); !refusal.empty()) {
            return Refuse(file, place, link, std::move(refusal));
        }
    }
    return file;
}

}  // namespace vexil
