#include "dtv/LiveSource.h"

#include <dtv/TunerTypes.h>

#include <optional>

#include "dtv/SourceUri.h"
#include "dtv/network/NetworkSource.h"
#include "dtv/network/NetworkUri.h"

namespace orvhost {

namespace {

// Nothing, with the reason in `result`, for all that cannot be opened.
std::optional<NetworkUri> networkUriOf(const std::string& text, TuneResult& result) {
    result.status = TuneStatus::BadUri;
    const auto uri = SourceUri::parse(text, &result.message);
    if (!uri) {
        return std::nullopt;
    }
    if (!isNetworkScheme(uri->scheme)) {
        result.message = text + ": no such kind of source; there are udp://, rtp:// and files";
        return std::nullopt;
    }
    auto network = NetworkUri::from(*uri, &result.message);
    if (network && network->family == NetworkUri::Family::None) {
        result.message = network->toString() + ": names are not looked up here; give the address";
        return std::nullopt;
    }
    if (network) {
        result = {};
    }
    return network;
}

}  // namespace

std::string liveSourceKey(const std::string& uri, TuneResult& result) {
    const auto network = networkUriOf(uri, result);
    return network ? network->toString() : std::string();
}

std::unique_ptr<ByteSource> openLiveSource(const std::string& uri, HostClock& clock,
                                           TuneResult& result) {
    const auto network = networkUriOf(uri, result);
    return network ? NetworkSource::open(*network, clock, result) : nullptr;
}

}  // namespace orvhost
