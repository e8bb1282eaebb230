#pragma once

#include <dtv/TunerTypes.h>

#include <nlohmann/json.hpp>
#include <string>

namespace orvplay {

// How an adapter receives, as the summaries of the commands tell it; what its driver does not
// measure is left out.
nlohmann::ordered_json frontendJson(const orvhost::FrontendStatistics& frontend);
// A line for people; empty for a source that is no adapter.
std::string frontendText(const orvhost::FrontendStatistics& frontend);

}  // namespace orvplay
