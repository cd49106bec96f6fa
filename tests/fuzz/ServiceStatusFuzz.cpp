// The service's status and its network's list as vexil3ctl reads and shows them: whatever the text, nothing
// but printable lines of 80 columns comes out.
#include <string>
#include <string_view>
#include <vector>

#include "client/NetworkReport.h"
#include "client/StatusReport.h"
#include "ctl/NetworkText.h"
#include "ctl/StatusText.h"
#include "ctl/TerminalText.h"
#include "ctl/TextTable.h"
#include "shared/System/PrintableText.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

using namespace vexil;
using namespace vexil::test;

void CheckShown(const std::string& text) {
    Check(text == PrintableLines(text), "what is shown is printable");
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        Check(end != std::string::npos, "lines are whole");
        Check(DisplayWidth(text.substr(start, end - start)) <= kTerminalWidth, "lines fit the terminal");
        start = end + 1;
    }
}

void CheckWrapped(const std::string& text) {
    constexpr std::size_t kWidth = 7;
    std::string together;
    for (const std::string& line : WrapText(text, kWidth)) {
        Check(DisplayWidth(line) <= kWidth, "wrapped lines fit");
        together += line;
    }
    // Wrapping takes the blanks at which it breaks, and nothing else.
    std::string letters = text;
    std::erase(letters, ' ');
    std::erase(together, ' ');
    Check(letters == together, "wrapped lines hold the text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    CheckWrapped(Printable(text));
    Check(Printable(Printable(text)) == Printable(text), "what is printable stays");

    std::string problem;
    const auto list = ReadNetworkList(text, problem);
    Check(list.has_value() == problem.empty(), "a list is read or there is a problem");
    if (list) {
        CheckShown(NetworkListText(*list));
    }
    Check(ReadNetworkChange(text, problem).has_value() == problem.empty(),
          "what became of a change is read or there is a problem");

    const auto status = ReadStatusReport(text, problem);
    Check(status.has_value() == problem.empty(), "a status is read or there is a problem");
    if (!status) {
        return 0;
    }
    CheckShown(StatusText(*status));
    CheckShown(HostsText(*status));
    Check(ReadStatusReport(PrintableJson(text), problem).has_value(), "printable JSON is still JSON");
    return 0;
}
