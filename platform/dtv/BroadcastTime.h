#pragma once

#include <cstdint>
#include <string>

#include "dtv/TableCursor.h"

namespace orvhost {

// The time stamps of ISDB-T's tables: a day (modified Julian date) and six decimal digits. They
// count in the standard time of the country, 9 hours ahead of UTC in Japan (ARIB STD-B10) and 3
// hours behind it in Brazil (ABNT NBR 15603-2), not in UTC as elsewhere.

// Reads five bytes. Seconds since the beginning of 1970 in the tables' own time; -1 where the
// stream leaves it open, or for no date.
int64_t readTableTime(TableCursor& cursor);

// Reads three bytes, hours, minutes and seconds; -1 likewise.
int32_t readDuration(TableCursor& cursor);

// What the tables' time is ahead of UTC, in minutes: by the country that the TOT names, else by the
// network, whose ids Japan has from 0x7C00 on.
int tableOffsetMinutes(const std::string& country, int originalNetworkId);

}  // namespace orvhost
