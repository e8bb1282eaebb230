#include "PlayerFigures.h"

#include <unistd.h>

#include <cmath>
#include <fstream>

#include "MonotonicTime.h"

namespace orvplay {

namespace {

using Json = nlohmann::json;

// To microseconds.
double toSeconds(double ms) {
    return std::round(ms * 1e3) / 1e6;
}

Json quantiles(double p50Ms, double p99Ms, double maxMs) {
    return {{"0.5", toSeconds(p50Ms)}, {"0.99", toSeconds(p99Ms)}, {"1", toSeconds(maxMs)}};
}

// 0: not to be known, or gone.
int64_t residentBytes(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
    int64_t total = 0;
    int64_t resident = 0;
    return file >> total >> resident ? resident * sysconf(_SC_PAGESIZE) : 0;
}

}  // namespace

Json PlayerFigures::toJson(bool isPaused) const {
    const std::string name =
        !mSources.source.title.empty() ? mSources.source.title : mSources.selection.serviceName;
    Json figures = {{"pid", getpid()},
                    {"player",
                     {{"source", mSources.source.path},
                      {"channel", name},
                      {"service", std::to_string(mSources.selection.serviceId)}}},
                    {"signal", mSources.service.signalName()},
                    {"paused", isPaused},
                    {"recording", mSources.session.player().isRecording()}};
    addPlayback(figures);
    addTimes(figures);
    if (mSources.source.kind == SourceKind::LIVE) {
        addReception(figures);
    }
    figures["channelChanges"] = mChannelChanges;
    figures["serviceRestarts"] = mServiceRestarts;
    addUsage(figures);
    return figures;
}

void PlayerFigures::addPlayback(Json& figures) const {
    const PictureOutput::Figures pictures = mSources.pictures.figures();
    const orvclient::PlaybackFigures& service = mSources.session.figures();
    figures["picturesShown"] = pictures.frames;
    figures["picturesDropped"] = mSources.summary.dropped(service);
    if (pictures.numbers.read > 0) {
        figures["picturesMissing"] = pictures.numbers.missing;
    }
    figures["captions"] = mSources.summary.captions();
    if (mSources.source.kind != SourceKind::MEDIA) {
        figures["audioFrames"] = service.audioFrames;
        figures["bufferedRatio"] = mSources.service.bufferedPercent() / 100.0;
    }
}

void PlayerFigures::addTimes(Json& figures) const {
    const PictureOutput::Figures pictures = mSources.pictures.figures();
    const int64_t beginNs = mSources.events.beginNs();
    const double uptimeMs = static_cast<double>(monotonicNs() - beginNs) * 1e-6;
    figures["uptimeSeconds"] = beginNs != 0 ? toSeconds(uptimeMs) : 0.0;
    if (const Distribution skew = mSources.sync.skew(); skew.count() > 0) {
        figures["skewSeconds"] = toSeconds(skew.meanMs());
        figures["skewMagnitudeSeconds"] =
            quantiles(skew.quantileMs(0.50), skew.quantileMs(0.99), skew.maxMs());
    }
    if (pictures.frames > 0) {
        figures["pictureJitterSeconds"] =
            quantiles(pictures.jitterP50Ms, pictures.jitterP99Ms, pictures.jitterMaxMs);
        figures["longestGapSeconds"] = toSeconds(pictures.longestGapMs);
    }
    if (mSources.source.kind != SourceKind::MEDIA) {
        figures["outputLatencySeconds"] = toSeconds(mSources.session.figures().outputLatencyMs);
    }
}

void PlayerFigures::addReception(Json& figures) const {
    const orvhost::TunerSignal signal = mSources.session.tuner().signal();
    if (!signal.tuned) {
        return;
    }
    figures["packets"] = signal.packets;
    figures["bytes"] = signal.bytes;
    figures["continuityErrors"] = signal.continuityErrors;
    figures["transportErrors"] = signal.transportErrors;
    figures["scrambledPackets"] = signal.scrambled;
    figures["droppedPackets"] = signal.droppedPackets;
    figures["syncLosses"] = signal.syncLosses;
    const orvhost::NetworkStatistics& network = signal.network;
    if (network.datagrams == 0) {
        return;
    }
    figures["datagrams"] = network.datagrams;
    figures["datagramsBad"] = network.badDatagrams;
    figures["datagramsLost"] = network.lost;
    figures["datagramsReordered"] = network.reordered;
    figures["datagramsDuplicate"] = network.duplicates;
    figures["datagramsDropped"] = network.kernelDrops;
    figures["senderRestarts"] = network.restarts;
    figures["receptionJitterSeconds"] = static_cast<double>(network.jitterUs) / 1e6;
}

void PlayerFigures::addUsage(Json& figures) const {
    const orvclient::PlaybackFigures& service = mSources.session.figures();
    figures["cpuSeconds"] = {{"player", toSeconds(mSources.summary.ownCpuSeconds() * 1e3)},
                             {"service", toSeconds(service.cpuSeconds * 1e3)}};
    Json memory = {{"player", residentBytes(getpid())}};
    if (const int64_t bytes = service.pid > 0 ? residentBytes(service.pid) : 0; bytes > 0) {
        memory["service"] = bytes;
    }
    figures["residentMemoryBytes"] = memory;
}

}  // namespace orvplay
