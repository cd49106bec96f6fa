#include "tests/service/backends/alsa/AlsaTestProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/service/backends/alsa/AlsaProgram.h"

namespace vexil {

TestProcess::TestProcess(const std::vector<std::string>& command) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    output = ends[0];
    ::fcntl(output, F_SETFL, O_NONBLOCK);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    const int error = ::posix_spawn(&process, words[0], &actions, nullptr, words.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (error != 0) {
        process = -1;
        throw std::runtime_error("cannot start " + command[0]);
    }
}

TestProcess::~TestProcess() {
    Kill();
    ::close(output);
}

void TestProcess::Kill() {
    if (process > 0) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
        process = -1;
    }
}

std::string TestProcess::Printed() {
    std::string printed;
    std::array<char, 4096> buffer;
    for (ssize_t size = 0; (size = ::read(output, buffer.data(), buffer.size())) > 0;) {
        printed.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return printed;
}

std::string OutputOf(const std::string& command) {
    std::FILE* pipe = ::popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer;
    while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), pipe) != nullptr) {
        output += buffer.data();
    }
    if (::pclose(pipe) != 0) {
        throw std::runtime_error(command + " failed");
    }
    return output;
}

int HoldNote(const std::string& address, bool connected) {
    AlsaProgram program("holder");
    if (connected && !program.WriteTo(address)) {
        return 1;
    }
    const std::string direct = connected ? "" : address;
    program.Send({0x90, 60, 100}, direct);
    program.Send({0xB0, 64, 127}, direct);
    for (;;) {
        ::pause();
    }
}

int ThreadNamed(const std::string& name) {
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string found;
        std::ifstream(thread.path() / "comm") >> found;
        if (found == name) {
            return std::stoi(thread.path().filename());
        }
    }
    return -1;
}

std::chrono::milliseconds TimeOfThread(const std::string& name) {
    long long nanoseconds = 0;
    std::ifstream("/proc/self/task/" + std::to_string(ThreadNamed(name)) + "/schedstat") >> nanoseconds;
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::nanoseconds(nanoseconds));
}

long SwitchesOfThread(const std::string& name) {
    const int thread = ThreadNamed(name);
    if (thread < 0) {
        return -1;
    }
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    long switches = 0;
    for (std::string line; std::getline(status, line);) {
        const std::size_t colon = line.find("ctxt_switches:");
        if (colon != std::string::npos) {
            switches += std::stol(line.substr(line.find(':') + 1));
        }
    }
    return switches;
}

}  // namespace vexil
