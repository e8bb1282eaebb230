#pragma once

#include <map>
#include <string>

#include "StreamSelection.h"

namespace orvtest {

// The keys and values that the player's controller is configured with to play these streams live.
inline std::map<std::string, std::string> configurationOf(
    const orvplay::StreamSelection& selection) {
    using orvhost::StreamKind;
    return {{"sourceType", "0"},
            {"pcrPid", std::to_string(selection.pcrPid)},
            {"videoPid", std::to_string(selection.videoPid)},
            {"audioPid", std::to_string(selection.audioPid)},
            {"subtitlePid", std::to_string(selection.captionPid)},
            {"IsLATMAudio", selection.audioKind == StreamKind::AudioLatm ? "1" : "0"},
            {"isMPEG2Audio", selection.audioKind == StreamKind::AudioMpeg ? "1" : "0"}};
}

}  // namespace orvtest
