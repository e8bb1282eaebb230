// ncurses' wide characters, and none of its macros with the names of everything.
#define NCURSES_WIDECHAR 1
#define NCURSES_NOMACROS

#include <curses.h>

#include "CursesTerminal.h"

#include <langinfo.h>
#include <poll.h>
#include <unistd.h>
#include <utf8proc.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <utility>

#include "TerminalType.h"
#include "TextColumns.h"

namespace orvplay {

namespace {

constexpr int ESCAPE_MS = 100;  // within which the rest of a key's sequence comes
constexpr short GOOD_PAIR = 1;
constexpr short ALARM_PAIR = 2;
constexpr wint_t CTRL_L = 12;

// What a key comes as: a name of ncurses, or the character that the terminal sends.
struct NamedKey {
    bool isNamed;
    unsigned int code;
    Key::Name name;
};
constexpr NamedKey NAMED_KEYS[] = {
    {true, KEY_LEFT, Key::LEFT},     {true, KEY_RIGHT, Key::RIGHT},
    {true, KEY_UP, Key::UP},         {true, KEY_DOWN, Key::DOWN},
    {true, KEY_PPAGE, Key::PAGE_UP}, {true, KEY_NPAGE, Key::PAGE_DOWN},
    {true, KEY_HOME, Key::HOME},     {true, KEY_END, Key::END},
    {true, KEY_ENTER, Key::ENTER},   {true, KEY_BACKSPACE, Key::BACKSPACE},
    {false, '\r', Key::ENTER},       {false, '\n', Key::ENTER},
    {false, '\t', Key::TAB},         {false, '\b', Key::BACKSPACE},
    {false, 0x7F, Key::BACKSPACE},   {false, 0x1B, Key::ESCAPE},
};

std::atomic<bool> gStopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);  // handlers use them

// For giveBackAtOnce(): written while no signal can come for it, that is before gIsOpen is set.
std::atomic<bool> gIsOpen{false};
termios gModesBefore;
char gWayBack[256];
size_t gWayBackSize = 0;

void onStopSignal(int) {
    gStopRequested = true;
}

// The characters of the text as the locale has them, each in as many columns as it was measured
// with.
std::wstring wide(const std::string& text) {
    std::wstring characters;
    const auto* at = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    auto left = static_cast<utf8proc_ssize_t>(text.size());
    while (left > 0) {
        utf8proc_int32_t code = 0;
        const utf8proc_ssize_t got =
            std::max<utf8proc_ssize_t>(utf8proc_iterate(at, left, &code), 1);
        const int columns =
            columnsOf(std::string(reinterpret_cast<const char*>(at), static_cast<size_t>(got)));
        if (wcwidth(static_cast<wchar_t>(code)) == columns) {
            characters.push_back(static_cast<wchar_t>(code));
        } else {
            characters.append(static_cast<size_t>(columns), L'?');
        }
        at += got;
        left -= got;
    }
    return characters;
}

}  // namespace

std::string CursesTerminal::problem() {
    if (std::string problem = terminalTypeProblem(); !problem.empty()) {
        return problem;
    }
    // Where nothing is said of it, as on a console, a terminal of today reads UTF-8.
    if (setlocale(LC_CTYPE, "") == nullptr || strcmp(nl_langinfo(CODESET), "ANSI_X3.4-1968") == 0) {
        setlocale(LC_CTYPE, "C.UTF-8");
    }
    return {};
}

bool CursesTerminal::open() {
    if (tcgetattr(STDIN_FILENO, &gModesBefore) != 0) {
        return false;
    }
    // Before ncurses, which takes the signal where nobody else has: it would draw on whichever
    // thread gets it.
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGTSTP, &action, &mStopAction);
    mScreen = newterm(nullptr, stdout, stdin);
    if (mScreen == nullptr) {
        sigaction(SIGTSTP, &mStopAction, nullptr);
        return false;
    }
    const std::string end = endOfScreen();
    gWayBackSize = std::min(end.size(), sizeof gWayBack);
    memcpy(gWayBack, end.data(), gWayBackSize);
    gIsOpen = true;
    configureInput();
    chooseColours();
    curs_set(0);
    mDamaged = true;
    return true;
}

void CursesTerminal::close() {
    if (mScreen == nullptr) {
        return;
    }
    endwin();
    gIsOpen = false;
    delscreen(mScreen);
    mScreen = nullptr;
    sigaction(SIGTSTP, &mStopAction, nullptr);
}

void CursesTerminal::giveBackAtOnce() {
    if (gIsOpen) {
        [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, gWayBack, gWayBackSize);
        tcsetattr(STDIN_FILENO, TCSANOW, &gModesBefore);
    }
}

void CursesTerminal::configureInput() const {
    cbreak();
    noecho();
    nonl();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    intrflush(stdscr, FALSE);
    set_escdelay(ESCAPE_MS);
    // Ctrl-S is a key: a screen that stands still would be taken for a fault.
    termios modes;
    if (tcgetattr(STDIN_FILENO, &modes) == 0) {
        modes.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF);
        tcsetattr(STDIN_FILENO, TCSANOW, &modes);
        def_prog_mode();
    }
}

void CursesTerminal::chooseColours() {
    const char* noColour = getenv("NO_COLOR");
    const bool isRefused = noColour != nullptr && *noColour != 0;
    mHasColours = !isRefused && has_colors() && start_color() == OK;
    if (mHasColours) {
        const short background = use_default_colors() == OK ? -1 : COLOR_BLACK;
        init_pair(GOOD_PAIR, COLOR_GREEN, background);
        init_pair(ALARM_PAIR, COLOR_YELLOW, background);
    }
}

int CursesTerminal::columns() const {
    return getmaxx(stdscr);
}

int CursesTerminal::rows() const {
    return getmaxy(stdscr);
}

bool CursesTerminal::hasBlocks() {
    return strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

// Stopped as if the signal had not been taken.
void CursesTerminal::stopHere() {
    gStopRequested = false;
    endwin();
    struct sigaction ours = {};
    sigaction(SIGTSTP, &mStopAction, &ours);
    raise(SIGTSTP);
    sigaction(SIGTSTP, &ours, nullptr);
    clearok(stdscr, TRUE);
    mDamaged = true;
}

bool CursesTerminal::wait(int ms) {
    if (gStopRequested) {
        stopHere();
    }
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, ms) <= 0 || (input.revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

std::optional<Key> CursesTerminal::readKey() {
    for (;;) {
        wint_t code = 0;
        const int result = get_wch(&code);
        if (result != OK && result != KEY_CODE_YES) {
            return std::nullopt;
        }
        if (const auto key = keyOf(result == KEY_CODE_YES, code); key.has_value()) {
            return key;
        }
    }
}

std::optional<Key> CursesTerminal::keyOf(bool isNamed, unsigned int code) {
    for (const NamedKey& key : NAMED_KEYS) {
        if (key.isNamed == isNamed && key.code == code) {
            return Key{key.name};
        }
    }
    const bool isRefresh = !isNamed && code == CTRL_L;
    if (isRefresh) {
        clearok(stdscr, TRUE);
    }
    mDamaged |= isRefresh || (isNamed && code == KEY_RESIZE);
    return !isNamed && code >= L' ' ? std::optional<Key>({Key::CHARACTER, char32_t(code)})
                                    : std::nullopt;
}

bool CursesTerminal::takeDamage() {
    return std::exchange(mDamaged, false);
}

int CursesTerminal::attributesOf(Tone tone) const {
    switch (tone) {
        case Tone::STRONG:
            return A_BOLD;
        case Tone::FAINT:
            return A_DIM;
        case Tone::GOOD:
            return mHasColours ? COLOR_PAIR(GOOD_PAIR) : A_NORMAL;
        case Tone::ALARM:
            return A_BOLD | (mHasColours ? COLOR_PAIR(ALARM_PAIR) : A_NORMAL);
        case Tone::REVERSE:
            return A_REVERSE;
        default:
            return A_NORMAL;
    }
}

void CursesTerminal::draw(const std::vector<ScreenRow>& rows) {
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 1 || (output.revents & POLLOUT) == 0) {
        mDamaged = true;
        return;
    }
    erase();
    for (size_t i = 0; i < rows.size(); ++i) {
        move(static_cast<int>(i), 0);
        for (const Span& span : rows[i]) {
            attrset(attributesOf(span.tone));
            addwstr(wide(span.text).c_str());
        }
    }
    refresh();
}

}  // namespace orvplay
