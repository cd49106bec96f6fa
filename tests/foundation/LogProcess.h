// A child process with a log of its own, whose standard input and output are files. The log is process-wide
// and opened once, so every test of it runs in such a child.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

namespace vexil {

class LogProcess {
  public:
    LogProcess() {
        std::string name = (std::filesystem::temp_directory_path() / "vexil-log-XXXXXX").string();
        folder = mkdtemp(name.data());
    }
    ~LogProcess() { std::filesystem::remove_all(folder); }
    LogProcess(const LogProcess&) = delete;
    LogProcess& operator=(const LogProcess&) = delete;

    // Starts `body` in a child in UTC; the child then ends the way a program does. Returns its process id.
    pid_t Start(const std::function<void()>& body) const {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            setenv("TZ", "UTC", 1);
            LeadTo(0, "input");
            LeadTo(1, "output");
            body();
            std::exit(0);
        }
        return child;
    }

    // Its exit status, or -1 when it died of a signal.
    static int Wait(pid_t child) {
        int status = -1;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    int Run(const std::function<void()>& body) const { return Wait(Start(body)); }

    std::string Path(const std::string& name) const { return folder + "/" + name; }
    std::string LogPath() const { return Path("test.log"); }
    static std::string Read(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    std::string Log() const { return Read(LogPath()); }
    // What the child wrote to descriptors 0 and 1.
    std::string Input() const { return Read(Path("input")); }
    std::string Output() const { return Read(Path("output")); }

  private:
    void LeadTo(int descriptor, const char* name) const {
        const int file = open(Path(name).c_str(), O_RDWR | O_CREAT | O_APPEND, 0600);
        dup2(file, descriptor);
        close(file);
    }

    std::string folder;
};

}  // namespace vexil
