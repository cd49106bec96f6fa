// A test output over a recorded driver, on a port that the test chooses.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "driver/TestOutput.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryKernelControl.h"

namespace vexil {

class TestOutputFixture : public ::testing::Test {
  protected:
    using Bytes = std::vector<std::uint8_t>;

    struct Panel : TestOutput::Mediator {
        const DriverConfiguration& EditedConfiguration() const override { return configuration; }
        int TestChannel() const override { return channel; }
        std::uint64_t HostTime() const override { return time; }

        DriverConfiguration configuration;
        int channel = 1;
        std::uint64_t time = 0x1122334455667788;
    };

    TestOutputFixture() {
        connection.Open();
        control.calls.clear();
    }

    // Opens the test output of a port and forgets the calls that it took.
    void OpenOn(int port) {
        connection.currentPort = port;
        output.Open();
        EXPECT_TRUE(connection.IsTestOutputOpen(port));
        control.calls.clear();
    }

    MemoryKernelControl control;
    DriverConnection connection{control};
    Panel panel;
    TestOutput output{connection, panel};
    LogCapture log;
};

}  // namespace vexil
