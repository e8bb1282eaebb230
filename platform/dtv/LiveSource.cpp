#include "dtv/LiveSource.h"

#include <dtv/TunerTypes.h>

#include <optional>

#include "dtv/SourceUri.h"
#include "dtv/dvb/DvbSource.h"
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
        result.message =
            text + ": no such kind of source; there are udp://, rtp://, dvb:// and files";
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

// Nothing for a source of another kind; `result` says what is wrong with one of this kind.
std::optional<DvbParameters> dvbParametersOf(const std::string& text, TuneResult& result) {
    std::string error;
    const auto uri = SourceUri::parse(text, &error);
    if (!uri || uri->scheme != "dvb") {
        return std::nullopt;
    }
    const auto parameters = DvbParameters::parse(uri->target, uri->parameters, &error);
    if (!parameters) {
        result = {TuneStatus::BadUri, text + ": " + error};
    }
    return parameters;
}

}  // namespace

std::string liveSourceKey(const std::string& uri, TuneResult& result) {
    if (const auto dvb = dvbParametersOf(uri, result); dvb || !result.ok()) {
        return dvb ? dvb->uri() : std::string();
    }
    const auto network = networkUriOf(uri, result);
    return network ? network->toString() : std::string();
}

std::unique_ptr<ByteSource> openLiveSource(const std::string& uri, HostClock& clock,
                                           TuneResult& result) {
    if (const auto dvb = dvbParametersOf(uri, result); dvb || !result.ok()) {
        return dvb ? DvbSource::open(*dvb, result) : nullptr;
    }
    const auto network = networkUriOf(uri, result);
    return network ? NetworkSource::over(DatagramSocket::open(*network, result), clock, result)
                   : nullptr;
}

bool isOnNetwork(const std::string& key) {
    TuneResult unused;
    return networkUriOf(key, unused).has_value();
}

std::unique_ptr<ByteSource> adoptLiveSource(int socket, const std::string& uri, HostClock& clock,
                                            TuneResult& result) {
    const auto network = networkUriOf(uri, result);
    return network
               ? NetworkSource::over(DatagramSocket::adopt(socket, *network, result), clock, result)
               : nullptr;
}

}  // namespace orvhost
