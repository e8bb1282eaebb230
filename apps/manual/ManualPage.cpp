#include "ManualPage.h"

#include <algorithm>
#include <cctype>

namespace orvmanual {

namespace {

// Text that roff takes as it stands, whatever it begins with.
std::string plain(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool atBegin = i == 0 || text[i - 1] == '\n';
        if (atBegin && (text[i] == '.' || text[i] == '\'')) {
            out += "\\&";
        }
        if (text[i] == '\\') {
            out += "\\e";
        } else if (text[i] == '-') {
            out += "\\-";
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string bold(const std::string& text) {
    return "\\fB" + plain(text) + "\\fR";
}

std::string italic(const std::string& text) {
    return "\\fI" + plain(text) + "\\fR";
}

std::string term(const OptionText& option) {
    std::string line;
    for (const std::string& name : option.names) {
        line += (line.empty() ? "" : ", ") + (name.front() == '-' ? bold(name) : italic(name));
    }
    if (!option.value.empty()) {
        line +=
            option.valueOptional ? "[=" + italic(option.value) + "]" : " " + italic(option.value);
    }
    return line + (option.repeated && option.value.empty() ? "..." : "");
}

void addOptions(std::string& out, const std::vector<OptionText>& options) {
    for (const OptionText& option : options) {
        out += ".TP\n" + term(option) + "\n" + plain(option.description) + ".\n";
    }
}

void addCommand(std::string& out, const CommandText& command) {
    out += ".SS \"" + plain(command.synopsis()) + "\"\n" + plain(command.description) + ".\n";
    addOptions(out, command.arguments);
    std::vector<OptionText> own;
    std::copy_if(command.options.begin(), command.options.end(), std::back_inserter(own),
                 [](const OptionText& option) { return option.names.back() != "--help"; });
    addOptions(out, own);
    if (!command.footer.empty()) {
        out += ".PP\n" + plain(command.footer) + "\n";
    }
    for (const CommandText& below : command.commands) {
        addCommand(out, below);
    }
}

}  // namespace

std::string manualPage(const CommandText& program, const ManualPage& page) {
    std::string out = ".TH " + upper(program.name) + " " + std::to_string(page.section) +
                      " \"\" \"OrvPlayer " + plain(page.version) + "\"\n";
    out += ".SH NAME\n" + program.name + " \\- " + plain(program.description) + "\n";
    out += ".SH SYNOPSIS\n.nf\n";
    if (program.commands.empty()) {
        out += bold(program.synopsis()) + "\n";
    }
    for (const CommandText& command : program.commands) {
        out += bold(command.synopsis()) + "\n";
    }
    out += ".fi\n.SH OPTIONS\n";
    addOptions(out, program.options);
    if (!program.commands.empty()) {
        out += ".SH COMMANDS\n";
        for (const CommandText& command : program.commands) {
            addCommand(out, command);
        }
    }
    for (const ManualSection& section : page.sections) {
        out += ".SH " + section.title + "\n";
        for (const auto& [name, text] : section.entries) {
            out += ".TP\n" + bold(name) + "\n" + plain(text) + "\n";
        }
    }
    if (!program.footer.empty()) {
        out += ".SH NOTES\n" + plain(program.footer) + "\n";
    }
    if (!page.seeAlso.empty()) {
        out += ".SH SEE ALSO\n" + plain(CLI::detail::join(page.seeAlso, ", ")) + "\n";
    }
    return out;
}

}  // namespace orvmanual
