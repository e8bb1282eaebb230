#pragma once

#include <orvclient/Player.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Options.h"
#include "dtv/Services.h"

namespace orvplay {

// One of several streams of a kind that the user can change to.
struct Track {
    uint16_t pid = 0;
    orvhost::StreamKind kind = orvhost::StreamKind::Unknown;
    std::string language;  // ISO 639-2, empty when the tables name none
};

// What is to be played of a source; a PID of 0 stands for no such stream.
struct StreamSelection {
    std::string serviceName;
    uint16_t serviceId = 0;
    uint16_t pcrPid = 0;
    uint16_t videoPid = 0;
    uint16_t audioPid = 0;
    uint16_t captionPid = 0;
    orvhost::StreamKind audioKind = orvhost::StreamKind::AudioLatm;

    // Of the service, in the order of its table, with what the user named beside them.
    std::vector<Track> sounds;
    std::vector<Track> captions;

    // The sound after the one selected, the first again after the last; null without another.
    const Track* nextSound() const;
    // The captions to show after those selected, which are shown or not; null: none.
    const Track* nextCaptions(bool shown) const;

    // For the player service.
    orvclient::LiveSource liveSource() const;
};

// Picks the service and its streams, by the user's wishes: the first service with a picture, its
// first picture, its first sound and its first captions, unless told otherwise. False, and one line
// in *error that says what there is, when something that was named is not in the tables.
bool selectStreams(const std::vector<orvhost::Service>& services, const StreamOptions& options,
                   StreamSelection* selection, std::string* error);

// "705 \"News HD\"", for messages.
std::string describe(const orvhost::Service& service);
// "PID 274 (por)", likewise.
std::string describe(const Track& track);

}  // namespace orvplay
