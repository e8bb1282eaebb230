#pragma once

#include <atomic>

namespace orvhost {

// How much of a recording's index is made that this process makes of its file, in percent; -1 while
// none is. For the host's status lines. Any thread.
std::atomic<int>& indexPercent();

}  // namespace orvhost
