#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>

#include "OpenMetrics.h"

namespace orvplay {

// A figure that a player tells of itself.
struct FigureKind {
    const char* key;     // in JSON; a figure that does not exist there is left out
    const char* metric;  // as a metric; before it "orvplay_", behind it the unit
    OpenMetrics::Type type;
    const char* unit;   // empty: a number of things
    const char* label;  // where the value is an object: what its keys are; else empty
    const char* help;   // for people
};

// All of them, in the order in which they are told.
std::span<const FigureKind> figureTable();

// Each is what one player told: its figures by their keys, and its process number as "pid".
using Figures = nlohmann::json;
std::string figuresText(const Figures& player);
std::string figuresOpenMetrics(std::span<const Figures> players);

}  // namespace orvplay
