// The interpreter for the bytes of a statement body: characters, and the control codes of ARIB
// STD-B24 by the names it gives them.

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>

#include "common/Trace.h"
#include "decoder/ClosedCaptionDecoder.h"
#include "decoder/UTF32.h"

namespace OrvPlayer {

namespace {

enum Code : uint8_t {
    BEL = 0x07,
    FIRST_C0 = BEL,
    APB = 0x08,
    APF = 0x09,
    APD = 0x0A,
    APU = 0x0B,
    CS = 0x0C,
    APR = 0x0D,
    LS1 = 0x0E,
    LS0 = 0x0F,
    CAN = 0x18,
    SS2 = 0x19,
    ESC = 0x1B,
    SS3 = 0x1D,
    RS = 0x1E,
    US = 0x1F,
    LAST_C0 = US,
    BKF = 0x80,  // the first of the eight colours
    FIRST_C1 = BKF,
    NSZ = 0x8A,  // the last of the three sizes, which follow the colours
    SPL = 0x99,
    STL = 0x9A,
    CSI = 0x9B,
    LAST_C1 = 0x9D,
};

constexpr uint8_t HIDING_COLOUR = 0x58;
constexpr uint8_t FIRST_APS_ROW = 0x40;
constexpr uint8_t LAST_APS_ROW = 0x7F;

constexpr uint8_t FIRST_FINAL_BYTE = 0x42;
constexpr uint8_t LAST_FINAL_BYTE = 0x6E;
constexpr char KNOWN_FINAL_BYTES[] = "BSTVWXY]^_abcdefhn";  // whose parameters are stored
constexpr uint8_t PARAMETER_SEPARATOR = 0x3B;
constexpr uint8_t PARAMETERS_END = 0x20;

constexpr bool isWithin(uint8_t byte, uint8_t first, uint8_t last) {
    return byte >= first && byte <= last;
}

// The number that the digits at the start of the text make, 0 without one; at most INT_MAX.
int32_t decimal(const uint8_t* text, const uint8_t* end) {
    int64_t value = 0;
    for (; text != end && isWithin(*text, '0', '9'); ++text) {
        value = std::min<int64_t>(value * 10 + (*text - '0'), INT_MAX);
    }
    return static_cast<int32_t>(value);
}

}  // namespace

// In the order of ParameterCode.
const ClosedCaptionDecoder::CodeWithParameters ClosedCaptionDecoder::CODES_WITH_PARAMETERS[] = {
    {0x1C, 2}, {0x8B, 1}, {0x90, 1}, {0x91, 1}, {0x92, 2}, {0x93, 1},
    {0x94, 1}, {0x95, 1}, {0x97, 1}, {0x98, 1}, {0x9D, 2}, {0x16, 1},
};

void ClosedCaptionDecoder::processCCByte(unsigned char byte) {
    if (isWithin(byte, FIRST_C0, LAST_C0) || isWithin(byte, FIRST_C1, LAST_C1) ||
        mParamsExpected != 0) {
        findCommand(byte);
    } else if (mInCSI) {
        collectCSI(byte);
    } else if (mParameters[COL].bytes[0] != HIDING_COLOUR) {
        placeCharacter(byte);
    }
}

void ClosedCaptionDecoder::placeCharacter(unsigned char byte) {
    advanceCursor();
    const auto charset = mSpecialCharset ? UTF32::CHARSET_SPECIAL : UTF32::CHARSET_DEFAULT;
    mSpecialCharset = false;
    const uint32_t codePoint = UTF32::getUTF32Char(charset, static_cast<char>(byte));
    // Deliberate: a NUL on the first row takes the row back. See
    // InterpretationTest.PlacesCharacters.
    if (codePoint == 0 && mRow == 0) {
        mRow = NOT_PLACED;
    } else {
        mScreen[mRow][mColumn] = codePoint;
    }
    mNewLinePending = false;
}

// To where the next character goes; row and column are inside the screen then.
void ClosedCaptionDecoder::advanceCursor() {
    const bool rowGoesOn = mColumn < COLUMNS - 1 && !mNewLinePending;
    ++mColumn;
    if (rowGoesOn) {
        mRow = std::max(mRow, 0);
        return;
    }
    mColumn = 0;
    ++mRow;
    if (mRow == ROWS) {
        memmove(mScreen[0], mScreen[1], (ROWS - 1) * sizeof mScreen[0]);
        memset(mScreen[ROWS - 1], 0, sizeof mScreen[0]);
        mRow = ROWS - 1;
    }
}

void ClosedCaptionDecoder::findCommand(unsigned char byte) {
    if (mInCSI) {
        identifyCSICommand();
        mInCSI = false;
    }
    if (expectParameters(byte)) {
        return;
    }
    switch (byte) {
        case APD:
        case APR:
            mNewLinePending = true;
            return;
        case CS:
            clearScreenData();
            return;
        case SS3:
            mSpecialCharset = true;
            return;
        case CSI:
            mInCSI = true;
            return;
        case APB:
        case APF:
        case APU:
        case 0x17:
        case 0x1A:
        case RS:
        case US:
        case 0x96:
        case 0x9C:
            return;  // these say nothing here
        case BEL:
        case LS1:
        case LS0:
        case CAN:
        case SS2:
        case ESC:
        case SPL:
        case STL:
            mFlags.set(byte);
            return;
        default:
            break;
    }
    if (isWithin(byte, BKF, NSZ)) {
        mFlags.set(byte);
        return;
    }
    handleCommands(byte);
    // Codes without a meaning come here as well, whether a parameter is owed or not.
    mParamsExpected = std::max(mParamsExpected - 1, 0);
}

// False when the byte is no code with parameters.
bool ClosedCaptionDecoder::expectParameters(unsigned char byte) {
    const auto* code =
        std::find_if(std::begin(CODES_WITH_PARAMETERS), std::end(CODES_WITH_PARAMETERS),
                     [byte](const CodeWithParameters& entry) { return entry.code == byte; });
    if (code == std::end(CODES_WITH_PARAMETERS)) {
        return false;
    }
    mParameters[static_cast<size_t>(code - std::begin(CODES_WITH_PARAMETERS))].pending = true;
    mParamsExpected = code->parameters;
    return true;
}

void ClosedCaptionDecoder::handleCommands(unsigned char byte) {
    if (mParameters[APS].pending) {
        handleAPS(byte);
        return;
    }
    for (size_t code = SZX; code < PAPF; ++code) {
        Parameters& parameters = mParameters[code];
        if (!parameters.pending) {
            continue;
        }
        const int count = CODES_WITH_PARAMETERS[code].parameters;
        const bool isLast = count == 1 || mParamsExpected != count;
        parameters.bytes[isLast ? static_cast<size_t>(count) - 1 : 0] = byte;
        parameters.pending = !isLast;
        return;
    }
}

// Deliberate: whatever the row, the characters go to the next row; whatever the column, the cursor
// moves one column on. See InterpretationTest.TakesCodesAndTheirParametersOutOfTheText.
void ClosedCaptionDecoder::handleAPS(unsigned char byte) {
    Parameters& aps = mParameters[APS];
    if (mParamsExpected == 2) {
        if (isWithin(byte, FIRST_APS_ROW, LAST_APS_ROW)) {
            aps.bytes[0] = byte;
            mNewLinePending = true;
        } else {
            ORV_LOGE("%d out of scope at %s", byte,
                     "void OrvPlayer::ClosedCaptionDecoder::handleCommands(uint8_t)");
        }
    } else if (mParamsExpected == 1) {
        aps.bytes[1] = byte;
        ++mColumn;
        aps.pending = false;
    }
}

// Whatever the length of the sequence, its last byte is the last one kept.
void ClosedCaptionDecoder::collectCSI(unsigned char byte) {
    if (mCSILength < mCSIBuffer.size()) {
        ++mCSILength;
    }
    mCSIBuffer[mCSILength - 1] = byte;
}

// Deliberate: text behind a sequence was collected with it, up to the next control code, and is
// lost; its last character stands as the final byte. See
// InterpretationTest.TakesControlSequencesOutOfTheText.
void ClosedCaptionDecoder::identifyCSICommand() {
    const uint32_t length = mCSILength;
    mCSILength = 0;
    const uint8_t finalByte = length != 0 ? mCSIBuffer[length - 1] : 0;
    if (!isWithin(finalByte, FIRST_FINAL_BYTE, LAST_FINAL_BYTE)) {
        ORV_LOGV("CONTROLCODE not valid\n");
        return;
    }
    if (strchr(KNOWN_FINAL_BYTES, finalByte) == nullptr) {
        return;
    }
    mCSIParams.fill(0);
    const uint8_t* begin = mCSIBuffer.data();
    const uint8_t* end = std::find(begin, begin + length - 1, PARAMETERS_END);
    for (int32_t& parameter : mCSIParams) {
        const uint8_t* separator = std::find(begin, end, PARAMETER_SEPARATOR);
        parameter = decimal(begin, separator);
        if (separator == end) {
            break;
        }
        begin = separator + 1;
    }
}

}  // namespace OrvPlayer
