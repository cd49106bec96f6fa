// A folder for the files of one test, removed with all that it holds. A failure to make or write is an
// exception: the test has nothing to go on with.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace vexil::test {

inline std::string ReadText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!(file << text) || !file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

class TemporaryFolder {
  public:
    explicit TemporaryFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
        std::string name = parent / "vexil-test-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make " + name);
        }
        folder = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;  // what stays behind is the system's to clear away
        std::filesystem::remove_all(folder, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path operator/(const std::string& name) const { return folder / name; }
    const std::filesystem::path& Path() const { return folder; }

    // The names of everything in the folder, sorted.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

  private:
    std::filesystem::path folder;
};

}  // namespace vexil::test
