// A file for the life of one command, in a folder of its own that nobody else can look into: what works on
// files works on standard input and output through it.
#pragma once

#include <string>

namespace vexil {

class TemporaryFile {
  public:
    // With this content. Where that fails Problem says why.
    explicit TemporaryFile(const std::string& content);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& Path() const { return path; }
    // Why there is no file; empty when there is one.
    const std::string& Problem() const { return problem; }

  private:
    std::string folder;
    std::string path;
    std::string problem;
};

}  // namespace vexil
