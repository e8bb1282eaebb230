// Writes what a caption shows in the Latin coding of 8-bit captions (ARIB STD-B24 volume 1 part 2,
// ABNT NBR 15606-1), and keeps beside it what a screen of three rows of 32 columns then holds.
//
//   CaptionText caption;
//   caption.clear().position(12, 0).text("Bom dia").newRow().text("a todos");
//   caption.bytes();   // of a statement body
//   caption.shown();   // "Bom dia\na todos\n"
//
// A row of fewer than 32 characters ends with a line feed; a full one runs on into the next.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace mksample {

class CaptionText {
public:
    static constexpr int kColumns = 32;
    static constexpr int kRows = 3;

    // Characters of ISO/IEC 8859-15, given in UTF-8; behind the last column the next row begins.
    // Throws Failure for any other, and directly behind a control sequence: some decoders take
    // what follows one for a part of it, up to the next control code.
    CaptionText& text(const std::string& utf8);
    // A character of the special set, reached by single shift 3, and what it is in UTF-8.
    CaptionText& special(uint8_t code, const std::string& utf8);

    // Codes that move no text: colours, sizes, flashing, highlighting ...
    CaptionText& control(std::initializer_list<uint8_t> codes);
    // A control sequence, such as "7 S" (SWF).
    CaptionText& sequence(const std::string& rest);
    // Active position return and active position set: what follows stands on a row of its own.
    CaptionText& newRow();
    CaptionText& position(int row, int column);
    // Clear screen.
    CaptionText& clear();

    const std::vector<uint8_t>& bytes() const { return mBytes; }
    std::string shown() const;

private:
    struct Row {
        std::string text;
        int columns = 0;
    };
    void place(const std::string& utf8Character);

    std::vector<uint8_t> mBytes;
    std::vector<Row> mRowsShown;  // the last three are on the screen
    bool mRowPending = true;
    bool mInSequence = false;
};

}  // namespace mksample
