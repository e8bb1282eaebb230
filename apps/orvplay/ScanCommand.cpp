#include <cstdio>
#include <cstdlib>
#include <functional>

#include "ChannelSource.h"
#include "ChannelText.h"
#include "ChannelsCommand.h"
#include "EventLog.h"
#include "Interrupt.h"
#include "Messages.h"
#include "SourceScan.h"
#include "TuneFailure.h"
#include "channels/ChannelList.h"
#include "dtv/dvb/ChannelPlan.h"
#include "dtv/dvb/DvbParameters.h"

using orvhost::DvbParameters;
using orvhost::PlannedChannel;
using orvhost::TuneResult;
using orvhost::TuneStatus;

namespace orvplay {

namespace {

// The same place from every folder.
std::string lastingName(const std::string& source) {
    char* const whole =
        source.find("://") == std::string::npos ? realpath(source.c_str(), nullptr) : nullptr;
    const std::string name = whole != nullptr ? whole : source;
    free(whole);
    return name;
}

class ScanRun {
public:
    explicit ScanRun(const ScanOptions& options) : mOptions(options), mLog(options.json) {}

    int run() {
        const int code = mOptions.source.empty() ? scanAdapter() : scanSource();
        mMessages.line().clear();
        if (mFound > 0 && mOptions.keep) {
            mMessages.say(std::to_string(mFound) + " channels found, " + std::to_string(mAdded) +
                          " of them new, in " + mList.folder());
        }
        return Interrupt::requested() ? int{EXIT_INTERRUPTED} : code;
    }

private:
    int scanSource() {
        if (mOptions.source == "-") {
            return mMessages.fail(
                EXIT_USAGE, "standard input is no place to find a channel again; name a source");
        }
        mMessages.line().show("looking for services in " + mOptions.source);
        std::vector<Channel> channels;
        const TuneResult result = SourceScan(mTimeoutMs).run(mOptions.source, &channels);
        if (channels.empty()) {
            return Interrupt::requested()
                       ? int{EXIT_INTERRUPTED}
                       : mMessages.fail(exitCodeOf(result.status), result.message);
        }
        for (Channel& channel : channels) {
            channel.source = lastingName(mOptions.source);
        }
        return tell(channels);
    }

    int scanAdapter() {
        const auto plan = orvhost::channelPlan(mOptions.region);
        if (!plan) {
            return mMessages.fail(EXIT_USAGE, "no region \"" + mOptions.region + "\": br or jp");
        }
        for (size_t i = 0; i < plan->size() && !Interrupt::requested(); ++i) {
            const PlannedChannel& planned = (*plan)[i];
            const DvbParameters place{mOptions.adapter, 0, planned.frequencyHz,
                                      orvhost::CHANNEL_BANDWIDTH_HZ};
            mMessages.line().show("channel " + std::to_string(planned.number) + " (" +
                                  std::to_string(i + 1) + " of " + std::to_string(plan->size()) +
                                  "), " + place.shown() + ": " + std::to_string(mFound) +
                                  " services found");
            if (const int code = scanPlace(place); code != EXIT_OK) {
                return code;
            }
        }
        return mFound > 0 || Interrupt::requested()
                   ? EXIT_OK
                   : mMessages.fail(EXIT_NO_DATA, "nothing is received on any channel of region " +
                                                      mOptions.region +
                                                      "; is the antenna connected?");
    }

    // Where nothing is received is no failure; an adapter that cannot be used is.
    int scanPlace(const DvbParameters& place) {
        std::vector<Channel> channels;
        const TuneResult result = SourceScan(mTimeoutMs).run(place.uri(), &channels);
        switch (result.status) {
            case TuneStatus::NoSuchFile:
            case TuneStatus::PermissionDenied:
            case TuneStatus::ReadError:
            case TuneStatus::CannotOpen:
                return mMessages.fail(exitCodeOf(result.status), result.message);
            default:
                break;
        }
        for (Channel& channel : channels) {
            setPlace(place, &channel);
        }
        return channels.empty() ? int{EXIT_OK} : tell(channels);
    }

    // Prints them, and adds them at once: whatever comes later, they are kept.
    int tell(const std::vector<Channel>& channels) {
        mMessages.line().clear();
        mFound += channels.size();
        for (const Channel& channel : channels) {
            mLog.writeLine(toJson(channel));
        }
        if (!mOptions.json) {
            fputs(tableOf(channels).c_str(), stdout);
            fflush(stdout);
        }
        size_t added = 0;
        std::string error;
        if (mOptions.keep && !mList.add(channels, &added, &error)) {
            return mMessages.fail(EXIT_FAILED, error);
        }
        mAdded += added;
        return EXIT_OK;
    }

    const ScanOptions& mOptions;
    const int mTimeoutMs = static_cast<int>(mOptions.timeoutS * 1000);
    EventLog mLog;
    Messages mMessages;
    ChannelList mList;
    size_t mFound = 0;
    size_t mAdded = 0;
};

}  // namespace

int scanCommand(const ScanOptions& options) {
    Interrupt::install();
    return ScanRun(options).run();
}

}  // namespace orvplay
