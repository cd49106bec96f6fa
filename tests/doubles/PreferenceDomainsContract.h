// What every implementation of PreferenceDomains does. An implementation is tested by a bed:
//
//     struct MyBed {
//         PreferenceDomains& Domains();                      // the one under test, on an empty storage
//         std::unique_ptr<PreferenceDomains> AnotherView();  // another one on the same storage, as another
//                                                            // program has it
//         void BreakWriting();                               // from here on no change can be made permanent
//         void RepairWriting();                              // and now it can again
//         // Puts a value of a type that PropertyValue has no kind for straight into the storage.
//         void StoreUnknown(const std::string& key, const std::string& application, UserScope user);
//     };
//
//     INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PreferenceDomainsContract, MyBed);
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "config/PreferenceDomains.h"

namespace vexil {

inline constexpr const char* kContractApplication = "com.example.Contract";
inline constexpr UserScope kContractUser = UserScope::kCFPreferencesAnyUser;
inline constexpr HostScope kContractHost = HostScope::kCFPreferencesCurrentHost;

template <class Bed>
class PreferenceDomainsContract : public testing::Test {
  protected:
    // Stores one value for good.
    void Store(const std::string& key, const PropertyRef& value) {
        bed.Domains().SetValue(key, value, kContractApplication, kContractUser, kContractHost);
        ASSERT_TRUE(Synchronize(bed.Domains()));
    }
    static bool Synchronize(PreferenceDomains& domains) {
        return domains.Synchronize(kContractApplication, kContractUser, kContractHost);
    }
    static PropertyRef Read(PreferenceDomains& domains, const std::string& key) {
        return domains.CopyValue(key, kContractApplication, kContractUser, kContractHost);
    }
    // The value as another program finds it.
    PropertyRef ReadElsewhere(const std::string& key) { return Read(*bed.AnotherView(), key); }

    void ExpectRoundTrip(const PropertyRef& value, const std::string& what) {
        SCOPED_TRACE(what);
        Store("Value", value);
        EXPECT_TRUE(SameProperty(value, Read(bed.Domains(), "Value")));
        EXPECT_TRUE(SameProperty(value, ReadElsewhere("Value")));
    }

    Bed bed;
};

TYPED_TEST_SUITE_P(PreferenceDomainsContract);

TYPED_TEST_P(PreferenceDomainsContract, AMissingDomainIsEmptyAndSynchronizes) {
    EXPECT_EQ(this->Read(this->bed.Domains(), "Value"), nullptr);
    EXPECT_TRUE(this->Synchronize(this->bed.Domains()));
    EXPECT_EQ(this->Read(this->bed.Domains(), "Value"), nullptr);
}

TYPED_TEST_P(PreferenceDomainsContract, StringsKeepEveryByte) {
    const std::pair<const char*, std::string> texts[] = {
        {"empty", ""},
        {"plain", "Studio"},
        {"UTF-8", "B\xC3\xBChne \xF0\x9F\x8E\xB9"},
        {"markup", "<a href=\"x\">&amp;]]></a>"},
        {"blanks at both ends", "  a  b\t"},
        {"line ends", "\r\n a \r b \n"},
        {"control characters", "\x01\x02\x1F\x7F"},
        {"not UTF-8", "\xFF\xC3(\x80"},
        {"surrogates and an overlong form", "\xED\xA0\x80\xC0\x80"},
        {"not a character", "\xEF\xBF\xBE\xEF\xBF\xBF"},
        {"long", std::string(kMaxPropertyTextBytes, 'x')},
    };
    for (const auto& [what, text] : texts) {
        this->ExpectRoundTrip(MakeProperty(PropertyString{text}), what);
    }
}

TYPED_TEST_P(PreferenceDomainsContract, NumbersKeepValueAndKind) {
    using Limits = std::numeric_limits<std::int64_t>;
    const PropertyNumber numbers[] = {std::int64_t{0},
                                      std::int64_t{1},
                                      std::int64_t{-1},
                                      std::int64_t{0x7FFFFFFF},
                                      std::int64_t{0x80000000},
                                      -std::int64_t{0x80000000},
                                      Limits::max(),
                                      Limits::min(),
                                      1.5,
                                      -0.1,
                                      1.0};
    int index = 0;
    for (const PropertyNumber& number : numbers) {
        this->ExpectRoundTrip(MakeProperty(number), "number " + std::to_string(index++));
    }
}

TYPED_TEST_P(PreferenceDomainsContract, BooleansStayBooleans) {
    this->ExpectRoundTrip(MakePropertyBoolean(true), "true");
    this->ExpectRoundTrip(MakePropertyBoolean(false), "false");
}

TYPED_TEST_P(PreferenceDomainsContract, DataKeepsEveryByteAndItsLength) {
    PropertyData everyByte(256);
    for (std::size_t i = 0; i < everyByte.size(); ++i) {
        everyByte[i] = static_cast<std::uint8_t>(i);
    }
    for (const std::size_t length : {0u, 1u, 2u, 3u, 8u, 256u}) {
        this->ExpectRoundTrip(MakePropertyData(everyByte.data(), length), std::to_string(length) + " bytes");
    }
    const PropertyData block(8192, 0xA5);
    this->ExpectRoundTrip(MakePropertyData(block.data(), block.size()), "a host list");
}

TYPED_TEST_P(PreferenceDomainsContract, DictionariesKeepTheirTree) {
    const std::uint8_t bytes[] = {0, 1, 255};
    const PropertyDictionary inner = {{"Data", MakePropertyData(bytes, sizeof bytes)},
                                      {"Empty", MakePropertyDictionary({})},
                                      {"", MakePropertyString("under the empty key")}};
    const PropertyDictionary outer = {{"Bool", MakePropertyBoolean(true)},
                                      {"Inner", MakePropertyDictionary(inner)},
                                      {"Number", MakePropertyNumber(-7)},
                                      {"<&>", MakePropertyString("a")}};
    this->ExpectRoundTrip(MakePropertyDictionary(outer), "tree");
    this->ExpectRoundTrip(MakePropertyDictionary({}), "empty");
}

TYPED_TEST_P(PreferenceDomainsContract, KeysAreTakenAsTheyAre) {
    const char* const keys[] = {"01 PortFlags", "1 PortFlags", "<key>&\"'", "B\xC3\xBChne",
                                " Cache ",      "cache",       ".."};
    for (const char* key : keys) {
        this->Store(key, MakePropertyString(key));
    }
    for (const char* key : keys) {
        EXPECT_TRUE(SameProperty(MakePropertyString(key), this->ReadElsewhere(key))) << key;
    }
}

TYPED_TEST_P(PreferenceDomainsContract, AChangeIsSeenAtOnceButStoredOnlyBySynchronize) {
    PreferenceDomains& domains = this->bed.Domains();
    this->Store("Value", MakePropertyNumber(1));
    domains.SetValue("Value", MakePropertyNumber(2), kContractApplication, kContractUser, kContractHost);
    EXPECT_TRUE(SameProperty(MakePropertyNumber(2), this->Read(domains, "Value")));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(1), this->ReadElsewhere("Value")));
    EXPECT_TRUE(this->Synchronize(domains));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(2), this->ReadElsewhere("Value")));
}

TYPED_TEST_P(PreferenceDomainsContract, TheLastChangeOfAKeyCounts) {
    PreferenceDomains& domains = this->bed.Domains();
    domains.SetValue("Value", MakePropertyNumber(1), kContractApplication, kContractUser, kContractHost);
    domains.SetValue("Value", nullptr, kContractApplication, kContractUser, kContractHost);
    domains.SetValue("Value", MakePropertyNumber(3), kContractApplication, kContractUser, kContractHost);
    EXPECT_TRUE(this->Synchronize(domains));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(3), this->ReadElsewhere("Value")));
}

TYPED_TEST_P(PreferenceDomainsContract, NoneRemovesTheKeyAndNoOther) {
    this->Store("Value", MakePropertyNumber(1));
    this->Store("Other", MakePropertyNumber(2));
    this->Store("Value", nullptr);
    EXPECT_EQ(this->Read(this->bed.Domains(), "Value"), nullptr);
    EXPECT_EQ(this->ReadElsewhere("Value"), nullptr);
    EXPECT_TRUE(SameProperty(MakePropertyNumber(2), this->ReadElsewhere("Other")));
}

TYPED_TEST_P(PreferenceDomainsContract, RemovingWhatIsNotThereSucceeds) {
    this->Store("Value", nullptr);
    EXPECT_EQ(this->ReadElsewhere("Value"), nullptr);
}

TYPED_TEST_P(PreferenceDomainsContract, StoringTheSameValueAgainSucceedsAndKeepsIt) {
    this->Store("Value", MakePropertyNumber(1));
    this->Store("Value", MakePropertyNumber(1));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(1), this->ReadElsewhere("Value")));
}

TYPED_TEST_P(PreferenceDomainsContract, ApplicationsAreSeparate) {
    PreferenceDomains& domains = this->bed.Domains();
    this->Store("Value", MakePropertyNumber(1));
    EXPECT_TRUE(domains.Synchronize("com.example.Contract.2", kContractUser, kContractHost));
    EXPECT_EQ(domains.CopyValue("Value", "com.example.Contract.2", kContractUser, kContractHost), nullptr);
}

TYPED_TEST_P(PreferenceDomainsContract, UserScopesAreSeparate) {
    PreferenceDomains& domains = this->bed.Domains();
    const UserScope other = UserScope::kCFPreferencesCurrentUser;
    this->Store("Value", MakePropertyNumber(1));
    EXPECT_EQ(domains.CopyValue("Value", kContractApplication, other, kContractHost), nullptr);
    domains.SetValue("Value", MakePropertyNumber(2), kContractApplication, other, kContractHost);
    EXPECT_TRUE(domains.Synchronize(kContractApplication, other, kContractHost));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(1), this->ReadElsewhere("Value")));
    EXPECT_TRUE(SameProperty(
        MakePropertyNumber(2),
        this->bed.AnotherView()->CopyValue("Value", kContractApplication, other, kContractHost)));
}

TYPED_TEST_P(PreferenceDomainsContract, SynchronizingOneApplicationStoresNothingOfAnother) {
    PreferenceDomains& domains = this->bed.Domains();
    domains.SetValue("Value", MakePropertyNumber(1), kContractApplication, kContractUser, kContractHost);
    EXPECT_TRUE(domains.Synchronize("com.example.Contract.2", kContractUser, kContractHost));
    EXPECT_EQ(this->ReadElsewhere("Value"), nullptr);
}

TYPED_TEST_P(PreferenceDomainsContract, SynchronizeTakesUpWhatAnotherProgramStored) {
    PreferenceDomains& domains = this->bed.Domains();
    EXPECT_TRUE(this->Synchronize(domains));
    const std::unique_ptr<PreferenceDomains> other = this->bed.AnotherView();
    other->SetValue("Value", MakePropertyNumber(5), kContractApplication, kContractUser, kContractHost);
    EXPECT_TRUE(this->Synchronize(*other));
    EXPECT_EQ(this->Read(domains, "Value"), nullptr) << "seen before Synchronize";
    EXPECT_TRUE(this->Synchronize(domains));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(5), this->Read(domains, "Value")));
}

TYPED_TEST_P(PreferenceDomainsContract, ChangesOfTwoProgramsToDifferentKeysBothLast) {
    PreferenceDomains& domains = this->bed.Domains();
    const std::unique_ptr<PreferenceDomains> other = this->bed.AnotherView();
    EXPECT_TRUE(this->Synchronize(domains));
    EXPECT_TRUE(this->Synchronize(*other));
    other->SetValue("Theirs", MakePropertyNumber(1), kContractApplication, kContractUser, kContractHost);
    EXPECT_TRUE(this->Synchronize(*other));
    this->Store("Ours", MakePropertyNumber(2));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(1), this->ReadElsewhere("Theirs")));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(2), this->ReadElsewhere("Ours")));
}

TYPED_TEST_P(PreferenceDomainsContract, AFailedSynchronizeKeepsWhatWasStoredAndDropsTheChanges) {
    PreferenceDomains& domains = this->bed.Domains();
    this->Store("Kept", MakePropertyNumber(1));
    this->Store("Removed", MakePropertyNumber(1));
    this->bed.BreakWriting();
    domains.SetValue("Kept", MakePropertyNumber(2), kContractApplication, kContractUser, kContractHost);
    domains.SetValue("Removed", nullptr, kContractApplication, kContractUser, kContractHost);
    domains.SetValue("New", MakePropertyNumber(3), kContractApplication, kContractUser, kContractHost);
    EXPECT_FALSE(this->Synchronize(domains));
    this->bed.RepairWriting();

    EXPECT_TRUE(this->Synchronize(domains));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(1), this->Read(domains, "Kept")));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(1), this->ReadElsewhere("Kept")));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(1), this->ReadElsewhere("Removed")));
    EXPECT_EQ(this->ReadElsewhere("New"), nullptr);
}

TYPED_TEST_P(PreferenceDomainsContract, AfterAFailedSynchronizeTheStoredValueIsReadAgain) {
    PreferenceDomains& domains = this->bed.Domains();
    this->Store("Value", MakePropertyNumber(1));
    this->bed.BreakWriting();
    domains.SetValue("Value", MakePropertyNumber(2), kContractApplication, kContractUser, kContractHost);
    EXPECT_FALSE(this->Synchronize(domains));
    EXPECT_TRUE(SameProperty(MakePropertyNumber(1), this->Read(domains, "Value")));
    this->bed.RepairWriting();
}

TYPED_TEST_P(PreferenceDomainsContract, AnUnknownValueSurvivesTheWritingOfOthers) {
    this->bed.StoreUnknown("Unknown", kContractApplication, kContractUser);
    EXPECT_TRUE(this->Synchronize(this->bed.Domains()));
    const PropertyRef before = this->Read(this->bed.Domains(), "Unknown");
    ASSERT_NE(before, nullptr);
    EXPECT_EQ(before->Type(), PropertyType::Opaque);
    this->Store("Value", MakePropertyNumber(1));
    EXPECT_TRUE(SameProperty(before, this->ReadElsewhere("Unknown")));
}

TYPED_TEST_P(PreferenceDomainsContract, AnUnknownValueCanBeStoredInsideADictionary) {
    this->bed.StoreUnknown("Unknown", kContractApplication, kContractUser);
    EXPECT_TRUE(this->Synchronize(this->bed.Domains()));
    const PropertyRef unknown = this->Read(this->bed.Domains(), "Unknown");
    ASSERT_NE(unknown, nullptr);
    this->ExpectRoundTrip(MakePropertyDictionary({{"Inside", unknown}}), "dictionary");
}

REGISTER_TYPED_TEST_SUITE_P(
    PreferenceDomainsContract, AMissingDomainIsEmptyAndSynchronizes, StringsKeepEveryByte,
    NumbersKeepValueAndKind, BooleansStayBooleans, DataKeepsEveryByteAndItsLength, DictionariesKeepTheirTree,
    KeysAreTakenAsTheyAre, AChangeIsSeenAtOnceButStoredOnlyBySynchronize, TheLastChangeOfAKeyCounts,
    NoneRemovesTheKeyAndNoOther, RemovingWhatIsNotThereSucceeds, StoringTheSameValueAgainSucceedsAndKeepsIt,
    ApplicationsAreSeparate, UserScopesAreSeparate, SynchronizingOneApplicationStoresNothingOfAnother,
    SynchronizeTakesUpWhatAnotherProgramStored, ChangesOfTwoProgramsToDifferentKeysBothLast,
    AFailedSynchronizeKeepsWhatWasStoredAndDropsTheChanges, AfterAFailedSynchronizeTheStoredValueIsReadAgain,
    AnUnknownValueSurvivesTheWritingOfOthers, AnUnknownValueCanBeStoredInsideADictionary);

}  // namespace vexil
