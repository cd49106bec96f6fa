#include "driver/HostInfos.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "tests/driver/HostRecords.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Names = std::vector<std::string>;

struct Parsed {
    Names names;
    std::size_t cachedLength;
};

// Parses bytes that end where their memory ends, so that a sanitizer sees a read beyond them.
Parsed Parse(const Bytes& bytes) {
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    const HostInfos infos = ParseHostInfos(exact.get(), bytes.size());
    return {Names(infos.names.begin(), infos.names.end()), infos.cachedLength};
}

// A buffer of 8192 bytes that starts with these and is zero behind them.
Bytes Buffer(Bytes bytes) {
    bytes.resize(8192, 0);
    return bytes;
}

void ExpectParsed(const Names& names, std::size_t cachedLength, const Bytes& bytes) {
    const Parsed parsed = Parse(bytes);
    EXPECT_EQ(names, parsed.names);
    EXPECT_EQ(cachedLength, parsed.cachedLength);
}

TEST(HostInfos, ZeroAtTheStartIsAnEmptyListWithoutCache) {
    ExpectParsed({}, 0, Buffer({}));
}

TEST(HostInfos, AnotherByteAtTheStartIsAnEmptyListWithoutCache) {
    ExpectParsed({}, 0, Buffer(Bytes{'n', 'x'}));
}

TEST(HostInfos, ANameWhoseEndLiesBehindTheBytesIsNotListed) {
    const std::uint8_t bytes[] = {'N', 'a', 'b', 0};
    EXPECT_TRUE(ParseHostInfos(bytes, 3).names.empty());
    EXPECT_EQ(ParseHostInfos(bytes, 4).names.size(), 1U);
}

TEST(HostInfos, OneRecordIsCachedWithTheByteThatEndsIt) {
    ExpectParsed({"ab"}, 22, Buffer(HostRecord("ab")));
}

TEST(HostInfos, TwoRecordsKeepTheirOrder) {
    ExpectParsed({"zeta", "alpha"}, 23 + 24 + 1, Buffer(HostRecord("zeta") + HostRecord("alpha")));
}

TEST(HostInfos, AnyByteButNEndsTheRecords) {
    ExpectParsed({"ab"}, 22, Buffer(HostRecord("ab") + Bytes{'X'} + HostRecord("cd")));
}

TEST(HostInfos, EmptyNameIsAName) {
    ExpectParsed({"", "b"}, 19 + 20 + 1, Buffer(HostRecord("") + HostRecord("b")));
}

TEST(HostInfos, NameMayHoldTagsAndBytesAboveAscii) {
    ExpectParsed({"NALE\xC3\xA9"}, 6 + 19 + 1, Buffer(HostRecord("NALE\xC3\xA9")));
}

TEST(HostInfos, FieldsMayHoldTagsAndZeros) {
    Bytes record = HostRecord("ab");
    for (const std::size_t offset : {5U, 8U, 12U, 15U, 19U}) {
        record[offset] = offset % 2 == 0 ? 0 : 'N';
    }
    ExpectParsed({"ab", "c"}, 21 + 20 + 1, Buffer(record + HostRecord("c")));
}

TEST(HostInfos, WrongTagInTheFirstRecordGivesItsNameAndNoCache) {
    for (const std::size_t tag : {4U, 11U, 18U}) {
        Bytes record = HostRecord("ab");
        record[tag] = 'x';
        ExpectParsed({"ab"}, 0, Buffer(record + HostRecord("cd")));
    }
}

TEST(HostInfos, WrongTagInTheSecondRecordGivesBothNamesAndCachesTheFirstWithTheNextN) {
    for (const std::size_t tag : {4U, 11U, 18U}) {
        Bytes second = HostRecord("cd");
        second[tag] = 'x';
        ExpectParsed({"ab", "cd"}, 22, Buffer(HostRecord("ab") + second + HostRecord("ef")));
    }
}

TEST(HostInfos, NameWithoutAnEndIsNoName) {
    ExpectParsed({}, 0, Bytes(8192, 'N'));
    ExpectParsed({"ab"}, 22, [] {
        Bytes bytes = Buffer(HostRecord("ab") + Bytes{'N'});
        std::fill(bytes.begin() + 22, bytes.end(), std::uint8_t{'x'});
        return bytes;
    }());
}

TEST(HostInfos, NInTheLastByteIsNoName) {
    Bytes bytes = HostRecord(std::string(8191 - 19, 'h'));
    bytes.push_back('N');
    ASSERT_EQ(8192U, bytes.size());
    ExpectParsed({std::string(8191 - 19, 'h')}, 8192, bytes);
}

TEST(HostInfos, RecordThatFillsTheBufferIsCachedWithoutAByteBehindIt) {
    ExpectParsed({std::string(8192 - 19, 'h')}, 8192, HostRecord(std::string(8192 - 19, 'h')));
}

TEST(HostInfos, RecordOneByteShorterThanTheBufferIsCachedWithIt) {
    ExpectParsed({std::string(8191 - 19, 'h')}, 8192, Buffer(HostRecord(std::string(8191 - 19, 'h'))));
}

TEST(HostInfos, TagBeyondTheEndIsMissing) {
    const Bytes record = HostRecord("ab");
    for (std::size_t size = 4; size <= 18; ++size) {
        ExpectParsed({"ab"}, 0, Bytes(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size)));
    }
}

TEST(HostInfos, LastFieldCutOffByTheEndCachesAllThereIs) {
    const Bytes record = HostRecord("ab");
    ExpectParsed({"ab"}, 19, Bytes(record.begin(), record.begin() + 19));
    ExpectParsed({"ab"}, 20, Bytes(record.begin(), record.begin() + 20));
    ExpectParsed({"ab"}, 21, record);
}

TEST(HostInfos, NoBytesAreAnEmptyList) {
    ExpectParsed({}, 0, {});
}

TEST(HostInfos, FullBufferOfSmallRecordsIsReadToItsEnd) {
    Bytes bytes;
    std::size_t records = 0;
    while (bytes.size() + 19 <= 8192) {
        bytes = bytes + HostRecord("");
        ++records;
    }
    const std::size_t end = bytes.size();
    ExpectParsed(Names(records, ""), end + 1, Buffer(bytes));
}

TEST(HostInfos, RandomBytesOfTheFormatsAlphabetStayWithinBounds) {
    std::mt19937 random(20);
    const std::string alphabet("NALE\0\0x", 7);
    for (int round = 0; round < 3000; ++round) {
        Bytes bytes(random() % 200);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(alphabet[random() % alphabet.size()]);
        }
        const Parsed parsed = Parse(bytes);
        EXPECT_LE(parsed.cachedLength, bytes.size());
        EXPECT_TRUE(parsed.cachedLength == 0 || !parsed.names.empty());
    }
}

}  // namespace
}  // namespace vexil
