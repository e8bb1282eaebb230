#pragma once

#include <dtv/BroadcastTypes.h>
#include <dtv/TunerTypes.h>

#include <string>
#include <vector>

#include "channels/Channel.h"

namespace orvplay {

// Looks for channels with the tuner of this process. An interruption ends every wait, and what is
// known of a source by then is no result.
class SourceScan {
public:
    // The longest wait for the first packets.
    explicit SourceScan(int timeoutMs) : mTimeoutMs(timeoutMs) {}

    // The services with picture or sound of one source. They are told by `channels`; where they are
    // received is the caller's to add.
    orvhost::TuneResult run(const std::string& source, std::vector<Channel>* channels);

private:
    const int mTimeoutMs;
};

}  // namespace orvplay
