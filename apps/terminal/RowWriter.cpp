#include "RowWriter.h"

#include <algorithm>
#include <cmath>

#include "TextColumns.h"

namespace orvplay {

namespace {

// Those that a console's font has, too.
constexpr char FULL[] = "█";
constexpr char EMPTY[] = "░";

std::string repeated(const std::string& sign, int times) {
    std::string text;
    for (int i = 0; i < times; ++i) {
        text += sign;
    }
    return text;
}

}  // namespace

RowWriter& RowWriter::add(const std::string& text, Tone tone) {
    std::string fitting = cutToColumns(terminalText(text), left());
    if (!fitting.empty()) {
        mUsed += columnsOf(fitting);
        mRow.push_back({std::move(fitting), tone});
    }
    return *this;
}

RowWriter& RowWriter::skipTo(int column, Tone tone) {
    return add(std::string(static_cast<size_t>(std::clamp(column - mUsed, 0, left())), ' '), tone);
}

RowWriter& RowWriter::addAtEdge(const std::string& text, Tone tone) {
    const int columns = columnsOf(terminalText(text));
    if (columns > 0 && columns < left()) {
        skipTo(mColumns - columns);
        add(text, tone);
    }
    return *this;
}

RowWriter& RowWriter::addBar(int columns, double part, bool hasBlocks) {
    const int all = std::clamp(columns, 0, left());
    const int full = static_cast<int>(std::lround(std::clamp(part, 0.0, 1.0) * all));
    add(repeated(hasBlocks ? FULL : "#", full), Tone::STRONG);
    return add(repeated(hasBlocks ? EMPTY : "-", all - full), Tone::FAINT);
}

ScreenRow centred(const std::string& text, int columns, Tone tone) {
    RowWriter row(columns);
    return row.skipTo((columns - columnsOf(terminalText(text))) / 2).add(text, tone).row();
}

}  // namespace orvplay
