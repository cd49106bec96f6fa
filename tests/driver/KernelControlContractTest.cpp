// The two test doubles of the kernel control against the contract of the seam, and the faults of the second.
#include <gtest/gtest.h>

#include "tests/doubles/FaultyKernelControl.h"
#include "tests/doubles/KernelControlContract.h"
#include "tests/doubles/MemoryKernelControl.h"
#include "tests/doubles/MemoryKernelSubject.h"

namespace vexil {
namespace {

class FaultySubject : public MemoryKernelSubject {
  public:
    KernelControl& Control() { return faulty; }

  private:
    FaultyKernelControl faulty{memory};
};

using Subjects = ::testing::Types<MemoryKernelSubject, FaultySubject>;
INSTANTIATE_TYPED_TEST_SUITE_P(Doubles, KernelControlContract, Subjects);

TEST(FaultyKernelControl, FailsTheCallsThatItWasToldTo) {
    MemoryKernelControl memory;
    FaultyKernelControl faulty(memory);
    faulty.Fail(KernelOperation::Socket, EMFILE, 1, 2);
    EXPECT_NE(-1, faulty.Socket(kPfSystem, kSockDgram, kSysProtoControl));
    EXPECT_EQ(-1, faulty.Socket(kPfSystem, kSockDgram, kSysProtoControl));
    EXPECT_EQ(EMFILE, errno);
    EXPECT_EQ(-1, faulty.Socket(kPfSystem, kSockDgram, kSysProtoControl));
    EXPECT_NE(-1, faulty.Socket(kPfSystem, kSockDgram, kSysProtoControl));
    EXPECT_EQ(2U, memory.calls.size());
}

TEST(FaultyKernelControl, FailsUntilRestored) {
    MemoryKernelControl memory;
    FaultyKernelControl faulty(memory);
    faulty.Fail(KernelOperation::Close, EIO);
    EXPECT_EQ(-1, faulty.Close(11));
    EXPECT_EQ(-1, faulty.Close(11));
    EXPECT_EQ(EIO, errno);
    faulty.Restore(KernelOperation::Close);
    EXPECT_EQ(-1, faulty.Close(11));
    EXPECT_EQ(EBADF, errno);
}

}  // namespace
}  // namespace vexil
