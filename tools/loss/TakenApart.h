// Takes a stream in memory apart with the player's receiver, parsers and extractors, in this
// process, as `orvplay units` does with a file.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "StreamSelection.h"
#include "UnitFlow.h"

namespace orvtest {

struct TakenUnit {
    int64_t pts90k = 0;
    uint64_t hash = 0;  // of its bytes; of a PES packet, those of the payload
    size_t size = 0;
    bool hasSps = false;  // of a picture: a sequence parameter set is in it
};

struct TakenApart {
    bool tuned = false;  // false: no transport stream was found in the bytes
    orvplay::UnitFlow::End end = orvplay::UnitFlow::End::NO_MEMORY;
    std::vector<TakenUnit> video;
    std::vector<TakenUnit> audio;
};

// Needs the tuner of the process for itself. `pes`: PES packets instead of units.
TakenApart takeApart(const std::vector<uint8_t>& stream, const orvplay::StreamSelection& selection,
                     bool pes);

// The first service with a picture and its streams, by the stream's tables. False when there is
// none; *error says why.
bool selectFirstService(const std::vector<uint8_t>& stream, orvplay::StreamSelection* selection,
                        std::string* error);

}  // namespace orvtest
