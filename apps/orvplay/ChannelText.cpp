#include "ChannelText.h"

#include <cstdio>

#include "HumanText.h"

namespace orvplay {

namespace {

constexpr size_t NUMBER_COLUMNS = 6;
constexpr size_t NAME_COLUMNS = 32;

std::string placeOf(const Channel& channel) {
    if (!channel.dvb.isTuned()) {
        return channel.source;
    }
    char text[32];
    snprintf(text, sizeof text, "%.3f MHz", channel.dvb.frequencyHz() / 1e6);
    return text;
}

}  // namespace

std::string tableOf(const std::vector<Channel>& channels) {
    std::string text;
    for (const Channel& channel : channels) {
        if (!channel.name.empty()) {
            text += column(printable(channel.number), NUMBER_COLUMNS) + " " +
                    column(printable(channel.name), NAME_COLUMNS) + " " +
                    (channel.oneSegment ? "1seg " : "     ") + printable(placeOf(channel)) + "\n";
        }
    }
    return text;
}

nlohmann::ordered_json toJson(const Channel& channel) {
    nlohmann::ordered_json line = {{"name", channel.name},
                                   {"number", channel.number},
                                   {"serviceId", channel.serviceId},
                                   {"oneSegment", channel.oneSegment}};
    if (channel.dvb.isTuned()) {
        line["frequencyHz"] = channel.dvb.frequencyHz();
        line["networkId"] = channel.dvb.networkId;
        line["transportStreamId"] = channel.dvb.transportId;
    } else {
        line["source"] = channel.source;
    }
    return line;
}

}  // namespace orvplay
