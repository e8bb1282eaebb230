#pragma once

#include <dtv/TunerTypes.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "PlaySource.h"

namespace orvplay {

// What there is to be seen beside picture and captions, in plain values: the same for a window, a
// terminal, the desktop and other commands.

// A programme as the broadcast announces it; UTF-8.
struct Programme {
    std::string title;  // of one line
    std::string text;
    int64_t startUtcS = -1;  // -1: not told; the next likewise
    int64_t endUtcS = -1;

    bool operator==(const Programme&) const = default;
};

struct ScreenState {
    int64_t madeNs = 0;  // monotonic: clock and position went on since
    SourceKind kind = SourceKind::LIVE;
    std::string channelNumber;  // empty: it has none
    std::string name;           // of the service, the recording or the file
    uint16_t serviceId = 0;
    std::optional<Programme> now;
    std::optional<Programme> next;
    int64_t clockUtcS = -1;  // of the broadcast; -1: not told
    int localOffsetMinutes = 0;

    std::string signalText;          // "signal weak", "buffering 40 %"; empty: all is well
    orvhost::TunerSignal reception;  // of what is live

    int recordingNumber = 0;  // 0: nothing is recorded
    int64_t recordingMs = 0;
    int volumePercent = 100;
    bool isMuted = false;
    bool isPaused = false;
    int64_t positionMs = 0;  // how far it was played; of what is live since its first picture
    int64_t durationMs = 0;  // 0: unknown, or live

    int width = 0;  // of the picture; 0: none came
    int height = 0;
    bool isInterlaced = false;
    double picturesPerSecond = 0.0;  // 0: unknown
    uint64_t picturesDropped = 0;
    std::optional<double> skewMs;  // of sound against picture, positive: sound is late
};

// One row of the channel list.
struct ChannelRow {
    std::string number;
    std::string name;
    std::string now = {};    // title of what is on air there; empty: unknown
    uint16_t serviceId = 0;  // 0: unknown
    bool isHere = false;     // in what is tuned: its programmes can be known

    bool operator==(const ChannelRow&) const = default;
};

struct ChannelRows {
    std::vector<ChannelRow> rows;
    int playing = -1;  // which of them plays; -1: none
};

}  // namespace orvplay
