#include "media/CodecStatistics.h"

namespace orvhost {

CodecStatistics& codecStatistics() {
    static CodecStatistics statistics;
    return statistics;
}

}  // namespace orvhost
