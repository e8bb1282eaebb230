#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>

#include "CommandTree.h"
#include "Completion.h"
#include "DaemonCommandLine.h"
#include "ManualPage.h"

namespace {

using namespace orvmanual;

void forEach(const CommandText& command, const std::function<void(const CommandText&)>& visit) {
    visit(command);
    for (const CommandText& below : command.commands) {
        forEach(below, visit);
    }
}

// What a command writes to standard output.
std::string outputOf(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return out;
    }
    char part[4096];
    for (size_t n = fread(part, 1, sizeof(part), pipe); n > 0;
         n = fread(part, 1, sizeof(part), pipe)) {
        out.append(part, n);
    }
    pclose(pipe);
    return out;
}

// Puts scripts into a folder of their own, which goes with it.
class Manual : public testing::Test {
protected:
    Manual() : mFolder(testing::TempDir() + "orv_manual_" + std::to_string(getpid())) {
        std::filesystem::create_directories(mFolder);
    }
    ~Manual() override { std::filesystem::remove_all(mFolder); }

    std::string save(const std::string& name, const std::string& text) const {
        const std::string path = mFolder + "/" + name;
        std::ofstream(path) << text;
        return path;
    }

    const std::string mFolder;
    orvplay::CommandTree mTree;
    const CommandText mPlayer = describe(mTree.root());
};

TEST_F(Manual, HelpAndPageNameEveryOptionOfEveryCommand) {
    orvplayerd::Options options;
    const auto daemonApp = orvplayerd::commandLine(options);
    const CommandText daemon = describe(*daemonApp);
    for (const CommandText* program :
         std::initializer_list<const CommandText*>{&mPlayer, &daemon}) {
        const std::string page =
            outputOf("man -l " + save(program->name + ".1", manualPage(*program, {})) +
                     " | col -b | tr -s ' \\n' ' '");
        ASSERT_NE(page.find("SYNOPSIS"), std::string::npos);
        forEach(*program, [&](const CommandText& command) {
            for (const OptionText& option : command.options) {
                EXPECT_TRUE(option.names.back() == "--help" ||
                            page.find(option.names.back()) != std::string::npos)
                    << command.path << " " << option.names.back();
                EXPECT_EQ(option.names.back().find('{'), std::string::npos);
                EXPECT_FALSE(option.description.empty()) << option.names.back();
            }
        });
    }
    std::string warnings = outputOf("man --warnings -l " + mFolder + "/orvplay.1 2>&1 >/dev/null");
    EXPECT_EQ(warnings, "");
    const std::string help = mTree.root().get_subcommand("play")->help();
    EXPECT_NE(help.find("--connect[=session|system]"), std::string::npos) << help;
    EXPECT_NE(help.find("--video-pid PID "), std::string::npos) << help;
}

// What each shell offers at each place, from the shell itself.
TEST_F(Manual, BashCompletesEveryCommandOptionAndChoice) {
    const std::string script = save("orvplay.bash", bashCompletion(mPlayer));
    std::string ask = "compopt() { :; }; . " + script +
                      "\nask() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _orvplay; "
                      "echo \"$*> ${COMPREPLY[*]} \"; }\ncd " +
                      mFolder + "\n";
    std::set<std::string> expected;
    forEach(mPlayer, [&](const CommandText& command) {
        ask += "ask " + command.path + " ''\n";
        for (const OptionText& option : command.options) {
            for (const std::string& name : option.names) {
                expected.insert(command.path + " >|" + name);
            }
            if (option.kind() == OptionText::Value::CHOICE && !option.valueOptional) {
                ask += "ask " + command.path + " " + option.names.back() + " ''\n";
                for (const std::string& choice : option.choices()) {
                    expected.insert(command.path + " " + option.names.back() + " >|" + choice);
                }
            }
        }
        for (const CommandText& below : command.commands) {
            expected.insert(command.path + " >|" + below.name);
        }
    });
    ask += "ask orvplay units --out orvplay.b\nask orvplay units --service ''\n";
    std::istringstream lines(outputOf("bash " + save("ask.bash", ask)));
    std::set<std::string> offered;
    for (std::string line; std::getline(lines, line);) {
        const size_t end = line.find('>');
        std::istringstream words(line.substr(end + 1));
        for (std::string word; words >> word;) {
            offered.insert(line.substr(0, end + 1) + "|" + word);
        }
    }
    for (const std::string& one : expected) {
        EXPECT_EQ(offered.count(one), 1U) << one;
    }
    EXPECT_EQ(offered.count("orvplay units --out orvplay.b>|orvplay.bash"), 1U);
    EXPECT_EQ(offered.lower_bound("orvplay units --service >|"),
              offered.lower_bound("orvplay units --service >}"));
}

TEST_F(Manual, FishAndZshReadTheirScripts) {
    const std::string fish = save("orvplay.fish", fishCompletion(mPlayer));
    EXPECT_EQ(outputOf("fish -c 'source " + fish +
                       "; complete -C \"orvplay units --stage \"' 2>&1 | cut -f1 | sort"),
              "pes\nunits\n");
    EXPECT_EQ(
        outputOf("fish -c 'source " + fish + "; complete -C \"orvplay record sh\"' 2>&1 | cut -f1"),
        "show\n");
    EXPECT_EQ(outputOf("zsh -n " + save("_orvplay", zshCompletion(mPlayer)) + " 2>&1; echo $?"),
              "0\n");
}

}  // namespace
