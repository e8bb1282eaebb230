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

// Whether what this key stands for comes through a socket.
bool isOnNetwork(const std::string& key);

// The same through a socket that the client opened for that URI, which stays the client's. Null
// with the reason in `result`, also for a socket of another kind.
std::unique_ptr<ByteSource> adoptLiveSource(int socket, const std::string& uri, HostClock& clock,
                                            TuneResult& result);

}  // namespace orvhost
