#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/preferences/SummedPreferenceDomains.h"
#include "tests/doubles/PreferenceDomainsContract.h"
#include "tests/platform_linux/PreferenceFolder.h"

namespace vexil {
namespace {

bool writingIsBroken = false;

int FdatasyncUnlessBroken(int file) {
    if (writingIsBroken) {
        errno = EIO;
        return -1;
    }
    return fdatasync(file);
}

DurabilityCalls BreakableCalls() {
    DurabilityCalls calls = SystemDurabilityCalls();
    calls.fdatasync = FdatasyncUnlessBroken;
    return calls;
}

template <class DomainsType>
struct Bed {
    Bed() : domains(folder.paths, BreakableCalls()) { writingIsBroken = false; }
    ~Bed() { writingIsBroken = false; }

    PreferenceDomains& Domains() { return domains; }
    std::unique_ptr<PreferenceDomains> AnotherView() {
        return std::make_unique<PlistPreferenceDomains>(folder.paths, BreakableCalls());
    }
    void BreakWriting() { writingIsBroken = true; }
    void RepairWriting() { writingIsBroken = false; }
    void StoreUnknown(const std::string& key, const std::string& application, UserScope user) {
        const std::string& place = user == UserScope::kCFPreferencesAnyUser
                                       ? folder.paths.anyUserPreferences
                                       : folder.paths.currentUserPreferences;
        std::filesystem::create_directories(place);
        std::ofstream(place + "/" + application + "." + folder.paths.hostId + ".plist")
            << "<plist version=\"1.0\"><dict><key>" << key
            << "</key><date>2024-02-29T12:00:00Z</date></dict></plist>";
    }

    PreferenceFolder folder;
    DomainsType domains;
};

using PlistBeds = testing::Types<Bed<PlistPreferenceDomains>, Bed<SummedPreferenceDomains>>;
INSTANTIATE_TYPED_TEST_SUITE_P(Plist, PreferenceDomainsContract, PlistBeds);

}  // namespace
}  // namespace vexil
