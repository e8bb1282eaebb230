#include "TerminalLoader.h"

#include <unistd.h>

#include "Interrupt.h"
#include "ProgramModule.h"

namespace orvplay {

namespace {

constexpr char MODULE[] = "orvterminal.so";

template <typename Entry>
Entry entry(const char* name, std::string* error) {
    void* const found = moduleEntry(MODULE, name, error);
    if (found == nullptr) {
        *error = "no terminal module: " + *error + "; install it again or use --headless";
    }
    return reinterpret_cast<Entry>(found);
}

}  // namespace

bool isOnTerminal() {
    return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
}

std::string terminalProblem() {
    if (!isOnTerminal()) {
        return "standard input and output are no terminal";
    }
    std::string error;
    const auto ask = entry<void (*)(char*, size_t)>("orvTerminalProblem", &error);
    if (ask == nullptr) {
        return error;
    }
    char problem[512] = {};
    ask(problem, sizeof problem);
    return problem;
}

std::unique_ptr<Display> createTerminal(KeptErrors& errors, std::string* error) {
    const auto giveBack = entry<void (*)()>("orvGiveBackTerminal", error);
    const auto create = entry<Display* (*)(KeptErrors*)>("orvCreateTerminal", error);
    if (giveBack == nullptr || create == nullptr) {
        return nullptr;
    }
    Interrupt::beforeSecond(giveBack);
    return std::unique_ptr<Display>(create(&errors));
}

}  // namespace orvplay
