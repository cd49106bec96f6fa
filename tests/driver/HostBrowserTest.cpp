#include "driver/HostBrowser.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <string>

#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryKernelControl.h"
#include "tests/driver/FailingAllocation.h"
#include "tests/driver/HostRecords.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Names = std::vector<std::string>;

// Keeps a diary of what browsing does, the driver's options among it.
class HostBrowserTest : public ::testing::Test, public HostBrowser::Mediator {
  protected:
    class DiaryControl : public MemoryKernelControl {
      public:
        explicit DiaryControl(Names& diaryToKeep) : diary(diaryToKeep) {}
        int SetOption(int descriptor, int level, int option, const void* payload,
                      std::uint32_t length) override {
            diary.push_back("set " + std::to_string(option));
            return MemoryKernelControl::SetOption(descriptor, level, option, payload, length);
        }
        int GetOption(int descriptor, int level, int option, void* buffer, std::uint32_t* length) override {
            diary.push_back("get " + std::to_string(option));
            return MemoryKernelControl::GetOption(descriptor, level, option, buffer, length);
        }

      private:
        Names& diary;
    };

    void SleepMicroseconds(unsigned microseconds) override {
        diary.push_back("sleep " + std::to_string(microseconds));
    }
    int HostCount(HostList list) const override { return static_cast<int>(lists.at(list).size()); }
    void RemoveHost(HostList list, int index) override {
        diary.push_back("remove " + lists[list].at(static_cast<std::size_t>(index)));
        lists[list].erase(lists[list].begin() + index);
    }
    void AppendHost(const char* name) override {
        diary.push_back(std::string("append ") + name);
        lists[HostList::Source].push_back(name);
        lists[HostList::Target].push_back(name);
    }
    void StoreCache(const void* bytes, std::uint32_t length) override {
        diary.push_back("store");
        cacheAddress = bytes;
        const auto* first = static_cast<const std::uint8_t*>(bytes);
        cache.assign(first, first + length);
    }

    HostBrowserTest() {
        connection.Open();
        control.calls.clear();
    }

    void ExpectListsAndCacheAsBefore() const {
        EXPECT_EQ((Names{"s1", "s2"}), lists.at(HostList::Source));
        EXPECT_EQ((Names{"t1"}), lists.at(HostList::Target));
        EXPECT_EQ((Bytes{0xCA}), cache);
    }

    Names diary;
    DiaryControl control{diary};
    DriverConnection connection{control};
    HostBrowser browser{connection, *this};
    std::map<HostList, Names> lists{{HostList::Source, {"s1", "s2"}}, {HostList::Target, {"t1"}}};
    const void* cacheAddress = nullptr;
    Bytes cache{0xCA};
    LogCapture log;
};

TEST_F(HostBrowserTest, BrowsesWaitsReadsEmptiesFillsAndStoresInThisOrder) {
    control.hostInfos = HostRecord("a") + HostRecord("b");
    browser.RefreshHosts();
    EXPECT_EQ((Names{"set 197", "sleep 10000", "get 202", "remove s2", "remove s1", "remove t1", "append a",
                     "append b", "store"}),
              diary);
}

TEST_F(HostBrowserTest, RequestsCarryNoPayloadAndA8192ByteBuffer) {
    browser.RefreshHosts();
    ASSERT_EQ(2U, control.calls.size());
    EXPECT_EQ(197, control.calls[0].option);
    EXPECT_TRUE(control.calls[0].nullPayload);
    EXPECT_EQ(0U, control.calls[0].length);
    EXPECT_EQ(202, control.calls[1].option);
    EXPECT_EQ(8192U, control.calls[1].length);
}

TEST_F(HostBrowserTest, TwoGoodRecordsAreCachedWithOneByte) {
    const Bytes records = HostRecord("a") + HostRecord("bc");
    control.hostInfos = records + Bytes{0, 0xEE, 0xEE};
    browser.RefreshHosts();
    EXPECT_EQ(records + Bytes{0}, cache);
    EXPECT_EQ((Names{"a", "bc"}), lists[HostList::Source]);
    EXPECT_EQ((Names{"a", "bc"}), lists[HostList::Target]);
}

TEST_F(HostBrowserTest, AShortAnswerIsEndedByAZeroOfThePanel) {
    control.hostInfos = HostRecord("a");
    browser.RefreshHosts();
    EXPECT_EQ(HostRecord("a") + Bytes{0}, cache);
}

TEST_F(HostBrowserTest, StoringTheCacheIsLoggedWithTheBuffersAddressAndTheSize) {
    control.hostInfos = HostRecord("a") + HostRecord("bc");
    browser.RefreshHosts();
    char expected[100];
    snprintf(expected, sizeof expected, "Updating cache %p size 42 bytes.\n", cacheAddress);
    EXPECT_EQ(expected, log.Text());
}

TEST_F(HostBrowserTest, AnEmptyAnswerEmptiesBothListsAndKeepsTheCache) {
    control.hostInfos = {0};
    browser.RefreshHosts();
    EXPECT_TRUE(lists[HostList::Source].empty());
    EXPECT_TRUE(lists[HostList::Target].empty());
    EXPECT_EQ((Bytes{0xCA}), cache);
    EXPECT_EQ("", log.Text());
}

TEST_F(HostBrowserTest, ABrokenSecondRecordIsListedAndOnlyItsFirstByteCached) {
    Bytes second = HostRecord("b");
    second[10] = 'x';  // tag L
    control.hostInfos = HostRecord("a") + second;
    browser.RefreshHosts();
    EXPECT_EQ((Names{"a", "b"}), lists[HostList::Source]);
    EXPECT_EQ((Names{"a", "b"}), lists[HostList::Target]);
    EXPECT_EQ(HostRecord("a") + Bytes{'N'}, cache);
}

TEST_F(HostBrowserTest, ABrokenFirstRecordIsListedAndTheCacheKept) {
    Bytes first = HostRecord("a");
    first[3] = 'x';  // tag A
    control.hostInfos = first;
    browser.RefreshHosts();
    EXPECT_EQ((Names{"a"}), lists[HostList::Source]);
    EXPECT_EQ((Bytes{0xCA}), cache);
    EXPECT_EQ("", log.Text());
}

TEST_F(HostBrowserTest, ABufferFullToTheLastByteIsCachedWholeAndNoMore) {
    control.hostInfos = HostRecord(std::string(8192 - 19, 'h'));
    browser.RefreshHosts();
    EXPECT_EQ(control.hostInfos, cache);
    char expected[100];
    snprintf(expected, sizeof expected, "Updating cache %p size 8192 bytes.\n", cacheAddress);
    EXPECT_EQ(expected, log.Text());
}

TEST_F(HostBrowserTest, ABufferWithoutAnyEndEmptiesTheLists) {
    control.hostInfos = Bytes(9000, 'N');
    browser.RefreshHosts();
    EXPECT_TRUE(lists[HostList::Source].empty());
    EXPECT_TRUE(lists[HostList::Target].empty());
    EXPECT_EQ((Bytes{0xCA}), cache);
}

TEST_F(HostBrowserTest, NothingIsSentOrChangedWithoutAConnection) {
    connection.Close();
    diary.clear();
    browser.RefreshHosts();
    EXPECT_TRUE(diary.empty());
    EXPECT_EQ("", log.Text());
    ExpectListsAndCacheAsBefore();
}

TEST_F(HostBrowserTest, ARefusedBrowseIsLoggedAndEndsTheRefresh) {
    control.optionErrors[197] = EIO;
    browser.RefreshHosts();
    EXPECT_EQ((Names{"set 197"}), diary);
    EXPECT_EQ("PostBrowse() failed; error 5.\n", log.Text());
    ExpectListsAndCacheAsBefore();
}

TEST_F(HostBrowserTest, MissingMemoryIsLoggedAfterTheWaitAndEndsTheRefresh) {
    {
        const FailingAllocation failing;
        browser.RefreshHosts();
    }
    EXPECT_EQ((Names{"set 197", "sleep 10000"}), diary);
    EXPECT_EQ("Out of memory while updating host infos.\n", log.Text());
    ExpectListsAndCacheAsBefore();
}

TEST_F(HostBrowserTest, ARefusedReadIsLoggedAndEndsTheRefresh) {
    control.optionErrors[202] = ETIMEDOUT;
    browser.RefreshHosts();
    EXPECT_EQ((Names{"set 197", "sleep 10000", "get 202"}), diary);
    EXPECT_EQ("Cannot enumerate host infos; error 110.\n", log.Text());
    ExpectListsAndCacheAsBefore();
}

}  // namespace
}  // namespace vexil
