// What the fuzz targets share: a check that stops the program in every build type, and a file to work on.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace vexil::test {

inline void Check(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "fuzz check failed: %s\n", what);
        std::abort();
    }
}

// A file of this process in memory where the machine has such a file system, since each run writes it;
// removed with its folder when the process ends.
class WorkFile {
  public:
    WorkFile() {
        const std::filesystem::path shared = "/dev/shm";
        std::string name =
            (exists(shared) ? shared : std::filesystem::temp_directory_path()) / "vexil-fuzz-XXXXXX";
        Check(::mkdtemp(name.data()) != nullptr, "a folder can be made");
        folder = name;
    }
    ~WorkFile() {
        std::error_code ignored;  // what stays behind is gone with the machine's memory
        std::filesystem::remove_all(folder, ignored);
    }
    WorkFile(const WorkFile&) = delete;
    WorkFile& operator=(const WorkFile&) = delete;

    std::string Path() const { return folder / "file.vexil3"; }

    void Write(const std::string& text) const {
        std::FILE* file = std::fopen(Path().c_str(), "w");
        Check(file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size(),
              "the file is written");
        std::fclose(file);
    }

    std::string Read() const {
        std::FILE* file = std::fopen(Path().c_str(), "r");
        Check(file != nullptr, "the file is there");
        std::string text;
        char buffer[65536];
        for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof buffer, file)) > 0;) {
            text.append(buffer, got);
        }
        std::fclose(file);
        return text;
    }

    // Whether the file is alone in its folder: nothing was left beside it.
    bool IsAlone() const {
        return std::distance(std::filesystem::directory_iterator(folder),
                             std::filesystem::directory_iterator()) == 1;
    }

  private:
    std::filesystem::path folder;
};

}  // namespace vexil::test
