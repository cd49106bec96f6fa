#include "tests/service/backends/jack/JackTestServer.h"

#include <fcntl.h>
#include <jack/jack.h>
#include <jack/midiport.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <stop_token>
#include <thread>

#include "tests/service/backends/jack/OwnSharedMemory.h"

namespace vexil {

namespace {

constexpr std::chrono::seconds kLongestStart{20};
constexpr std::chrono::seconds kLongestEnd{10};

bool IsInstalled(const std::string& program) {
    std::istringstream path(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "");
    for (std::string folder; std::getline(path, folder, ':');) {
        if (::access((folder + "/" + program).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

// A name that no running test has; the file that keeps it taken stays open as long as this process lives. A
// computer has room for eight server names in all, and a server that was killed gives its name back only to
// one that takes the same.
std::string TakeServerName() {
    for (int number = 0; number < 100; ++number) {
        const std::string name = std::to_string(::getuid()) + "-" + std::to_string(number);
        const int lock = ::open(("/dev/shm/vexil-" + name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (lock >= 0 && ::flock(lock, LOCK_EX | LOCK_NB) == 0) {
            return "vexil-" + name;
        }
        ::close(lock);
    }
    return "vexil-too-many-tests";
}

const std::string& ServerName() {
    static const std::string name = TakeServerName();
    return name;
}

struct Probe {
    static int Process(jack_nframes_t frames, void* probe) {
        auto* self = static_cast<Probe*>(probe);
        void* written = jack_port_get_buffer(self->out, frames);
        jack_midi_clear_buffer(written);
        *jack_midi_event_reserve(written, 0, 1) = 0xFE;
        if (jack_midi_get_event_count(jack_port_get_buffer(self->in, frames)) != 0) {
            self->heard = true;
        }
        return 0;
    }
    jack_port_t* out = nullptr;
    jack_port_t* in = nullptr;
    std::atomic<bool> heard{false};
};

// PipeWire lets clients in some time before it carries anything.
bool CarriesMidi() {
    jack_status_t status{};
    jack_client_t* client = jack_client_open("probe", JackNoStartServer, &status);
    if (client == nullptr) {
        return false;
    }
    Probe probe;
    probe.out = jack_port_register(client, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    probe.in = jack_port_register(client, "in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
    jack_set_process_callback(client, Probe::Process, &probe);
    jack_activate(client);
    jack_connect(client, jack_port_name(probe.out), jack_port_name(probe.in));
    for (int i = 0; i < 300 && !probe.heard; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    jack_client_close(client);
    return probe.heard;
}

// A server that was killed leaves these behind, and what all servers share as well.
void RemoveOwnFiles() {
    for (const auto& file : std::filesystem::directory_iterator("/dev/shm")) {
        const std::string name = file.path().filename();
        if (name.starts_with("jack") &&
            (HasOwnSharedMemory() || name.find("_" + ServerName() + "_") != std::string::npos)) {
            std::error_code ignored;  // gone already is fine
            std::filesystem::remove_all(file.path(), ignored);
        }
    }
}

bool EndsWithin(pid_t process, std::chrono::seconds longest) {
    const auto end = std::chrono::steady_clock::now() + longest;
    while (::waitpid(process, nullptr, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Kills processes after a while, so that a call that waits for them comes back, unless it is gone by then.
class Guard {
  public:
    Guard(std::vector<pid_t> guarded, std::chrono::seconds longest)
        : thread([guarded = std::move(guarded), longest](const std::stop_token& stop) {
              std::mutex mutex;
              std::unique_lock lock(mutex);
              std::condition_variable_any never;
              never.wait_for(lock, stop, longest, [] { return false; });
              for (const pid_t process : guarded) {
                  if (!stop.stop_requested()) {
                      ::kill(process, SIGKILL);
                  }
              }
          }) {}

  private:
    std::jthread thread;
};

}  // namespace

bool IsPipeWire() {
    return std::getenv("VEXIL_TEST_PIPEWIRE") != nullptr;
}

JackTestServer& JackTestServer::Instance() {
    static JackTestServer server;
    return server;
}

JackTestServer::JackTestServer() {
    ::setenv("JACK_DEFAULT_SERVER", ServerName().c_str(), 1);
    ::setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
    const auto quiet = [](const char*) {};
    jack_set_error_function(quiet);
    jack_set_info_function(quiet);
}

JackTestServer::~JackTestServer() {
    End();
    if (!IsPipeWire()) {
        RemoveOwnFiles();
    }
}

std::string JackTestServer::WhyNot() {
    const std::vector<std::string> needed = IsPipeWire() ? std::vector<std::string>{"pipewire", "wireplumber"}
                                                         : std::vector<std::string>{"jackd"};
    for (const std::string& program : needed) {
        if (!IsInstalled(program)) {
            return program + " is not installed";
        }
    }
    return "";
}

bool JackTestServer::Start() {
    // One that was killed may have left a lock behind for which the next one waits without end.
    constexpr int kAttempts = 2;
    for (int attempt = 0; processes.empty() && attempt < kAttempts; ++attempt) {
        SpawnServer();
        const Guard guard(processes, kLongestStart);
        while (!processes.empty() && !CarriesMidi()) {
            if (::waitpid(processes[0], nullptr, WNOHANG) != 0) {
                processes.erase(processes.begin());  // it has ended, or was killed since it did not answer
                Kill();
                std::fputs("The server did not start.\n", stderr);
                RemoveOwnFiles();
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
    }
    if (IsPipeWire() && !processes.empty()) {
        if (pair == nullptr) {
            pair = std::make_unique<DirectPair>();
        }
        pair->Watch(true);
    }
    return !processes.empty();
}

void JackTestServer::SpawnServer() {
    if (IsPipeWire()) {
        Spawn({"pipewire"});
        Spawn({"wireplumber"});
    } else {
        std::vector<std::string> command = {"jackd", "-n", ServerName(), "-R", "-p", "1024"};
        if (synchronous) {
            command.insert(command.end(), {"-S", "-t", "1500"});
        }
        command.insert(command.end(), {"-d", "dummy", "-C", "0", "-P", "0", "-r", "48000", "-p", "64"});
        Spawn(command);
    }
}

void JackTestServer::Kill() {
    Signal(SIGKILL);
}

void JackTestServer::End() {
    Signal(SIGTERM);
}

void JackTestServer::Pause() {
    // What is lost from here on is the test's own doing.
    if (pair != nullptr) {
        pair->Watch(false);
    }
    Send(SIGSTOP);
}

void JackTestServer::Send(int number) {
    for (const pid_t process : processes) {
        ::kill(process, number);
    }
}

void JackTestServer::Signal(int number) {
    Send(number);
    Send(SIGCONT);
    bool hasHung = false;
    for (const pid_t process : processes) {
        if (!EndsWithin(process, kLongestEnd)) {
            hasHung = true;
            ::kill(process, SIGKILL);
            ::waitpid(process, nullptr, 0);
        }
    }
    processes.clear();
    pair.reset();
    if (hasHung) {
        std::fputs("The server hung and was killed.\n", stderr);
        RemoveOwnFiles();
    }
}

void JackTestServer::Spawn(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t process = ::fork();
    if (process == 0) {
        // It does not outlive a test that crashes, and one that hangs ends by nothing else.
        ::prctl(PR_SET_PDEATHSIG, HasOwnSharedMemory() ? SIGKILL : SIGTERM);
        const int nothing = ::open("/dev/null", O_RDWR);
        ::dup2(nothing, STDOUT_FILENO);
        ::dup2(nothing, STDERR_FILENO);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    processes.push_back(process);
}

}  // namespace vexil
