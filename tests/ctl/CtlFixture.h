// vexil3ctl with a service that a test plays.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ctl/Ctl.h"
#include "tests/client/SampleStatus.h"
#include "tests/ctl/CtlFolder.h"
#include "tests/ctl/ScriptedConsole.h"
#include "tests/platform_linux/ControlSocketService.h"

namespace vexil {

class CtlFixture : public testing::Test {
  protected:
    using Seen = ControlSocketService::Seen;

    CtlResult Run(const std::vector<std::string>& arguments) {
        return RunCtl(arguments, folder.paths, log, console);
    }

    // A service with this status that takes a reload.
    void Serve(const std::string& status) {
        service.SetHook([status](const Seen& request) {
            if (request.kind == kControlStatus) {
                Answer(request, status);
            } else {
                ControlSocketService::Reply(request, request.kind == kControlReload ? 0 : EPERM);
            }
            return true;
        });
        if (!isServing) {
            service.Start();
        }
        isServing = true;
    }
    void Serve() { Serve(SampleStatus().dump()); }
    void EndService() {
        service.Stop();
        isServing = false;
    }

    static void Answer(const Seen& request, const std::string& text) {
        ControlSocketService::Reply(request, 0, {text.begin(), text.end()});
    }

    void ExpectUsageError(const std::vector<std::string>& arguments, const std::string& problem,
                          const std::string& help = "vexil3ctl --help") {
        const CtlResult result = Run(arguments);
        EXPECT_EQ(result.status, kCtlUsage);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "vexil3ctl: " + problem + "\nvexil3ctl: Try '" + help + "'.\n");
    }

    CollectedLog log;
    const CtlFolder folder;
    ScriptedConsole console;
    ControlSocketService service{folder.SocketPath()};
    bool isServing = false;
};

}  // namespace vexil
