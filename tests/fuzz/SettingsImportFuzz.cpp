// Import of any text: the record stays within its rules, and what was imported survives an export into a
// fresh file.
#include <optional>

#include "config/SettingsFile.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

// Few, for the speed of a run; every port is treated alike.
constexpr int kPorts = 3;

vexil::DriverConfiguration Imported(const std::string& path) {
    vexil::DriverConfiguration record;
    vexil::IniFile ini;
    vexil::test::Check(ini.Open(path.c_str()), "any text is opened");
    vexil::ImportSettings(kPorts, ini, record);
    vexil::test::Check(ini.Close(), "the file is closed");
    return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace vexil;
    using namespace vexil::test;
    static WorkFile file;
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    file.Write(text);

    const DriverConfiguration first = Imported(file.Path());
    Check(file.Read() == text, "an import changes nothing in the file");
    Check(first.SendGranularity <= 100, "the granularity is limited");
    Check(first.MiscOptions <= 0xF, "only the four switches are set");
    for (const PortEntry& entry : first.PortFlags) {
        Check(entry.reserved == 0, "the reserved byte stays 0");
    }

    // What is written depends on the record alone, and most texts give one that was looked at just before.
    static std::optional<DriverConfiguration> survivor;
    if (survivor && !Differs(first, *survivor)) {
        return 0;
    }
    file.Write("");
    IniFile ini;
    Check(ini.Open(file.Path().c_str()), "an empty file is opened");
    ExportSettings(kPorts, ini, first);
    Check(ini.Close(), "the export is saved");
    // An empty Properties line is not written, and a file without it leaves the default role of port 1.
    DriverConfiguration expected;
    CopyConfiguration(first, expected);
    if (((first.InputPorts | first.OutputPorts | first.LocalPipes) & 1) == 0) {
        expected.OutputPorts |= 1;
    }
    Check(!Differs(Imported(file.Path()), expected), "what was imported survives an export");
    CopyConfiguration(first, survivor.emplace());
    return 0;
}
