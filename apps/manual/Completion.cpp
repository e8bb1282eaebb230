#include "Completion.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <vector>

namespace orvmanual {

namespace {

using Value = OptionText::Value;
using CLI::detail::join;

void forEachCommand(const CommandText& command,
                    const std::function<void(const CommandText&)>& visit) {
    visit(command);
    for (const CommandText& below : command.commands) {
        forEachCommand(below, visit);
    }
}

// "orvplay play"|"orvplay record": whatever a word can lead to.
std::string commandPaths(const CommandText& program, const char* quote, const char* separator) {
    std::vector<std::string> paths;
    forEachCommand(program, [&](const CommandText& command) {
        for (const CommandText& below : command.commands) {
            paths.push_back(quote + below.path + quote);
        }
    });
    return join(paths, separator);
}

bool takesFile(const CommandText& command) {
    return std::any_of(command.arguments.begin(), command.arguments.end(),
                       [](const OptionText& one) { return one.kind() == Value::FILE; });
}

std::vector<std::string> argumentChoices(const CommandText& command) {
    for (const OptionText& argument : command.arguments) {
        if (argument.kind() == Value::CHOICE) {
            return argument.choices();
        }
    }
    return {};
}

// What may stand after a command, but for files.
std::vector<std::string> words(const CommandText& command) {
    std::vector<std::string> all = argumentChoices(command);
    for (const CommandText& below : command.commands) {
        all.push_back(below.name);
    }
    for (const OptionText& option : command.options) {
        all.insert(all.end(), option.names.begin(), option.names.end());
    }
    return all;
}

// Whether the word behind the option belongs to it.
bool takesWord(const OptionText& option) {
    return option.kind() != Value::NONE && !option.valueOptional;
}

void addBashValues(std::ostream& out, const CommandText& command) {
    for (const OptionText& option : command.options) {
        if (!takesWord(option)) {
            continue;
        }
        std::vector<std::string> patterns;
        for (const std::string& name : option.names) {
            patterns.push_back("\"" + command.path + " " + name + "\"");
        }
        out << "    " << join(patterns, " | ") << ")";
        if (option.kind() == Value::FILE) {
            out << " files=yes ;;\n";
        } else if (option.kind() == Value::CHOICE) {
            out << " words=\"" << join(option.choices(), " ") << "\" ;;\n";
        } else {
            out << " ;;\n";
        }
    }
}

// Inside single quotes of zsh and fish.
std::string quoted(const std::string& text) {
    std::string out;
    for (const char c : text) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out;
}

// Inside the brackets of what _arguments takes for an option.
std::string bracketed(const std::string& text) {
    std::string out;
    for (const char c : quoted(text)) {
        if (c == '[' || c == ']' || c == ':') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

std::string zshFunction(const CommandText& command) {
    std::string name = "_" + command.path;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

std::string zshAction(const OptionText& option) {
    switch (option.kind()) {
        case Value::FILE:
            return "_files";
        case Value::CHOICE:
            return "(" + join(option.choices(), " ") + ")";
        default:
            return "";
    }
}

void addZshOption(std::ostream& out, const OptionText& option) {
    for (const std::string& name : option.names) {
        out << " \\\n        '" << name;
        if (option.valueOptional) {
            out << "=-";
        }
        out << '[' << bracketed(option.description) << ']';
        if (option.kind() != Value::NONE) {
            out << (option.valueOptional ? "::" : ":") << bracketed(option.value) << ':'
                << zshAction(option);
        }
        out << '\'';
    }
}

void addZshCommand(std::ostream& out, const CommandText& command) {
    for (const CommandText& below : command.commands) {
        addZshCommand(out, below);
    }
    out << zshFunction(command) << "() {\n";
    if (!command.commands.empty()) {
        out << "    local context state line\n    typeset -A opt_args\n";
    }
    out << "    _arguments" << (command.commands.empty() ? "" : " -C");
    for (const OptionText& option : command.options) {
        addZshOption(out, option);
    }
    if (!command.commands.empty()) {
        out << " \\\n        '1: :->command' '*:: :->rest'\n    case $state in\n    command)\n"
            << "        local -a commands=(";
        for (const CommandText& below : command.commands) {
            out << "\n            '" << below.name << ':' << bracketed(below.description) << '\'';
        }
        out << ")\n        _describe command commands\n"
            << (takesFile(command) ? "        _files\n" : "") << "        ;;\n    rest)\n"
            << "        case $line[1] in\n";
        for (const CommandText& below : command.commands) {
            out << "        " << below.name << ") " << zshFunction(below) << " ;;\n";
        }
        out << "        esac\n        ;;\n    esac\n}\n\n";
        return;
    }
    for (const OptionText& argument : command.arguments) {
        out << " \\\n        '" << (argument.repeated ? "*" : "") << ':'
            << bracketed(argument.names.front()) << ':' << zshAction(argument) << '\'';
    }
    out << "\n}\n\n";
}

void addFishOption(std::ostream& out, const std::string& at, const OptionText& option) {
    out << at;
    for (const std::string& name : option.names) {
        out << (name.compare(0, 2, "--") == 0 ? " -l " + name.substr(2) : " -s " + name.substr(1));
    }
    if (takesWord(option)) {
        out << (option.kind() == Value::FILE ? " -rF" : " -x");
    }
    if (option.kind() == Value::CHOICE && !option.valueOptional) {
        out << " -a '" << join(option.choices(), " ") << '\'';
    }
    out << " -d '" << quoted(option.description) << "'\n";
}

}  // namespace

std::string bashCompletion(const CommandText& program) {
    std::ostringstream out;
    const std::string function = "_" + program.name;
    out << "# Completion of " << program.name << " for bash.\n"
        << function << "() {\n"
        << "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
        << "    local at=" << program.name << " word words= files=no\n"
        << "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        << "        case \"$at $word\" in\n        "
        << (program.commands.empty() ? "\"\"" : commandPaths(program, "\"", " | \\\n            "))
        << ")\n            at+=\" $word\" ;;\n        esac\n    done\n"
        << "    case \"$at $previous\" in\n";
    forEachCommand(program, [&](const CommandText& command) { addBashValues(out, command); });
    out << "    *)\n        case \"$at\" in\n";
    forEachCommand(program, [&](const CommandText& command) {
        out << "        \"" << command.path << "\") words=\"" << join(words(command), " ") << "\""
            << (takesFile(command) ? " files=yes" : "") << " ;;\n";
    });
    out << "        esac\n    esac\n"
        << "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
        << "    if [ $files = yes ] && [[ $current != -* ]]; then\n"
        << "        compopt -o filenames\n"
        << "        mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- \"$current\")\n"
        << "    fi\n}\ncomplete -F " << function << ' ' << program.name << '\n';
    return out.str();
}

std::string zshCompletion(const CommandText& program) {
    std::ostringstream out;
    out << "#compdef " << program.name << "\n# Completion of " << program.name << " for zsh.\n\n";
    addZshCommand(out, program);
    out << "if [ \"$funcstack[1]\" = _" << program.name << " ]; then\n    _" << program.name
        << " \"$@\"\nelse\n    compdef _" << program.name << ' ' << program.name << "\nfi\n";
    return out.str();
}

std::string fishCompletion(const CommandText& program) {
    std::ostringstream out;
    const std::string at = "__" + program.name + "_at";
    out << "# Completion of " << program.name << " for fish.\nfunction " << at
        << "\n    set -l path " << program.name
        << "\n    for word in (commandline -opc)[2..-1]\n        switch \"$path $word\"\n"
        << "            case " << commandPaths(program, "'", " ")
        << "\n                set path \"$path $word\"\n        end\n    end\n"
        << "    test \"$path\" = \"$argv\"\nend\n\n";
    forEachCommand(program, [&](const CommandText& command) {
        const std::string begin =
            "complete -c " + program.name + " -n '" + at + " " + command.path + "'";
        out << begin << (takesFile(command) ? " -F\n" : " -f\n");
        for (const CommandText& below : command.commands) {
            out << begin << " -a " << below.name << " -d '" << quoted(below.description) << "'\n";
        }
        const std::vector<std::string> choices = argumentChoices(command);
        if (!choices.empty()) {
            out << begin << " -a '" << join(choices, " ") << "'\n";
        }
        for (const OptionText& option : command.options) {
            addFishOption(out, begin, option);
        }
        out << '\n';
    });
    return out.str();
}

}  // namespace orvmanual
