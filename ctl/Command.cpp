#include "ctl/Command.h"

#include <algorithm>

namespace vexil {

namespace {

// What stands behind an option, as "--file=NAME" or as the next argument.
enum class Value { None, Needed, Number };  // a number may also be absent

struct Option {
    std::string_view name;
    Value value = Value::None;
};
constexpr Option kOptions[] = {
    {"--json"}, {"--replace"}, {"--watch"}, {"--wait", Value::Number}, {"--file", Value::Needed}};

bool IsNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The arguments taken apart: words in their order, options with their values.
class Arguments {
  public:
    explicit Arguments(const std::vector<std::string>& commandLine) : arguments(commandLine) {}

    std::optional<CommandLine> Read(std::string& problem) {
        CommandLine line;
        bool options = true;
        for (at = 0; at < arguments.size(); ++at) {
            const std::string& argument = arguments[at];
            if (options && argument == "--") {
                options = false;
            } else if (options && argument.size() > 1 && argument[0] == '-') {
                if (!ReadOption(argument, line, problem)) {
                    return std::nullopt;
                }
            } else {
                line.words.push_back(argument);
            }
        }
        return line;
    }

  private:
    bool ReadOption(const std::string& argument, CommandLine& line, std::string& problem) {
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const auto* const known = std::find_if(std::begin(kOptions), std::end(kOptions),
                                               [&](const Option& option) { return option.name == name; });
        const bool hasValue = equals != std::string::npos;
        if (known == std::end(kOptions) || (hasValue && known->value == Value::None)) {
            problem = "there is no option '" + argument + "'";
            return false;
        }
        std::string value = hasValue ? argument.substr(equals + 1) : "";
        const bool isNext = !hasValue && at + 1 < arguments.size();
        if (isNext && (known->value == Value::Needed ||
                       (known->value == Value::Number && IsNumber(arguments[at + 1])))) {
            value = arguments[++at];
        }
        if (known->value == Value::Needed && value.empty()) {
            problem = "'" + name + "' needs a value";
        }
        if (known->value == Value::Number && (hasValue || !value.empty()) && !IsNumber(value)) {
            problem = "'" + value + "' is no number for '" + name + "'";
        }
        line.options[name] = value;
        return problem.empty();
    }

    const std::vector<std::string>& arguments;
    std::size_t at = 0;
};

std::string Complaint(const Command& command, const CommandLine& line) {
    const std::string name = "'" + std::string(command.name) + "'";
    const auto foreign = std::find_if(line.options.begin(), line.options.end(), [&](const auto& option) {
        return std::find(command.options.begin(), command.options.end(), option.first) ==
               command.options.end();
    });
    if (foreign != line.options.end()) {
        return name + " takes no " + foreign->first;
    }
    if (line.words.size() < command.leastWords) {
        return name + " needs " + std::string(command.lacking);
    }
    if (line.words.size() > command.mostWords) {
        return "'" + line.words[command.mostWords] + "' is one argument too many";
    }
    return "";
}

}  // namespace

std::optional<ChosenCommand> ChooseCommand(const std::vector<Command>& commands,
                                           const std::vector<std::string>& arguments, std::string& problem) {
    std::optional<CommandLine> line = Arguments(arguments).Read(problem);
    if (!line) {
        return std::nullopt;
    }
    if (line->words.empty()) {
        problem = "a command is missing";
        return std::nullopt;
    }
    const std::string name = line->words.front();
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const Command& command) { return command.name == name; });
    if (found == commands.end()) {
        problem = "there is no command '" + name + "'";
        return std::nullopt;
    }
    line->words.erase(line->words.begin());
    problem = Complaint(*found, *line);
    return problem.empty() ? std::optional(ChosenCommand{&*found, std::move(*line)}) : std::nullopt;
}

std::string FindOption(const std::vector<std::string>& arguments,
                       const std::vector<std::string_view>& options) {
    for (const std::string& argument : arguments) {
        if (argument == "--") {
            break;
        }
        if (std::find(options.begin(), options.end(), argument) != options.end()) {
            return argument;
        }
    }
    return "";
}

}  // namespace vexil
