#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "ScreenState.h"

namespace orvplay {

// What a player plays, as JSON for other commands; what is unknown is left out.
nlohmann::json toJson(const ScreenState& state);

// What a player answered, that and a few of its figures, in a few lines for people.
std::string statusText(const nlohmann::json& status);

}  // namespace orvplay
