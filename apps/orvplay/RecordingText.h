#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "recording/RecordingDetails.h"

namespace orvplay {

// Recordings as text for people, and as objects for programs.

// A row of headings and one for each; one line without any.
std::string tableOf(const std::vector<orvhost::RecordingDetails>& recordings);
// All that is known of one, a row each.
std::string describe(const orvhost::RecordingDetails& recording);
nlohmann::ordered_json toJson(const orvhost::RecordingDetails& recording);

// "News, ORV HD"; what is not known is left out, the file's name when that is all of it.
std::string titleOf(const orvhost::RecordingDetails& recording);

}  // namespace orvplay
