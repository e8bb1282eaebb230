#include "TerminalType.h"

#include <unistd.h>

#include <cstdlib>

// After all others.
#define NCURSES_NOMACROS
#include <curses.h>
#include <term.h>

namespace orvplay {

namespace {

std::string* gBytes = nullptr;  // where keepByte() puts them

int keepByte(int byte) {
    gBytes->push_back(static_cast<char>(byte));
    return byte;
}

}  // namespace

std::string terminalTypeProblem() {
    const char* type = getenv("TERM");
    if (type == nullptr || *type == 0) {
        return "TERM does not tell the type of the terminal";
    }
    int result = 0;
    if (setupterm(nullptr, STDOUT_FILENO, &result) != OK) {
        return std::string("the type of the terminal, TERM=") + type + ", is not known";
    }
    const bool canPlace = cursor_address != nullptr && clear_screen != nullptr;
    del_curterm(cur_term);
    return canPlace ? "" : std::string("a terminal of type ") + type + " cannot place text";
}

std::string endOfScreen() {
    std::string bytes;
    gBytes = &bytes;
    for (const char* sequence : {exit_attribute_mode, keypad_local, cursor_normal, exit_ca_mode}) {
        if (sequence != nullptr) {
            tputs(sequence, 1, keepByte);
        }
    }
    gBytes = nullptr;
    return bytes;
}

}  // namespace orvplay
