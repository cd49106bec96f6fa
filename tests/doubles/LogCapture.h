// What the log writes while an object of this type lives. For programs that never open the log: its lines
// then go, without a prefix, to descriptor 0, which is led into memory meanwhile.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace vexil {

class LogCapture {
  public:
    LogCapture() : memory(memfd_create("log", MFD_CLOEXEC)), saved(fcntl(0, F_DUPFD_CLOEXEC, 3)) {
        dup2(memory, 0);
    }
    ~LogCapture() {
        if (saved == -1) {
            close(0);
        } else {
            dup2(saved, 0);
            close(saved);
        }
        close(memory);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Everything written so far and not cleared.
    std::string Text() const {
        std::string text(static_cast<std::size_t>(lseek(memory, 0, SEEK_END)), '\0');
        const ssize_t got = pread(memory, text.data(), text.size(), 0);
        text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return text;
    }
    void Clear() {
        if (ftruncate(memory, 0) == 0) {
            lseek(memory, 0, SEEK_SET);
        }
    }
    // How often a text occurs.
    int Count(const std::string& wanted) const {
        const std::string text = Text();
        int found = 0;
        for (std::size_t at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1)) {
            ++found;
        }
        return found;
    }

  private:
    int memory;
    int saved;  // what descriptor 0 was; -1: closed
};

}  // namespace vexil
