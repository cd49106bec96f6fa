// What contract suites share whose subject the machine may not allow. A Subject:
//   static std::string Obstacle();   why the machine does not allow it, and the tests are skipped; else empty
//   Seam();                          what is tested, where there is one of it
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace vexil {

template <class Subject>
class ContractFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::string obstacle = Subject::Obstacle();
        if (!obstacle.empty()) {
            GTEST_SKIP() << obstacle;
        }
        subject.emplace();
    }
    auto& Seam() { return subject->Seam(); }

    std::optional<Subject> subject;
};

}  // namespace vexil
