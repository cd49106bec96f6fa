// What is noted of the driver's control, which is otherwise passed on as it is.
#include "platform/linux/control/NotedKernelControl.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/doubles/FaultyKernelControl.h"
#include "tests/doubles/KernelControlContract.h"
#include "tests/doubles/MemoryKernelControl.h"
#include "tests/doubles/MemoryKernelSubject.h"

namespace vexil {
namespace {

class NotedSubject : public MemoryKernelSubject {
  public:
    KernelControl& Control() { return noted; }

  private:
    NotedKernelControl noted{memory, [](int) {}};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Noted, KernelControlContract, NotedSubject);

TEST(NotedKernelControl, NotesWhatBecameOfEachReadingOfTheConfiguration) {
    MemoryKernelControl memory;
    FaultyKernelControl faulty(memory);
    std::vector<int> notes;
    NotedKernelControl noted(faulty, [&notes](int error) {
        notes.push_back(error);
        errno = 0;
    });
    faulty.Fail(KernelOperation::SetOption, ETIMEDOUT);
    EXPECT_EQ(-1, noted.SetOption(5, kSysProtoControl, kOptionReloadConfiguration, nullptr, 0));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_EQ(-1, noted.SetOption(5, kSysProtoControl, kOptionBrowseHosts, nullptr, 0));
    EXPECT_EQ(notes, std::vector<int>{ETIMEDOUT}) << "of other options nothing is noted";
}

}  // namespace
}  // namespace vexil
