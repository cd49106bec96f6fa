#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/doubles/FaultyPreferenceDomains.h"
#include "tests/doubles/MemoryPreferenceDomains.h"
#include "tests/doubles/PreferenceDomainsContract.h"

namespace vexil {
namespace {

class UnknownThing : public PropertyOpaque {
  public:
    bool Equals(const PropertyOpaque& other) const override { return this == &other; }
};

struct MemoryBed {
    PreferenceDomains& Domains() { return domains; }
    std::unique_ptr<PreferenceDomains> AnotherView() {
        return std::make_unique<MemoryPreferenceDomains>(storage);
    }
    void BreakWriting() { storage->writable = false; }
    void RepairWriting() { storage->writable = true; }
    void StoreUnknown(const std::string& key, const std::string& application, UserScope user) {
        storage->domains[{application, user, HostScope::kCFPreferencesCurrentHost}][key] =
            MakeProperty(PropertyOpaqueRef(std::make_shared<UnknownThing>()));
    }

    std::shared_ptr<MemoryPreferenceStorage> storage = std::make_shared<MemoryPreferenceStorage>();
    MemoryPreferenceDomains domains{storage};
};

struct FaultyBed : MemoryBed {
    PreferenceDomains& Domains() { return faulty; }
    void BreakWriting() { faulty.FailAll(true); }
    void RepairWriting() { faulty.FailAll(false); }

    FaultyPreferenceDomains faulty{domains};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Memory, PreferenceDomainsContract, MemoryBed);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, PreferenceDomainsContract, FaultyBed);

TEST(FaultyPreferenceDomains, FailsOnceAfterTheNumberOfSuccessesAskedFor) {
    MemoryPreferenceDomains memory;
    FaultyPreferenceDomains faulty(memory);
    faulty.FailOnceAfter(1);
    const auto synchronize = [&] { return faulty.Synchronize("a", kContractUser, kContractHost); };
    EXPECT_TRUE(synchronize());
    EXPECT_FALSE(synchronize());
    EXPECT_TRUE(synchronize());
}

TEST(FaultyPreferenceDomains, FailsForOneApplicationOnly) {
    MemoryPreferenceDomains memory;
    FaultyPreferenceDomains faulty(memory);
    faulty.FailApplication("a");
    EXPECT_FALSE(faulty.Synchronize("a", kContractUser, kContractHost));
    EXPECT_TRUE(faulty.Synchronize("b", kContractUser, kContractHost));
}

}  // namespace
}  // namespace vexil
