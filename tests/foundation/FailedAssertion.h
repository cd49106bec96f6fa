// Expecting the death of a statement by one assertion, with the exact bytes it leaves on standard error.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>

namespace vexil {

// Standard error holds exactly one assertion line, of any line number.
MATCHER_P2(IsAssertion, file, condition, "") {
    const std::string head = std::string(file) + ":";
    const std::string tail = std::string(": failed assertion `") + condition + "'\n";
    const std::string text = arg;
    if (!text.starts_with(head) || !text.ends_with(tail) || text.size() <= head.size() + tail.size()) {
        return false;
    }
    const std::string line = text.substr(head.size(), text.size() - head.size() - tail.size());
    return std::all_of(line.begin(), line.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
}

#define EXPECT_STRING_ASSERTION(statement, condition) \
    EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), IsAssertion("shared/System/svString", condition))

}  // namespace vexil
