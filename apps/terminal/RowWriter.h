#pragma once

#include <string>

#include "ScreenRow.h"

namespace orvplay {

// Writes one row of a screen from left to right; what does not fit is cut. Texts come from
// anywhere: it makes them terminalText() itself.
class RowWriter {
public:
    explicit RowWriter(int columns) : mColumns(columns) {}

    RowWriter& add(const std::string& text, Tone tone = Tone::NORMAL);
    // Blanks up to that column, counted from 0; nothing where it is passed already.
    RowWriter& skipTo(int column, Tone tone = Tone::NORMAL);
    // At the right edge, where at least a blank and all of it fit; else nothing.
    RowWriter& addAtEdge(const std::string& text, Tone tone = Tone::NORMAL);
    // A bar of so many columns, of which this part, 0 to 1, is full.
    RowWriter& addBar(int columns, double part, bool hasBlocks);

    int left() const { return mColumns - mUsed; }
    const ScreenRow& row() const { return mRow; }

private:
    const int mColumns;
    int mUsed = 0;
    ScreenRow mRow;
};

// A row of one text in the middle.
ScreenRow centred(const std::string& text, int columns, Tone tone);

}  // namespace orvplay
