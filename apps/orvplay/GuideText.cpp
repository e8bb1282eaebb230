#include "GuideText.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "HumanText.h"
#include "channels/BroadcastText.h"

using orvhost::BroadcastEvent;
using orvhost::BroadcastInformation;

namespace orvplay {

namespace {

std::string textOf(const BroadcastInformation& information, const BroadcastEvent& event,
                   const std::vector<uint8_t>& raw) {
    return broadcastText(raw, textCodingOf(information.originalNetworkId, event.language));
}

// A time of day where the broadcast is.
std::string clockText(const BroadcastInformation& information, int64_t utcS) {
    constexpr int64_t DAY_S = 86'400;
    const int64_t local = utcS + information.clock.localOffsetMinutes * int64_t{60};
    const auto minutes = static_cast<int>((local % DAY_S + DAY_S) % DAY_S / 60);
    char text[16];
    snprintf(text, sizeof text, "%02d:%02d", minutes / 60 % 24, minutes % 60);
    return text;
}

}  // namespace

const BroadcastEvent* eventOf(const BroadcastInformation& information, uint16_t serviceId,
                              bool following) {
    const auto& events = information.events;
    const auto found = std::find_if(events.begin(), events.end(), [&](const auto& event) {
        return event.serviceId == serviceId && event.following == following;
    });
    return found != events.end() ? &*found : nullptr;
}

std::string eventName(const BroadcastInformation& information, const BroadcastEvent& event) {
    return printable(textOf(information, event, event.rawName));
}

std::string eventText(const BroadcastInformation& information, const BroadcastEvent& event) {
    return textOf(information, event, event.rawText);
}

std::string eventLine(const BroadcastInformation& information, const BroadcastEvent& event) {
    std::string line;
    if (event.startUtcS >= 0) {
        line = clockText(information, event.startUtcS);
        line += event.durationS >= 0
                    ? "-" + clockText(information, event.startUtcS + event.durationS) + " "
                    : " ";
    }
    return line + eventName(information, event);
}

nlohmann::ordered_json eventJson(const BroadcastInformation& information,
                                 const BroadcastEvent& event) {
    nlohmann::ordered_json line = {{"eventId", event.eventId},
                                   {"name", eventName(information, event)},
                                   {"text", eventText(information, event)}};
    if (event.startUtcS >= 0) {
        line["start"] = utcText(event.startUtcS);
    }
    if (event.durationS >= 0) {
        line["durationS"] = event.durationS;
    }
    return line;
}

std::string utcText(int64_t secondsSince1970) {
    const auto time = static_cast<time_t>(secondsSince1970);
    tm utc = {};
    char text[32];
    return gmtime_r(&time, &utc) != nullptr &&
                   strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc) > 0
               ? text
               : "";
}

}  // namespace orvplay
