// The time of one durable write of a preference, beside that of the bare sequence which makes any file of
// that size last (temporary file, fdatasync, rename, fsync of the folder), on the same disk in the same run,
// one after the other. Then a save of 325 values of which one has changed: how many writes it takes.
//
// durable_write [ROUNDS [FOLDER]]: FOLDER (default: the current one) is where the disk is; a folder of its
// own is made in it.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/linux/preferences/PlistPreferenceDomains.h"

namespace {

using namespace vexil;
using Clock = std::chrono::steady_clock;

constexpr int kPorts = 64;
constexpr const char* kDomain = "com.example.Bench";
constexpr auto kUser = UserScope::kCFPreferencesAnyUser;
constexpr auto kHost = HostScope::kCFPreferencesCurrentHost;

int fdatasyncs = 0;
int CountedFdatasync(int file) {
    ++fdatasyncs;
    return fdatasync(file);
}

double Median(std::vector<double> times) {
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2),
                     times.end());
    return times[times.size() / 2];
}

template <class Task>
double Microseconds(Task task) {
    const Clock::time_point start = Clock::now();
    task();
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

void Check(bool done, const char* what) {
    if (!done) {
        std::perror(what);
        std::exit(1);
    }
}

// What any program has to do.
void BareWrite(const std::string& folder, const std::string& content) {
    const std::string temporary = folder + "/bare.new";
    const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    Check(file >= 0, "open");
    Check(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()), "write");
    Check(fdatasync(file) == 0, "fdatasync");
    close(file);
    Check(rename(temporary.c_str(), (folder + "/bare").c_str()) == 0, "rename");
    const int place = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Check(place >= 0 && fsync(place) == 0, "fsync");
    close(place);
}

// The 325 values of a configuration, each stored and synchronised by itself.
void Save(PlistPreferenceDomains& domains, int granularity) {
    const auto store = [&](const std::string& key, PropertyRef value) {
        domains.SetValue(key, std::move(value), kDomain, kUser, kHost);
        Check(domains.Synchronize(kDomain, kUser, kHost), "Synchronize");
    };
    const std::uint64_t mask = 0x0123456789ABCDEF;
    for (const char* key : {"InputPorts", "OutputPorts", "LocalPipes"}) {
        store(key, MakePropertyData(&mask, sizeof mask));
    }
    store("MiscOptions", MakePropertyNumber(7));
    store("SendGranularity", MakePropertyNumber(granularity));
    for (int port = 1; port <= kPorts; ++port) {
        const std::string number = (port < 10 ? "0" : "") + std::to_string(port) + " ";
        store(number + "PortFlags", MakePropertyNumber(port));
        for (const char* key : {"In_CustomName", "Out_CustomName", "SrcHost", "DstHost"}) {
            store(number + key, MakePropertyString(("Studio " + number + key).c_str()));
        }
    }
}

}  // namespace

int main(int count, char** arguments) {
    const int rounds = count > 1 ? std::max(1, std::atoi(arguments[1])) : 200;
    std::string root = std::string(count > 2 ? arguments[2] : ".") + "/durable-write-XXXXXX";
    Check(mkdtemp(root.data()) != nullptr, "mkdtemp");
    Paths paths;
    paths.anyUserPreferences = root + "/preferences";
    paths.hostId = "host";
    std::filesystem::create_directory(paths.anyUserPreferences);

    // A whole configuration to start with, without waiting for the disk at each of its values.
    DurabilityCalls calls = SystemDurabilityCalls();
    calls.fdatasync = [](int) { return 0; };
    calls.fsync = [](int) { return 0; };
    PlistPreferenceDomains first(paths, calls);
    Save(first, 2);

    calls = SystemDurabilityCalls();
    calls.fdatasync = CountedFdatasync;
    PlistPreferenceDomains domains(paths, calls);
    Check(domains.Synchronize(kDomain, kUser, kHost), "Synchronize");
    std::ifstream file(paths.anyUserPreferences + "/" + kDomain + ".host.plist", std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};

    std::vector<double> bare;
    std::vector<double> ours;
    for (int round = 0; round < rounds; ++round) {
        bare.push_back(Microseconds([&] { BareWrite(paths.anyUserPreferences, content); }));
        ours.push_back(Microseconds([&] {
            domains.SetValue("SendGranularity", MakePropertyNumber(100 + round), kDomain, kUser, kHost);
            Check(domains.Synchronize(kDomain, kUser, kHost), "Synchronize");
        }));
    }
    const double bareTime = Median(bare);
    const double ourTime = Median(ours);
    std::printf(
        "one durable write of %zu bytes, median of %d: %.0f us; bare sequence: %.0f us; ratio %.2f "
        "(to be at most 1.50)\n",
        content.size(), rounds, ourTime, bareTime, ourTime / bareTime);

    Save(domains, 5);
    fdatasyncs = 0;
    const double unchanged = Microseconds([&] { Save(domains, 5); });
    const int whenUnchanged = fdatasyncs;
    fdatasyncs = 0;
    const double changed = Microseconds([&] { Save(domains, 6); });
    std::printf("save of 325 values: none changed %d fdatasync, %.0f us; one changed %d fdatasync, %.0f us\n",
                whenUnchanged, unchanged, fdatasyncs, changed);
    std::filesystem::remove_all(root);
    return ourTime <= 1.5 * bareTime && whenUnchanged == 0 && fdatasyncs == 1 ? 0 : 1;
}
