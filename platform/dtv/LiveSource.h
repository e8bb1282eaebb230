#pragma once

#include <memory>
#include <string>

#include "dtv/ByteSource.h"
#include "dtv/HostClock.h"

namespace orvhost {

// What two URIs have in common that stand for the same packets, of one multiplex: another URI.
// Empty, with the reason in `result`, for what cannot be understood.
std::string liveSourceKey(const std::string& uri, TuneResult& result);

// Opens a source that is named by a URI, of whichever kind; never waits. Null with the reason in
// `result`.
std::unique_ptr<ByteSource> openLiveSource(const std::string& uri, HostClock& clock,
                                           TuneResult& result);

}  // namespace orvhost
