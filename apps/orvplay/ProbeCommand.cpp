#include "ProbeCommand.h"

#include <unistd.h>

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "ChannelSource.h"
#include "EventLog.h"
#include "FrontendText.h"
#include "GuideText.h"
#include "HumanText.h"
#include "Interrupt.h"
#include "MonotonicTime.h"
#include "NetworkText.h"
#include "ServiceNames.h"
#include "StatusLine.h"
#include "TuneFailure.h"
#include "TuneHere.h"
#include "dtv/SourceUri.h"
#include "dtv/Tuner.h"

using orvhost::ElementaryStream;
using orvhost::PID_NONE;
using orvhost::PidStatistics;
using orvhost::Service;
using orvhost::StreamKind;

namespace orvplay {

namespace {

constexpr int TABLES_TIMEOUT_MS = 5000;
constexpr auto LOOK_PERIOD = std::chrono::milliseconds(20);

const char* kindName(const ElementaryStream& stream) {
    switch (stream.kind) {
        case StreamKind::Video:
            return "video";
        case StreamKind::AudioLatm:
            return "AAC audio (LATM)";
        case StreamKind::AudioAdts:
            return "AAC audio (ADTS)";
        case StreamKind::AudioMpeg:
            return "MPEG audio";
        case StreamKind::Caption:
            return isCaptions(stream) ? "captions" : "private data";
        default:
            return "other";
    }
}

// Reads the source for its statistics: a file to its end, a pipe for the time the user gave.
orvhost::TunerStatistics readThrough(const ProbeOptions& options) {
    orvhost::Tuner& tuner = orvhost::Tuner::instance();
    StatusLine status;
    const int64_t begin = monotonicNs();
    const auto limitNs = static_cast<int64_t>(options.durationS * 1e9);
    const bool endless = options.source == "-" || orvhost::SourceUri::isUri(options.source);
    while (!tuner.atEnd() && !Interrupt::requested() &&
           (!endless || monotonicNs() - begin < limitNs)) {
        status.show("reading: " + std::to_string(tuner.statistics().bytes >> 20) + " MiB");
        std::this_thread::sleep_for(LOOK_PERIOD);
    }
    return tuner.statistics();
}

using PidMap = std::map<uint16_t, PidStatistics>;

PidMap byPid(const orvhost::TunerStatistics& statistics) {
    PidMap pids;
    for (const PidStatistics& pid : statistics.pids) {
        pids[pid.pid] = pid;
    }
    return pids;
}

double pcrIntervalMs(const PidMap& pids, uint16_t pid) {
    const auto found = pids.find(pid);
    return found != pids.end() ? static_cast<double>(found->second.maxPcrIntervalNs) * 1e-6 : 0.0;
}

// As a shell takes it for one word.
std::string shellWord(const std::string& text) {
    constexpr char PLAIN[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./:@%+=,[]";
    if (text.find_first_not_of(PLAIN) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return word + "'";
}

std::string playLine(const ProbeOptions& options, const Service& service) {
    return "orvplay play " + shellWord(options.source) + " --service " +
           std::to_string(service.serviceId);
}

nlohmann::ordered_json toJson(const ElementaryStream& stream, const PidMap& pids) {
    nlohmann::ordered_json line = {{"pid", stream.pid},
                                   {"streamType", stream.streamType},
                                   {"kind", kindName(stream)},
                                   {"language", stream.language}};
    if (const auto found = pids.find(stream.pid); found != pids.end()) {
        line["packets"] = found->second.packets;
        line["continuityErrors"] = found->second.continuityErrors;
        line["scrambled"] = found->second.scrambled;
    }
    return line;
}

// What tells of the service: its kind, what is on air and what comes next.
void addGuide(const Service& service, const orvhost::BroadcastInformation& information,
              nlohmann::ordered_json* line) {
    (*line)["oneSegment"] = isOneSegment(service, information);
    for (const bool following : {false, true}) {
        if (const auto* event = eventOf(information, service.serviceId, following)) {
            (*line)[following ? "next" : "now"] = eventJson(information, *event);
        }
    }
}

void printGuide(const Service& service, const orvhost::BroadcastInformation& information) {
    for (const bool following : {false, true}) {
        if (const auto* event = eventOf(information, service.serviceId, following)) {
            printf("  %s %s\n",
                   following ? "next:  " : "on air:", eventLine(information, *event).c_str());
        }
    }
}

void printJson(const ProbeOptions& options, const orvhost::ServiceList& list,
               const orvhost::BroadcastInformation& information,
               const orvhost::TunerStatistics& statistics) {
    EventLog log(true);
    const PidMap pids = byPid(statistics);
    for (const Service& service : list.services) {
        nlohmann::ordered_json streams = nlohmann::ordered_json::array();
        for (const ElementaryStream& stream : service.streams) {
            streams.push_back(toJson(stream, pids));
        }
        nlohmann::ordered_json line = {{"event", "service"},
                                       {"serviceId", service.serviceId},
                                       {"name", service.name},
                                       {"provider", service.provider},
                                       {"pmtPid", service.pmtPid},
                                       {"pcrPid", service.pcrPid},
                                       {"pcrIntervalMaxMs", pcrIntervalMs(pids, service.pcrPid)},
                                       {"streams", streams},
                                       {"play", playLine(options, service)}};
        addGuide(service, information, &line);
        log.writeLine(line);
    }
    uint64_t continuityErrors = 0;
    uint64_t transportErrors = 0;
    for (const PidStatistics& pid : statistics.pids) {
        continuityErrors += pid.continuityErrors;
        transportErrors += pid.transportErrors;
    }
    nlohmann::ordered_json summary = {{"event", "summary"},
                                      {"network", list.networkName},
                                      {"packets", statistics.packets},
                                      {"bytes", statistics.bytes},
                                      {"syncLosses", statistics.syncLosses},
                                      {"skippedBytes", statistics.skippedBytes},
                                      {"continuityErrors", continuityErrors},
                                      {"transportErrors", transportErrors}};
    if (information.clock.utcS >= 0) {
        summary["clock"] = utcText(information.clock.utcS);
    }
    if (statistics.network.datagrams > 0) {
        summary["reception"] = networkJson(statistics.network);
    }
    if (statistics.frontend.present) {
        summary["frontend"] = frontendJson(statistics.frontend);
    }
    log.writeLine(summary);
}

void printText(const ProbeOptions& options, const orvhost::ServiceList& list,
               const orvhost::BroadcastInformation& information,
               const orvhost::TunerStatistics& statistics) {
    const PidMap pids = byPid(statistics);
    if (!list.networkName.empty()) {
        printf("Network: %s\n", list.networkName.c_str());
    }
    for (const Service& service : list.services) {
        printf("Service %u%s%s%s\n", service.serviceId, service.name.empty() ? "" : ": ",
               printable(service.name).c_str(),
               isOneSegment(service, information) ? " (1seg)" : "");
        printGuide(service, information);
        printf("  PMT PID %u\n", service.pmtPid);
        if (service.pcrPid == PID_NONE) {
            printf("  no PCR\n");
        } else {
            printf("  PCR PID %u, at most %.1f ms apart\n", service.pcrPid,
                   pcrIntervalMs(pids, service.pcrPid));
        }
        for (const ElementaryStream& stream : service.streams) {
            const auto found = pids.find(stream.pid);
            const PidStatistics seen = found != pids.end() ? found->second : PidStatistics();
            printf("  PID %5u  type 0x%02x  %-24s %-3s  %llu packets, %llu continuity errors%s\n",
                   stream.pid, stream.streamType, kindName(stream), stream.language.c_str(),
                   static_cast<unsigned long long>(seen.packets),
                   static_cast<unsigned long long>(seen.continuityErrors),
                   seen.scrambled > 0 ? ", scrambled" : "");
        }
        printf("  %s\n", playLine(options, service).c_str());
    }
    printf("%s%s", networkText(statistics.network).c_str(),
           frontendText(statistics.frontend).c_str());
    printf("%llu packets, %llu bytes outside of packets, %llu losses of sync\n",
           static_cast<unsigned long long>(statistics.packets),
           static_cast<unsigned long long>(statistics.skippedBytes),
           static_cast<unsigned long long>(statistics.syncLosses));
}

}  // namespace

int probeCommand(const ProbeOptions& given) {
    Interrupt::install();
    ProbeOptions options = given;
    if (const int code = resolveChannel(&options); code != EXIT_OK) {
        return code;
    }
    orvhost::Tuner& tuner = orvhost::Tuner::instance();
    orvhost::TuneOptions tuning;
    tuning.paced = false;
    tuning.freeRunning = true;
    if (const orvhost::TuneResult tuned = tuneHere(options.source, tuning); !tuned.ok()) {
        fprintf(stderr, "orvplay: %s\n", tuned.message.c_str());
        return exitCodeOf(tuned.status);
    }
    const orvhost::ServiceList list = namedServices(tuner, TABLES_TIMEOUT_MS);
    const orvhost::TunerStatistics statistics = readThrough(options);
    const orvhost::BroadcastInformation information = tuner.information(0);
    tuner.untune();
    if (options.json) {
        printJson(options, list, information, statistics);
    } else {
        printText(options, list, information, statistics);
    }
    if (list.services.empty()) {
        fprintf(stderr, "orvplay: %s\n", list.result.message.c_str());
        return exitCodeOf(list.result.status);
    }
    return Interrupt::requested() ? EXIT_INTERRUPTED : EXIT_OK;
}

}  // namespace orvplay
