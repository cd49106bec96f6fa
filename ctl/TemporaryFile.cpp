#include "ctl/TemporaryFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "ctl/StandardConsole.h"
#include "shared/System/Descriptor.h"

namespace vexil {

TemporaryFile::TemporaryFile(const std::string& content) {
    std::error_code error;
    std::string name = (std::filesystem::temp_directory_path(error) / "vexil3ctl-XXXXXX").string();
    if (error || mkdtemp(name.data()) == nullptr) {
        problem = "no temporary folder can be made: " + (error ? error.message() : std::strerror(errno));
        return;
    }
    folder = name;
    path = folder + "/settings.vexil3";
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    const int failure = file.IsOpen() ? WriteAll(file.Number(), content) : errno;
    if (failure != 0) {
        problem = "no temporary file can be written: " + std::string(std::strerror(failure));
    }
}

TemporaryFile::~TemporaryFile() {
    if (!folder.empty()) {
        std::error_code ignored;  // what stays behind in the temporary folder is the system's to remove
        std::filesystem::remove_all(folder, ignored);
    }
}

}  // namespace vexil
