#include "platform/linux/preferences/InotifyPreferenceWatch.h"
#include "tests/doubles/FaultyPreferenceWatch.h"
#include "tests/doubles/MemoryPreferenceWatch.h"
#include "tests/doubles/PreferenceWatchContract.h"
#include "tests/platform_linux/PreferenceFolder.h"

namespace vexil {
namespace {

struct InotifySubject {
    PreferenceWatch& Seam() { return watch; }
    void Change() { EXPECT_TRUE(other.Store("A", MakePropertyNumber(++number))); }

    PreferenceFolder folder;
    TestDomain other{folder};
    InotifyPreferenceWatch watch{folder.paths, kTestDomain, kTestUser};
    int number = 0;
};

struct MemorySubject {
    PreferenceWatch& Seam() { return watch; }
    void Change() const { watch.Happen(); }

    MemoryPreferenceWatch watch;
};

struct FaultySubject {
    PreferenceWatch& Seam() { return watch; }
    void Change() const { wrapped.Happen(); }

    MemoryPreferenceWatch wrapped;
    FaultyPreferenceWatch watch{wrapped};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Inotify, PreferenceWatchContract, InotifySubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, PreferenceWatchContract, MemorySubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, PreferenceWatchContract, FaultySubject);

TEST(FaultyPreferenceWatch, TellsNothingWhileItFails) {
    FaultySubject subject;
    subject.watch.Fail(true);
    subject.Change();
    EXPECT_EQ(subject.watch.EventDescriptor(), -1);
    EXPECT_FALSE(subject.watch.Take());
    subject.watch.Fail(false);
    EXPECT_TRUE(subject.watch.Take());
}

}  // namespace
}  // namespace vexil
