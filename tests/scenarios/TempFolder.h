// A folder of its own for each test, gone with all its files at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace vexil {

class TempFolder {
  public:
    TempFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vexil-XXXXXX").string();
        folder = mkdtemp(name.data());
    }
    ~TempFolder() {
        std::error_code ignored;  // what cannot be removed is left to the system
        std::filesystem::remove_all(folder, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string Path(const std::string& name) const { return folder + "/" + name; }
    const std::string& Path() const { return folder; }

    void Write(const std::string& name, const std::string& text) const {
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    std::string Read(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    bool IsEmpty() const { return std::filesystem::is_empty(folder); }

  private:
    std::string folder;
};

}  // namespace vexil
