#pragma once

#include <string>
#include <vector>

namespace orvplay {

// How a piece of text looks, where the terminal has the means.
enum class Tone {
    NORMAL,
    STRONG,
    FAINT,
    GOOD,
    ALARM,
    REVERSE,  // what is chosen
};

struct Span {
    std::string text;  // terminalText()
    Tone tone = Tone::NORMAL;
};

// A row of the screen, from its left edge; it is never wider than the screen.
using ScreenRow = std::vector<Span>;

}  // namespace orvplay
