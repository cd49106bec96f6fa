#include "tests/platform_linux/PrivateSystemBus.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace vexil {
namespace {

constexpr const char* kDaemon = "/usr/bin/dbus-daemon";
constexpr const char* kAddressVariable = "DBUS_SYSTEM_BUS_ADDRESS";

int CountReboot(sd_bus_message* message, void* count, sd_bus_error*) {
    if (sd_bus_message_is_method_call(message, "org.freedesktop.login1.Manager", "Reboot") <= 0) {
        return 0;
    }
    ++*static_cast<int*>(count);
    return sd_bus_reply_method_return(message, "");
}

}  // namespace

bool PrivateSystemBus::IsPossible() {
    return access(kDaemon, X_OK) == 0;
}

PrivateSystemBus::PrivateSystemBus() {
    char name[] = "/tmp/vexil3-bus-XXXXXX";
    folder = mkdtemp(name);
    setenv(kAddressVariable, ("unix:path=" + folder + "/bus").c_str(), 1);
    StartDaemon();
    StartLogind();
}

PrivateSystemBus::~PrivateSystemBus() {
    sd_bus_close_unref(logind);
    End();
    // The address stays: a bus that is gone rather than the computer's.
    std::filesystem::remove_all(folder);
}

void PrivateSystemBus::End() {
    if (daemon != -1) {
        kill(daemon, SIGKILL);
        waitpid(daemon, nullptr, 0);
        daemon = -1;
    }
}

void PrivateSystemBus::StartDaemon() {
    const std::string configuration = folder + "/configuration";
    std::ofstream(configuration)
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
           "1.0//EN\" \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">"
           "<busconfig><type>system</type><listen>unix:path="
        << folder
        << "/bus</listen><auth>EXTERNAL</auth><policy context=\"default\">"
           "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/>"
           "</policy></busconfig>";
    const std::string option = "--config-file=" + configuration;
    daemon = fork();
    if (daemon == 0) {
        execl(kDaemon, kDaemon, "--nofork", "--nopidfile", "--nosyslog", option.c_str(), nullptr);
        _exit(127);
    }
}

void PrivateSystemBus::StartLogind() {
    // The daemon may not be listening yet.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (sd_bus_open_system(&logind) < 0) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "the bus did not start";
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_GE(sd_bus_add_object(logind, nullptr, "/org/freedesktop/login1", CountReboot, &reboots), 0);
    ASSERT_GE(sd_bus_request_name(logind, "org.freedesktop.login1", 0), 0);
}

int PrivateSystemBus::Reboots() {
    // The daemon serves its connections in turn, so by its third answer it has passed on what it had been
    // sent before the first question.
    for (int question = 0; question < 3; ++question) {
        EXPECT_GE(sd_bus_call_method(logind, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "GetId", nullptr, nullptr, ""),
                  0);
    }
    while (sd_bus_process(logind, nullptr) > 0) {
    }
    return reboots;
}

}  // namespace vexil
