#pragma once

#include <dtv/BroadcastTypes.h>
#include <dtv/TunerTypes.h>

#include "channels/ScannedChannels.h"

namespace orvplay {

// What a tuner, of this process or of the player's, tells of its services, names as people read
// them: decoded as the network codes them.
template <typename Tuner>
orvhost::ServiceList namedServices(Tuner& tuner, int timeoutMs) {
    orvhost::ServiceList list = tuner.services(timeoutMs);
    const int network = tuner.information(0).originalNetworkId;
    for (orvhost::Service& service : list.services) {
        if (!service.rawName.empty()) {
            service.name = serviceName(service, network);
        }
    }
    return list;
}

}  // namespace orvplay
