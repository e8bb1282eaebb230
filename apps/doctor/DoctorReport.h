#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "Finding.h"

namespace orvdoctor {

// A line for people, with its end: state, check, what was found, and the command that mends it.
std::string toText(const Finding& finding);

// {"event":"check","check":"tuner","state":"missing","text":"...","fix":"..."}
nlohmann::ordered_json toJson(const Finding& finding);

// {"event":"summary","missing":["tuner"],"warnings":[]}
nlohmann::ordered_json summaryOf(const Findings& findings);

bool isComplete(const Findings& findings);  // nothing is missing

}  // namespace orvdoctor
