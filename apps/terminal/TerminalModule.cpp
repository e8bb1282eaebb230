// The entries of the terminal module, loaded by the program when it draws on a terminal.

#include "TerminalDisplay.h"

#define ORV_ENTRY extern "C" __attribute__((visibility("default")))

// Into `problem`, of so many bytes: see CursesTerminal::problem().
ORV_ENTRY void orvTerminalProblem(char* problem, size_t size) {
    snprintf(problem, size, "%s", orvplay::CursesTerminal::problem().c_str());
}

ORV_ENTRY orvplay::Display* orvCreateTerminal(orvplay::KeptErrors* errors) {
    return new orvplay::TerminalDisplay(*errors);
}

ORV_ENTRY void orvGiveBackTerminal() {
    orvplay::CursesTerminal::giveBackAtOnce();
}
