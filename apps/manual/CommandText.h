#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace orvmanual {

// An option or an argument as users read of it.
struct OptionText {
    // What may follow an option.
    enum class Value { NONE, FILE, CHOICE, OTHER };

    std::vector<std::string> names;  // "-n", "--count"; of an argument its one name
    std::string value;               // "COUNT", "a|b|c"; empty: a flag, or an argument
    bool valueOptional = false;      // --record[=NAME]
    bool required = false;
    bool repeated = false;
    std::string description;

    Value kind() const;
    std::vector<std::string> choices() const;  // of a CHOICE
};

// A command with all that is below it.
struct CommandText {
    std::string name;
    std::string path;  // from the program on: "orvplay record rm"
    std::string description;
    std::string footer;
    std::vector<OptionText> options;
    std::vector<OptionText> arguments;
    std::vector<CommandText> commands;
    bool needsCommand = false;

    // The line that says how it is called.
    std::string synopsis() const;
};

OptionText describe(const CLI::Option& option);
CommandText describe(const CLI::App& app);

// The help that a program prints, in those words.
class HelpText : public CLI::Formatter {
public:
    HelpText() { label("SUBCOMMAND", "COMMAND"); }

    std::string make_option_name(const CLI::Option* option, bool isArgument) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
    std::string make_subcommand(const CLI::App* command) const override;
};

}  // namespace orvmanual
