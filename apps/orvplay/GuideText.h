#pragma once

#include <dtv/BroadcastTypes.h>

#include <nlohmann/json.hpp>
#include <string>

namespace orvplay {

// What is on air and what comes next, as people and programs read it.

// That of a service; null when the broadcast does not tell.
const orvhost::BroadcastEvent* eventOf(const orvhost::BroadcastInformation& information,
                                       uint16_t serviceId, bool following);

// UTF-8, of one line.
std::string eventName(const orvhost::BroadcastInformation& information,
                      const orvhost::BroadcastEvent& event);

// What the broadcast tells of it beside that; UTF-8, in lines.
std::string eventText(const orvhost::BroadcastInformation& information,
                      const orvhost::BroadcastEvent& event);

// "20:00-21:00 Notícias", in the local time of the broadcast; without times that it leaves open.
std::string eventLine(const orvhost::BroadcastInformation& information,
                      const orvhost::BroadcastEvent& event);

// Name, text, start (ISO 8601, UTC) and duration in seconds.
nlohmann::ordered_json eventJson(const orvhost::BroadcastInformation& information,
                                 const orvhost::BroadcastEvent& event);

// "2026-11-21T23:30:00Z".
std::string utcText(int64_t secondsSince1970);

}  // namespace orvplay
