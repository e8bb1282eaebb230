#include "dtv/BroadcastTime.h"

namespace orvhost {

namespace {

constexpr int DAY_OF_1970 = 40587;  // modified Julian date
constexpr int64_t DAY_S = 86'400;
constexpr int FIRST_JAPANESE_NETWORK = 0x7C00;

// Two decimal digits; -1 when they are none.
int readDigits(TableCursor& cursor) {
    const uint8_t both = cursor.u8();
    const int high = both >> 4;
    const int low = both & 0x0F;
    return high > 9 || low > 9 ? -1 : high * 10 + low;
}

}  // namespace

int32_t readDuration(TableCursor& cursor) {
    if (cursor.left() < 3) {
        return -1;
    }
    const int hours = readDigits(cursor);
    const int minutes = readDigits(cursor);
    const int seconds = readDigits(cursor);
    if (hours < 0 || minutes < 0 || minutes > 59 || seconds < 0 || seconds > 59) {
        return -1;
    }
    return hours * 3600 + minutes * 60 + seconds;
}

int64_t readTableTime(TableCursor& cursor) {
    const int day = cursor.u16();
    const int32_t timeOfDay = readDuration(cursor);
    return day < DAY_OF_1970 || timeOfDay < 0 || timeOfDay >= DAY_S
               ? -1
               : (day - DAY_OF_1970) * DAY_S + timeOfDay;
}

int tableOffsetMinutes(const std::string& country, int originalNetworkId) {
    constexpr int JAPAN = 9 * 60;
    constexpr int BRAZIL = -3 * 60;
    if (!country.empty()) {
        return country == "JPN" ? JAPAN : BRAZIL;
    }
    return originalNetworkId >= FIRST_JAPANESE_NETWORK ? JAPAN : BRAZIL;
}

}  // namespace orvhost
