#pragma once

#include <dtv/BroadcastTypes.h>
#include <dtv/TunerTypes.h>

#include <string>
#include <vector>

#include "channels/Channel.h"

namespace orvplay {

// Names of a service as people read them.
std::string serviceName(const orvhost::Service& service, int originalNetworkId);

// Whether a service is one for partial reception: by the NIT, else by the PID of its PMT.
bool isOneSegment(const orvhost::Service& service,
                  const orvhost::BroadcastInformation& information);

// The services with picture or sound of a stream as channels of it, named, numbered and told apart
// by its tables. Where they are received is the caller's to add.
std::vector<Channel> scannedChannels(const std::vector<orvhost::Service>& services,
                                     const orvhost::BroadcastInformation& information);

}  // namespace orvplay
