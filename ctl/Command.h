// A command of vexil3ctl, and what its command line gives it.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/CollectedLog.h"
#include "ctl/Console.h"
#include "ctl/CtlResult.h"
#include "platform/linux/Paths.h"

namespace vexil {

// What is behind the command's name.
struct CommandLine {
    std::vector<std::string> words;
    std::map<std::string, std::string, std::less<>> options;  // as "--json", with its value or ""

    bool Has(std::string_view option) const { return options.contains(option); }
};

// What a command works with.
struct CtlSurroundings {
    const Paths& paths;
    CollectedLog& log;
    Console& console;
};

struct Command {
    static constexpr std::size_t kAnyWords = static_cast<std::size_t>(-1);

    std::string_view name;
    std::vector<std::string_view> options{};  // that it takes
    std::size_t leastWords = 0;
    std::size_t mostWords = 0;
    std::string_view lacking{};  // what is said to lack below leastWords: "a file"
    CtlResult (*run)(const CommandLine& line, const CtlSurroundings& surroundings) = nullptr;
};

// A command line: one of `commands` and what is behind it. Null, with what is wrong in `problem`, when there
// is no such command, or not with these words and options.
struct ChosenCommand {
    const Command* command = nullptr;
    CommandLine line;
};
std::optional<ChosenCommand> ChooseCommand(const std::vector<Command>& commands,
                                           const std::vector<std::string>& arguments, std::string& problem);

// The first of `options` among the arguments in front of a "--", or "".
std::string FindOption(const std::vector<std::string>& arguments,
                       const std::vector<std::string_view>& options);

}  // namespace vexil
