// A computer for one test: folders for preferences, the control channel and files, removed at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "driver/DriverOptions.h"
#include "platform/linux/Paths.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class CtlFolder {
  public:
    CtlFolder() {
        std::string name = "/tmp/vexil3-ctl-XXXXXX";
        root = mkdtemp(name.data());
        paths.anyUserPreferences = root + "/config/vexil3/preferences/any-user";
        paths.currentUserPreferences = root + "/config/vexil3/preferences/current-user";
        paths.control = root + "/run";
        paths.hostId = "0123456789abcdef0123456789abcdef";
        std::filesystem::create_directory(paths.control);
    }
    ~CtlFolder() {
        std::error_code ignored;  // a folder that stays behind harms nothing
        std::filesystem::remove_all(root, ignored);
    }
    CtlFolder(const CtlFolder&) = delete;
    CtlFolder& operator=(const CtlFolder&) = delete;

    std::string SocketPath() const { return paths.control + "/" + kControlName; }
    std::string File(const std::string& name) const { return root + "/" + name; }
    std::string StoredFile() const {
        return paths.anyUserPreferences + "/com.sonavert.Vexil3Driver." + paths.hostId + ".plist";
    }

    static void Put(const std::string& path, const std::string& content) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    }
    // "" for a file that is not there.
    static std::string Content(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string root;
    Paths paths;
};

}  // namespace vexil
