#include "NetworkText.h"

#include <cinttypes>
#include <cstdio>

namespace orvplay {

nlohmann::ordered_json networkJson(const orvhost::NetworkStatistics& network) {
    return {{"datagrams", network.datagrams},
            {"badDatagrams", network.badDatagrams},
            {"lost", network.lost},
            {"reordered", network.reordered},
            {"duplicates", network.duplicates},
            {"kernelDrops", network.kernelDrops},
            {"restarts", network.restarts},
            {"jitterMs", static_cast<double>(network.jitterUs) / 1000}};
}

std::string networkText(const orvhost::NetworkStatistics& network) {
    if (network.datagrams == 0) {
        return {};
    }
    char text[256];
    snprintf(text, sizeof text,
             "Network:  %" PRIu64 " datagrams, %" PRIu64 " lost on the way, %" PRIu64
             " dropped here, %" PRIu64 " reordered, %" PRIu64 " twice, %" PRIu64
             " without packets, jitter %.1f ms\n",
             network.datagrams, network.lost, network.kernelDrops, network.reordered,
             network.duplicates, network.badDatagrams,
             static_cast<double>(network.jitterUs) / 1000);
    return text;
}

}  // namespace orvplay
