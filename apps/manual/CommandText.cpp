#include "CommandText.h"

#include <algorithm>
#include <sstream>

namespace orvmanual {

namespace {

constexpr size_t TERM_COLUMNS = 30;  // of names, before what they mean
constexpr size_t TEXT_COLUMNS = 68;

// Lines of at most TEXT_COLUMNS; a word that is longer has a line of its own.
std::string wrapped(const std::string& text) {
    std::istringstream words(text);
    std::string out;
    std::string word;
    size_t column = 0;
    while (words >> word) {
        const bool fits = column + 1 + word.size() <= TEXT_COLUMNS;
        if (!out.empty()) {
            out += fits ? ' ' : '\n';
        }
        column = (fits && !out.empty() ? column + 1 : 0) + word.size();
        out += word;
    }
    return out;
}

CommandText describeBelow(const CLI::App& app, const std::string& parent) {
    CommandText text;
    text.name = app.get_name();
    text.path = parent.empty() ? text.name : parent + " " + text.name;
    text.description = app.get_description();
    const bool inherits =
        app.get_parent() != nullptr && app.get_footer() == app.get_parent()->get_footer();
    text.footer = inherits ? "" : app.get_footer();
    text.needsCommand = app.get_require_subcommand_min() > 0;
    const bool isGroup = text.name.empty();
    for (const CLI::Option* option : app.get_options()) {
        if (isGroup && option == app.get_help_ptr()) {
            continue;
        }
        (option->nonpositional() ? text.options : text.arguments).push_back(describe(*option));
    }
    for (const CLI::App* below : app.get_subcommands(nullptr)) {
        CommandText part = describeBelow(*below, text.path);
        if (part.name.empty()) {
            text.options.insert(text.options.end(), part.options.begin(), part.options.end());
        } else {
            text.commands.push_back(std::move(part));
        }
    }
    return text;
}

}  // namespace

OptionText::Value OptionText::kind() const {
    const std::string& what = value.empty() && !names.empty() ? names.front() : value;
    const bool isArgument = names.size() == 1 && names.front().front() != '-';
    if (value.empty() && !isArgument) {
        return Value::NONE;
    }
    if (what.find("FILE") != std::string::npos || what == "SOURCE") {
        return Value::FILE;
    }
    return what.find('|') != std::string::npos ? Value::CHOICE : Value::OTHER;
}

std::vector<std::string> OptionText::choices() const {
    return CLI::detail::split(value.empty() ? names.front() : value, '|');
}

std::string CommandText::synopsis() const {
    std::string line = path + " [OPTIONS]";
    for (const OptionText& argument : arguments) {
        const std::string name = argument.names.front() + (argument.repeated ? "..." : "");
        line += argument.required ? " " + name : " [" + name + "]";
    }
    if (!commands.empty()) {
        line += needsCommand ? " COMMAND" : " [COMMAND]";
    }
    return line;
}

OptionText describe(const CLI::Option& option) {
    OptionText text;
    for (const std::string& name : option.get_snames()) {
        text.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        text.names.push_back("--" + name);
    }
    text.required = option.get_required();
    text.repeated = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
    text.description = option.get_description();
    if (text.names.empty()) {
        text.names.push_back(option.get_name(true));
        return text;
    }
    if (option.get_type_size() > 0) {
        const std::string type = option.get_type_name();  // with what is checked behind a colon
        text.value = type.substr(0, type.find(':'));
    }
    if (text.value.size() > 3 && text.value.compare(0, 2, "[=") == 0) {
        text.valueOptional = true;
        text.value = text.value.substr(2, text.value.size() - 3);
    }
    return text;
}

CommandText describe(const CLI::App& app) {
    return describeBelow(app, "");
}

std::string HelpText::make_option_name(const CLI::Option* option, bool /*isArgument*/) const {
    return CLI::detail::join(describe(*option).names, ", ");
}

std::string HelpText::make_option_opts(const CLI::Option* option) const {
    const OptionText text = describe(*option);
    if (text.value.empty()) {
        return text.repeated && !option->nonpositional() ? "..." : "";
    }
    return text.valueOptional ? "[=" + text.value + "]" : " " + text.value;
}

std::string HelpText::make_option_desc(const CLI::Option* option) const {
    return wrapped(option->get_description());
}

std::string HelpText::make_subcommand(const CLI::App* command) const {
    std::ostringstream out;
    CLI::detail::format_help(out, command->get_name(), wrapped(command->get_description()),
                             TERM_COLUMNS);
    return out.str();
}

}  // namespace orvmanual
