#include "mksample/CaptionSource.h"

#include <iterator>
#include <string>

#include "mksample/CaptionFraming.h"
#include "mksample/CaptionText.h"

namespace mksample {
namespace {

constexpr int64_t kPerMs = 90;
constexpr int64_t kManagementPeriodMs = 500;
constexpr int64_t kFirstManagementMs = -500;
constexpr int64_t kManagementAheadMs = 300;

constexpr int64_t kFirstDueMs = 1000;
constexpr int64_t kDuePeriodMs = 850;
// Nothing is due in the last stretch, which a player may not get to show.
constexpr int64_t kQuietEndMs = 700;

// Codes without parameters (0x80 to 0x8A), and with one.
constexpr uint8_t kRed = 0x81;
constexpr uint8_t kGreen = 0x82;
constexpr uint8_t kYellow = 0x83;
constexpr uint8_t kCyan = 0x86;
constexpr uint8_t kWhite = 0x87;
constexpr uint8_t kSmall = 0x88;
constexpr uint8_t kMiddle = 0x89;
constexpr uint8_t kNormal = 0x8A;
constexpr uint8_t kColour = 0x90;     // COL
constexpr uint8_t kFlash = 0x91;      // FLC
constexpr uint8_t kPolarity = 0x93;   // POL
constexpr uint8_t kHighlight = 0x97;  // HLC
constexpr uint8_t kUnderline = 0x9A;  // STL, ended by SPL
constexpr uint8_t kUnderlineEnd = 0x99;
constexpr uint8_t kTime = 0x9D;

int64_t dueMs(int64_t number) {
    return kFirstDueMs + number * kDuePeriodMs + number * 37 % 100;
}

// How long before its time a caption is sent. A rise stays under the period: the order is kept.
int64_t aheadMs(int64_t number) {
    static constexpr int64_t kAhead[] = {400, 1150, 800, 500, 1000, 650};
    return kAhead[static_cast<size_t>(number) % std::size(kAhead)];
}

// What most encoders begin with: a clear screen, the format (960 x 540), where the area and the
// characters are.
CaptionText beginning() {
    CaptionText caption;
    caption.clear().sequence("7 S").sequence("620;160 V").sequence("170;339 _").sequence("36;36 W");
    return caption;
}

CaptionText plain(const std::string& tag) {
    return beginning().position(1, 0).control({kWhite, kNormal}).text(tag + " legenda");
}

CaptionText accents(const std::string& tag) {
    return beginning()
        .position(0, 0)
        .text(tag + " ação, avó e pé")
        .newRow()
        .text("Šibenik, œuvre: 5 € à São João");
}

CaptionText specialSet(const std::string& tag) {
    CaptionText caption = beginning().position(0, 2).special(0x21, "♪").text(" " + tag + " ");
    caption.special(0x21, "♪").newRow().special(0x44, "“").text("então");
    return caption.special(0x40, "…").special(0x45, "”").text(" 3").special(0x49, "⅜");
}

CaptionText colours(const std::string& tag) {
    return beginning()
        .position(0, 0)
        .control({kYellow, kColour, 0x51, kFlash, 0x40})
        .text(tag)
        .control({kFlash, 0x4F, kCyan, kSmall})
        .text(" ciano")
        .control({kRed, kMiddle, kHighlight, 0x4F})
        .text(" rubro")
        .control({kGreen, kNormal, kHighlight, 0x40, kPolarity, 0x40, kUnderline})
        .text(" verde")
        .control({kUnderlineEnd});
}

CaptionText threeRows(const std::string& tag) {
    return beginning()
        .position(12, 4)
        .text("primeira linha")
        .newRow()
        .text(tag)
        .position(14, 0)
        .control({kWhite})
        .text("terceira linha");
}

CaptionText fullRow(const std::string& tag) {
    std::string row = tag + " ";
    row.resize(CaptionText::kColumns, '=');
    return beginning().position(0, 0).text(row).newRow().text("- Cheia?");
}

CaptionText overTheEnd(const std::string& tag) {
    return beginning().position(0, 0).text(tag + " uma frase que continua na linha seguinte");
}

CaptionText fiveRows(const std::string& tag) {
    return beginning()
        .position(0, 0)
        .text("some")
        .newRow()
        .text("some também")
        .newRow()
        .text("fica")
        .newRow()
        .text(tag)
        .newRow()
        .text("fica também");
}

CaptionText cleared(const std::string& tag) {
    return beginning()
        .position(0, 0)
        .text("ninguém vê isto")
        .control({kTime, 0x20, 0x42})
        .clear()
        .position(2, 0)
        .text(tag);
}

CaptionText compose(int64_t number) {
    using Form = CaptionText (*)(const std::string&);
    static constexpr Form kForms[] = {plain,   accents,    specialSet, colours, threeRows,
                                      fullRow, overTheEnd, fiveRows,   cleared};
    const std::string tag =
        "#" + std::to_string(number) + " " + std::to_string(dueMs(number)) + " ms";
    return kForms[static_cast<size_t>(number) % std::size(kForms)](tag);
}

}  // namespace

CaptionSource::CaptionSource(double durationS)
    : mEndMs(static_cast<int64_t>(durationS * 1000)), mManagementMs(kFirstManagementMs) {}

bool CaptionSource::next(PesUnit* unit) {
    const int64_t statementMs = dueMs(mNumber) - aheadMs(mNumber);
    if (dueMs(mNumber) <= mEndMs - kQuietEndMs && statementMs <= mManagementMs) {
        takeStatement(unit);
        return true;
    }
    if (mManagementMs + kManagementAheadMs > mEndMs) {
        return false;
    }
    takeManagement(unit);
    return true;
}

void CaptionSource::takeManagement(PesUnit* unit) {
    *unit = {};
    unit->payload = captionManagementPes();
    unit->pts = unit->dts = (mManagementMs + kManagementAheadMs) * kPerMs;
    unit->due = mManagementMs * kPerMs + LEAD_90K;
    mManagementMs += kManagementPeriodMs;
}

void CaptionSource::takeStatement(PesUnit* unit) {
    constexpr int64_t kTimings = 3;
    const CaptionText caption = compose(mNumber);
    CaptionStatement statement;
    statement.timing = static_cast<CaptionTiming>((mNumber + mNumber / 9) % kTimings);
    statement.timeMs = dueMs(mNumber);
    statement.body = caption.bytes();
    *unit = {};
    unit->payload = captionStatementPes(statement, static_cast<size_t>(mNumber % 4));
    unit->pts = unit->dts = dueMs(mNumber) * kPerMs;
    unit->due = (dueMs(mNumber) - aheadMs(mNumber)) * kPerMs + LEAD_90K;
    unit->caption = caption.shown();
    ++mNumber;
}

}  // namespace mksample
