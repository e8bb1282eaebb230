#include "ChannelSource.h"

#include <dtv/TunerTypes.h>
#include <linux/dvb/frontend.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "ChannelLineup.h"
#include "ExitCode.h"
#include "PlaySource.h"
#include "ZapHistory.h"
#include "channels/ChannelList.h"
#include "dtv/LiveSource.h"
#include "dtv/SourceUri.h"

namespace orvplay {

namespace {

constexpr std::string_view DVB = "dvb:";

int fail(ExitCode code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

int refuseAdapter(const std::string& source) {
    return fail(EXIT_USAGE, source +
                                ": is no channel that an adapter receives; leave out --adapter, or "
                                "name it as in dvb://1?frequency=473142857");
}

bool isElsewhere(const std::string& source) {
    return source == "-" || source.empty() || source.find("://") != std::string::npos ||
           recordingNumberOf(source).has_value() || access(source.c_str(), F_OK) == 0;
}

void put(const Channel& channel, StreamOptions* options) {
    options->source = sourceOf(channel, options->adapter.value_or(0));
    if (options->service.empty() && channel.serviceId != 0) {
        options->service = std::to_string(channel.serviceId);
    }
}

}  // namespace

int resolveChannel(StreamOptions* options) {
    const std::string& source = options->source;
    if (isElsewhere(source)) {
        return options->adapter ? refuseAdapter(source) : int{EXIT_OK};
    }
    const bool named = source.compare(0, DVB.size(), DVB) == 0;
    const std::string wanted = named ? source.substr(DVB.size()) : source;
    ChannelList list;
    std::string error;
    if (!list.load(&error)) {
        return fail(EXIT_FAILED, error);
    }
    const Channel* const channel = list.find(wanted);
    if (channel == nullptr) {
        // What looks like the name of a file is the tuner's to complain of.
        const bool isPath = source.find_first_of("/.") != std::string::npos;
        return isPath && !named ? EXIT_OK
                                : fail(EXIT_NOT_FOUND, "no file and no channel \"" + wanted +
                                                           "\"; see: orvplay channels list");
    }
    if (options->adapter && !channel->dvb.isTuned()) {
        return refuseAdapter(wanted);
    }
    if (sourceOf(*channel).empty()) {
        return fail(EXIT_FAILED, "channel \"" + wanted +
                                     "\" is not of ISDB-T, nothing else is "
                                     "received here");
    }
    put(*channel, options);
    return EXIT_OK;
}

int resumeChannel(StreamOptions* options) {
    Channel last;
    if (lastChannel(&last)) {
        put(last, options);
        return EXIT_OK;
    }
    ChannelList list;
    std::string error;
    if (!list.load(&error)) {
        return fail(EXIT_FAILED, error);
    }
    const ChannelLineup lineup(list.channels());
    const int first = lineup.next(1);
    if (first == ChannelLineup::NONE) {
        return fail(EXIT_USAGE,
                    "nothing to play: find channels with orvplay scan, or name a source: orvplay "
                    "play SOURCE");
    }
    put(lineup.entries()[static_cast<size_t>(first)], options);
    return EXIT_OK;
}

std::string sourceOf(const Channel& channel, int adapter) {
    if (!channel.dvb.isTuned()) {
        return channel.source;
    }
    orvhost::DvbParameters place;
    place.adapter = adapter;
    uint32_t system = SYS_UNDEFINED;
    for (const auto& [command, value] : channel.dvb.properties) {
        if (command == DTV_FREQUENCY) {
            place.frequencyHz = value;
        } else if (command == DTV_BANDWIDTH_HZ && value != 0) {
            place.bandwidthHz = value;
        } else if (command == DTV_DELIVERY_SYSTEM) {
            system = value;
        }
    }
    return system == SYS_ISDBT ? place.uri() : std::string();
}

int adapterOf(const std::string& source) {
    std::string error;
    const auto uri = orvhost::SourceUri::parse(source, &error);
    const auto place = uri && uri->scheme == "dvb"
                           ? orvhost::DvbParameters::parse(uri->target, uri->parameters, &error)
                           : std::nullopt;
    return place ? place->adapter : 0;
}

std::string placeOf(const std::string& source) {
    std::string place;
    if (orvhost::SourceUri::isUri(source)) {
        orvhost::TuneResult result;
        place = orvhost::liveSourceKey(source, result);
    } else if (source != "-") {
        std::error_code failure;
        const auto whole = std::filesystem::absolute(source, failure);
        place = std::filesystem::weakly_canonical(whole, failure).string();
    }
    return place.empty() ? source : place;
}

void setPlace(const orvhost::DvbParameters& place, Channel* channel) {
    channel->dvb.properties = {{DTV_FREQUENCY, place.frequencyHz},
                               {DTV_BANDWIDTH_HZ, place.bandwidthHz},
                               {DTV_DELIVERY_SYSTEM, SYS_ISDBT}};
}

}  // namespace orvplay
