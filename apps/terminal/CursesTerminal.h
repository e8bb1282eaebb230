#pragma once

#include <termios.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "KeyTable.h"
#include "ScreenRow.h"

struct screen;

namespace orvplay {

// The terminal on standard input and output, by ncurses: the only place that knows of it. At most
// one in a process, and from open() to close() everything on the thread that opened it.
//
// Ctrl-C and the like stay signals, which are the program's. Ctrl-Z gives the terminal back until
// the program goes on; SIGTSTP is taken for that. What the window's size is, ncurses is told by
// SIGWINCH.
class CursesTerminal {
public:
    CursesTerminal() = default;
    ~CursesTerminal() { close(); }
    CursesTerminal(const CursesTerminal&) = delete;  // owns the terminal
    CursesTerminal& operator=(const CursesTerminal&) = delete;

    // Why no screen can be drawn on a terminal of this type, in one line; empty when one can. Sets
    // the locale of characters for the process: to be called before threads run.
    static std::string problem();
    // After problem(). False when there is no terminal; nothing was changed then.
    bool open();
    void close();
    // For a signal's handler that is about to end the process: gives the terminal back, whatever
    // the thread that has it is doing.
    static void giveBackAtOnce();

    int columns() const;
    int rows() const;
    // Block signs and line signs can be shown.
    static bool hasBlocks();

    // Waits for a key, so long at most, and as long as the program is stopped. False when the
    // terminal is gone.
    bool wait(int ms);
    // The next key that was pressed; nothing when there is none.
    std::optional<Key> readKey();
    // The size changed, or the screen has to be drawn for another reason. True once for each.
    bool takeDamage();
    // One row for each of the screen, from the top. Nothing is drawn while the terminal takes
    // nothing.
    void draw(const std::vector<ScreenRow>& rows);

private:
    void chooseColours();
    void configureInput() const;
    void stopHere();
    std::optional<Key> keyOf(bool isNamed, unsigned int code);
    int attributesOf(Tone tone) const;

    screen* mScreen = nullptr;          // null while it is closed
    struct sigaction mStopAction = {};  // of SIGTSTP before
    bool mHasColours = false;
    bool mDamaged = false;
};

}  // namespace orvplay
