#pragma once

#include <string>
#include <vector>

#include "channels/Channel.h"

namespace orvplay {

// Channel files in the format of libdvbv5 and its programs (dvbv5-scan, dvbv5-zap), read and
// written by that library.

// Appends the channels of a file; those without a name are transmitters alone, and are kept. False,
// with one line that says why, for a file that the library does not understand.
bool readDvbChannels(const std::string& path, std::vector<Channel>* channels, std::string* error);

// Writes those that have a tuning. Names lose what the format uses itself.
bool writeDvbChannels(const std::string& path, const std::vector<Channel>& channels,
                      std::string* error);

}  // namespace orvplay
