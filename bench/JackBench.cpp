#include "bench/JackBench.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "service/backends/jack/JackBackend.h"
#include "tests/service/backends/jack/JackTestServer.h"

namespace vexil::bench {

namespace {

[[noreturn]] void Fail(const char* why) {
    std::fprintf(stderr, "%s\n", why);
    std::exit(1);
}

void Serve() {
    Engine engine;
    JackBackend backend;
    backend.Start(engine);
    std::vector<Endpoint> endpoints;
    WayTable ways;
    for (int port = 0; port < kMaxPorts; ++port) {
        endpoints.push_back({port, true, std::to_string(port), false});
        endpoints.push_back({port, false, std::to_string(port), false});
        ways[static_cast<std::size_t>(port)].to = Destination::Input(port);
    }
    backend.Publish(endpoints);
    const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!backend.IsRunning() || !backend.IsTakenUp()) {
        if (std::chrono::steady_clock::now() > latest) {
            Fail(backend.Problem().c_str());
        }
        pollfd event{backend.EventDescriptor(), POLLIN, 0};
        ::poll(&event, 1, 10);
        backend.HandleEvents();
    }
    engine.PostWays(ways);
    std::printf("ready\n");
    std::fflush(stdout);
    char ignored = 0;
    static_cast<void>(!::read(STDIN_FILENO, &ignored, 1));
    backend.Stop();
}

}  // namespace

std::string OutputAddress(int port) {
    return "Vexil III:" + std::to_string(port) + " out";
}

std::string InputAddress(int port) {
    return "Vexil III:" + std::to_string(port) + " in";
}

void ServiceProcess::ServeIfAsked(int count, char** arguments) {
    if (count == 2 && std::strcmp(arguments[1], "--service") == 0) {
        Serve();
        std::exit(0);
    }
}

ServiceProcess::ServiceProcess() {
    int toService[2];
    int fromService[2];
    if (::pipe(toService) != 0 || ::pipe(fromService) != 0) {
        Fail("no pipe can be made");
    }
    process = ::fork();
    if (process == 0) {
        ::dup2(toService[0], STDIN_FILENO);
        ::dup2(fromService[1], STDOUT_FILENO);
        for (const int descriptor : {toService[0], toService[1], fromService[0], fromService[1]}) {
            ::close(descriptor);
        }
        ::execl("/proc/self/exe", "service", "--service", nullptr);
        ::_exit(127);
    }
    ::close(toService[0]);
    ::close(fromService[1]);
    input = toService[1];
    char ready = 0;
    if (::read(fromService[0], &ready, 1) != 1) {
        Fail("the service does not start");
    }
    ::close(fromService[0]);
}

ServiceProcess::~ServiceProcess() {
    ::close(input);
    ::waitpid(process, nullptr, 0);
}

double ServiceProcess::ProcessorSeconds() const {
    clockid_t clock{};
    timespec used{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &used) != 0) {
        Fail("the service has gone");
    }
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

Client::Client(const std::string& name, JackProcessCallback process, void* argument)
    : client(jack_client_open(name.c_str(), JackNoStartServer, nullptr)) {
    if (client == nullptr) {
        Fail("no JACK client can be opened");
    }
    jack_set_process_callback(client, process, argument);
}

Client::~Client() {
    jack_client_close(client);
}

jack_port_t* Client::AddPort(const std::string& name, bool isOutput) {
    jack_port_t* port = jack_port_register(client, name.c_str(), JACK_DEFAULT_MIDI_TYPE,
                                           isOutput ? JackPortIsOutput : JackPortIsInput, 0);
    if (port == nullptr) {
        Fail("JACK has no room for a port");
    }
    return port;
}

void Client::Activate() {
    if (jack_activate(client) != 0) {
        Fail("a JACK client cannot be activated");
    }
}

void Client::Connect(jack_client_t* client, const std::string& from, const std::string& to) {
    if (jack_connect(client, from.c_str(), to.c_str()) != 0) {
        Fail(("cannot connect " + from + " to " + to).c_str());
    }
}

void StartServer(bool isSynchronous) {
    if (const std::string reason = JackTestServer::WhyNot(); !reason.empty()) {
        Fail(reason.c_str());
    }
    JackTestServer& server = JackTestServer::Instance();
    server.End();
    server.SetSynchronous(isSynchronous);
    if (!server.Start()) {
        Fail("the JACK server does not start");
    }
    std::printf("JACK server: %s\n", isSynchronous
                                         ? "synchronous (jackd -S): each cycle waits for every program"
                                         : "asynchronous, as most run: no cycle waits for a program");
    std::fflush(stdout);
}

}  // namespace vexil::bench
