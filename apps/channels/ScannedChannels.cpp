#include "channels/ScannedChannels.h"

#include <algorithm>

#include "channels/BroadcastText.h"

using orvhost::BroadcastInformation;
using orvhost::ElementaryStream;
using orvhost::Service;
using orvhost::StreamKind;

namespace orvplay {

namespace {

// Kept for partial reception (ARIB TR-B14, ABNT NBR 15603).
constexpr uint16_t FIRST_ONE_SEGMENT_PMT = 0x1FC8;
constexpr uint16_t LAST_ONE_SEGMENT_PMT = 0x1FCF;

bool isAudio(StreamKind kind) {
    return kind == StreamKind::AudioLatm || kind == StreamKind::AudioAdts ||
           kind == StreamKind::AudioMpeg;
}

bool isWatched(const Service& service) {
    return std::any_of(service.streams.begin(), service.streams.end(), [](const auto& stream) {
        return stream.kind == StreamKind::Video || isAudio(stream.kind);
    });
}

}  // namespace

std::string serviceName(const Service& service, int originalNetworkId) {
    const std::string name = broadcastText(service.rawName, textCodingOf(originalNetworkId));
    return name.empty() ? "Service " + std::to_string(service.serviceId) : name;
}

bool isOneSegment(const Service& service, const BroadcastInformation& information) {
    const auto& ids = information.oneSegment;
    return std::find(ids.begin(), ids.end(), service.serviceId) != ids.end() ||
           (service.pmtPid >= FIRST_ONE_SEGMENT_PMT && service.pmtPid <= LAST_ONE_SEGMENT_PMT);
}

std::vector<Channel> scannedChannels(const std::vector<Service>& services,
                                     const BroadcastInformation& information) {
    const int network = information.originalNetworkId;
    std::vector<Channel> channels;
    for (const Service& service : services) {
        if (!isWatched(service)) {
            continue;
        }
        Channel channel;
        channel.name = serviceName(service, network);
        channel.number = channelNumber(information.remoteControlKey, service.serviceId, network,
                                       channels.size());
        channel.serviceId = service.serviceId;
        channel.oneSegment = isOneSegment(service, information);
        DvbTuning& dvb = channel.dvb;
        dvb.networkId = static_cast<uint16_t>(std::max(information.networkId, 0));
        dvb.transportId = static_cast<uint16_t>(std::max(information.transportStreamId, 0));
        for (const ElementaryStream& stream : service.streams) {
            if (stream.kind == StreamKind::Video) {
                dvb.videoPids.push_back(stream.pid);
            } else if (isAudio(stream.kind)) {
                dvb.audioPids.push_back(stream.pid);
            } else {
                dvb.otherPids.emplace_back(stream.streamType, stream.pid);
            }
        }
        channels.push_back(std::move(channel));
    }
    return channels;
}

}  // namespace orvplay
