// The JACK back end on a server of the test's own, as the contract of back ends wants it.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <memory>
#include <thread>

#include "service/backends/jack/JackBackend.h"
#include "tests/service/backends/jack/JackProgram.h"
#include "tests/service/backends/jack/JackTestServer.h"

namespace vexil {

struct JackSubject {
    void SetUp() {
        if (const std::string reason = JackTestServer::WhyNot(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        ASSERT_TRUE(server.Start());
    }
    MidiBackend& Backend() { return backend; }
    // Serves the back end as the service's loop does.
    void Step() {
        // A cycle of PipeWire is longer.
        pollfd event{backend.EventDescriptor(), POLLIN, 0};
        const bool hasEvent = ::poll(&event, 1, IsPipeWire() ? 5 : 1) == 1;
        if (hasEvent || backend.EventTimeout() == 0) {
            backend.HandleEvents();
        }
    }
    // PipeWire leaves a program out of some cycles when one that it hears goes, and its readers hear what it
    // wrote last over and over: that should be nothing.
    void BeforeAProgramGoes() {
        if (IsPipeWire()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    bool IsTakenUp() const { return backend.IsTakenUp(); }
    std::unique_ptr<MidiProgram> NewProgram() { return std::make_unique<JackProgram>(); }
    void LoseSystem() { server.Kill(); }
    void ReturnSystem() { ASSERT_TRUE(server.Start()); }

    // Before the back end, which looks for the server by its name.
    JackTestServer& server = JackTestServer::Instance();
    JackBackend backend;
};

}  // namespace vexil
