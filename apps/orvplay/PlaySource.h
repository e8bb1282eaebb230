#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvplay {

// What SOURCE of `orvplay play` stands for.
enum class SourceKind {
    LIVE,       // a transport stream, played like a broadcast
    RECORDING,  // "recording:N"
    MEDIA,      // a file that holds something else
};

struct PlaySource {
    SourceKind kind = SourceKind::LIVE;
    std::string path;        // the name for the tuner, or of the file
    std::string title;       // for people; empty: the tables tell
    int number = 0;          // of a recording
    int64_t durationMs = 0;  // 0: unknown
    int64_t positionMs = 0;  // where playback of the recording stopped last
    bool asLive = false;     // a file that plays for ever, with this script of faults
    std::string faults = {};
};

// N of "recording:N", 0 when that is no number; nothing for any other source.
std::optional<int> recordingNumberOf(const std::string& source);

// Whether a name is that of a file which holds something, and no transport stream: by its first
// bytes, most of which are in packets where it is one. Pipes and files that cannot be read are
// left to the tuner, which says why.
bool isMediaFile(const std::string& path);
// That file as a source, called by its name without what follows the last point.
PlaySource mediaSource(const std::string& path);

}  // namespace orvplay
