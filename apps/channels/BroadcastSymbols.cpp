#include "channels/BroadcastSymbols.h"

#include <iterator>

namespace orvplay {

namespace {

constexpr int MARKS_ROW = 90;
constexpr int FIRST_MARK = 48;
constexpr std::u32string_view MARKS[] = {
    U"[HV]", U"[SD]", U"[P]",  U"[W]",  U"[MV]",  U"[手]", U"[字]", U"[双]", U"[デ]", U"[S]",
    U"[二]", U"[多]", U"[解]", U"[SS]", U"[B]",   U"[N]",  U"■",    U"●",    U"[天]", U"[交]",
    U"[映]", U"[無]", U"[料]", U"[鍵]", U"[前]",  U"[後]", U"[再]", U"[新]", U"[初]", U"[終]",
    U"[生]", U"[販]", U"[声]", U"[吹]", U"[PPV]", U"(秘)", U"ほか",
};

}  // namespace

std::u32string_view broadcastSymbol(int row, int cell) {
    const int index = cell - FIRST_MARK;
    const bool isMark =
        row == MARKS_ROW && index >= 0 && index < static_cast<int>(std::size(MARKS));
    return isMark ? MARKS[index] : std::u32string_view();
}

}  // namespace orvplay
