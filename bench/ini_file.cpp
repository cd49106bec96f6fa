// INI files: a large file opened, edited and closed, and the whole configuration exported and imported,
// beside a plain copy of the same file with fgets and fputs. Each number is the best of several runs in
// milliseconds. The files lie in memory, which leaves out the disk's time; a folder on a disk that is given
// on the command line is measured as well. Then files of the greatest size that hold nothing but garbage, of
// several kinds, and the same at a half and at a quarter of it: the cost is to grow with the size alone. The
// exit status is 1 when a bound is missed in memory.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "config/SafeRewrite.h"
#include "config/SettingsFile.h"

namespace {

using vexil::IniFile;

constexpr int kRuns = 31;

// What the work may take at most, in milliseconds, without the disk's time.
constexpr double kLargeFileBound = 50;
constexpr double kConfigurationBound = 5;
// Of the garbage, loaded; the memory in megabytes, beyond that of a process which loads nothing.
constexpr double kGarbageBound = 300;
constexpr double kGarbageMemoryBound = 100;
constexpr int kGarbageRuns = 5;
// Four times the size may take this many times as long at most. The cache of the processor has its share.
constexpr double kGrowthBound = 8;

// Of the fastest run.
struct Times {
    double processor = 1e9;
    double elapsed = 1e9;
};

double Now(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

template <class Work>
Times Best(Work work, int runs = kRuns) {
    Times best;
    for (int run = 0; run < runs; ++run) {
        const double processor = Now(CLOCK_PROCESS_CPUTIME_ID);
        const double elapsed = Now(CLOCK_MONOTONIC);
        work();
        best.processor = std::min(best.processor, Now(CLOCK_PROCESS_CPUTIME_ID) - processor);
        best.elapsed = std::min(best.elapsed, Now(CLOCK_MONOTONIC) - elapsed);
    }
    return best;
}

void Print(const char* what, const Times& times) {
    std::printf("  %-40s %8.2f %8.2f\n", what, times.processor, times.elapsed);
}

void Require(bool done, const char* what) {
    if (!done) {
        std::fprintf(stderr, "failed: %s\n", what);
        std::exit(1);
    }
}

void WriteLines(const std::string& path, int count) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    Require(file != nullptr, "write the file");
    std::fputs("[section]\n", file);
    for (int line = 1; line < count; ++line) {
        std::fprintf(file, "key%06d=value %03d\n", line, line % 1000);
    }
    std::fclose(file);
}

void PlainCopy(const std::string& from, const std::string& to) {
    std::FILE* source = std::fopen(from.c_str(), "r");
    std::FILE* target = std::fopen(to.c_str(), "w");
    Require(source != nullptr && target != nullptr, "copy the file");
    char line[1023];
    while (std::fgets(line, sizeof line, source) != nullptr) {
        std::fputs(line, target);
    }
    std::fclose(source);
    std::fclose(target);
}

void EditLargeFile(const std::string& path, int lines) {
    IniFile file;
    Require(file.Open(path.c_str()), "open the file");
    char key[16];
    std::snprintf(key, sizeof key, "key%06d", lines - 1);
    file.SetValue("section", key, "changed");
    Require(file.Close(), "save the file");
}

vexil::DriverConfiguration FullConfiguration() {
    vexil::DriverConfiguration record;
    record.InputPorts = record.OutputPorts = record.LocalPipes = ~std::uint64_t{0};
    for (int port = 0; port < vexil::kMaxPorts; ++port) {
        record.Hosts[port] = {"a source computer", "a target computer"};
        record.CustomNames[port] = {"the name of an input", "the name of an output"};
    }
    return record;
}

void Export(const std::string& path, const vexil::DriverConfiguration& record) {
    IniFile file;
    Require(file.Open(path.c_str()), "open the file");
    vexil::ExportSettings(vexil::kPortCount, file, record);
    Require(file.Close(), "save the file");
}

void Import(const std::string& path, vexil::DriverConfiguration& record) {
    IniFile file;
    Require(file.Open(path.c_str()), "open the file");
    vexil::ImportSettings(vexil::kPortCount, file, record);
    Require(file.Close(), "close the file");
}

// A file's text over and over: `first`, then `line` as often as fits.
struct Garbage {
    const char* name;
    const char* first;
    std::string line;
};

void WriteGarbage(const std::string& path, const Garbage& garbage, std::size_t size) {
    std::string text = garbage.first;
    while (text.size() + garbage.line.size() <= size) {
        text += garbage.line;
    }
    std::FILE* file = std::fopen(path.c_str(), "w");
    Require(file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size(),
            "write the file");
    std::fclose(file);
}

// Megabytes at the most, of a process of its own.
template <class Work>
double PeakMemory(Work work) {
    const pid_t child = ::fork();
    Require(child != -1, "start a process");
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = 0;
    rusage usage{};
    Require(::wait4(child, &status, 0, &usage) == child && status == 0, "load in a process");
    return static_cast<double>(usage.ru_maxrss) * 1024 / 1e6;
}

// Whether every number is within its bound.
bool MeasureGarbage(const std::string& path) {
    const std::array kinds = {
        Garbage{"blank lines", "", "\n"},
        Garbage{"blank lines in a section", "[Port_00]\n", "\n"},
        Garbage{"lines of one letter", "", "x\n"},
        Garbage{"empty headers", "", "[]\n"},
        Garbage{"keys in a section", "[Port_00]\n", "k=\n"},
        Garbage{"zero bytes", "", std::string(1, '\0')},
        Garbage{"one long line", "", "x"},
    };
    vexil::DriverConfiguration record;
    const double base = PeakMemory([] {});
    bool within = true;
    std::printf("  %-40s processor  elapsed   memory MB\n", "loaded");
    for (const Garbage& garbage : kinds) {
        Times first;
        for (const int part : {4, 2, 1}) {
            const std::size_t size = vexil::kMaxRewriteBytes / static_cast<std::size_t>(part);
            WriteGarbage(path, garbage, size);
            const Times times = Best([&] { Import(path, record); }, kGarbageRuns);
            const double memory = PeakMemory([&] { Import(path, record); }) - base;
            first = part == 4 ? times : first;
            std::printf("  %4zu KiB %-31s %8.2f %8.2f %8.1f\n", size / 1024, garbage.name, times.processor,
                        times.elapsed, memory);
            within = within && times.processor <= kGarbageBound && memory <= kGarbageMemoryBound &&
                     times.processor <= kGrowthBound * std::max(first.processor, 0.5);
        }
    }
    return within;
}

// Whether every number is within its bound.
bool Measure(const std::string& parent) {
    std::string folder = parent + "/vexil-bench-XXXXXX";
    Require(::mkdtemp(folder.data()) != nullptr, "make a folder");
    const std::string path = folder + "/file.vexil3";
    const std::string copy = folder + "/copy";
    std::printf("  %-40s processor  elapsed\n", parent.c_str());
    Times large;
    for (const int lines : {12500, 25000, 50000}) {
        WriteLines(path, lines);
        const std::string count = std::to_string(lines) + " lines, ";
        large = Best([&] { EditLargeFile(path, lines); });
        Print((count + "last key set").c_str(), large);
        Print((count + "plain copy").c_str(), Best([&] { PlainCopy(path, copy); }));
    }
    vexil::DriverConfiguration record = FullConfiguration();
    const Times fresh = Best([&] {
        std::filesystem::remove(path);
        Export(path, record);
    });
    Print("64 ports with all names, saved anew", fresh);
    const Times again = Best([&] { Export(path, record); });
    Print("64 ports with all names, saved over", again);
    const Times load = Best([&] { Import(path, record); });
    Print("64 ports with all names, loaded", load);
    Print("64 ports with all names, plain copy", Best([&] { PlainCopy(path, copy); }));
    const bool isGarbageWithin = MeasureGarbage(path);
    std::filesystem::remove_all(folder);
    return isGarbageWithin && large.processor <= kLargeFileBound &&
           std::max({fresh.processor, again.processor, load.processor}) <= kConfigurationBound;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    std::printf("milliseconds, best of %d; at most %.0f for the 50000 lines, %.0f for the ports\n", kRuns,
                kLargeFileBound, kConfigurationBound);
    std::printf("garbage: best of %d, at most %.0f ms and %.0f MB\n", kGarbageRuns, kGarbageBound,
                kGarbageMemoryBound);
    const bool within = Measure("/dev/shm");
    if (argumentCount > 1) {
        Measure(arguments[1]);
    }
    return within ? 0 : 1;
}
