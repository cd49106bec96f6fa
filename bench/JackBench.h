// For the benchmarks of the JACK back end: a server of their own, the back end as a process of its own with
// 64 ports, each output heard at its own input, and a program with as many ports.
#pragma once

#include <jack/jack.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace vexil::bench {

inline constexpr int kPeriod = 64;  // frames, at 48 kHz
inline constexpr double kPeriodMicroseconds = 1e6 * kPeriod / 48000;

// The addresses of the ports of index `port`.
std::string OutputAddress(int port);
std::string InputAddress(int port);

// The back end in a process. A benchmark's main hands over to ServeIfAsked before anything else.
class ServiceProcess {
  public:
    // Exits when this process was started as the service.
    static void ServeIfAsked(int count, char** arguments);

    // Returns when the ports are there; the benchmark ends when they do not come.
    ServiceProcess();
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    // Seconds of processor time it has used.
    double ProcessorSeconds() const;

  private:
    pid_t process = -1;
    int input = -1;  // its end tells the process to end
};

// A client, open until the end of its scope; the benchmark ends when JACK gives no client.
class Client {
  public:
    Client(const std::string& name, JackProcessCallback process, void* argument);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    jack_port_t* AddPort(const std::string& name, bool isOutput);
    void Activate();
    static void Connect(jack_client_t* client, const std::string& from, const std::string& to);

    jack_client_t* client;
};

// The server of this process, started anew; prints one line that says how it runs. A synchronous one waits in
// each cycle for every program, so that nothing is lost on a busy computer; an asynchronous one waits for
// nobody.
void StartServer(bool isSynchronous);

}  // namespace vexil::bench
