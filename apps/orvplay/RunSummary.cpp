#include "RunSummary.h"

#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <fstream>

#include "FrontendText.h"
#include "MonotonicTime.h"
#include "NetworkText.h"

namespace orvplay {

namespace {

double cpuSeconds() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double toDecimals(double value, int decimals) {
    const double scale = std::pow(10.0, decimals);
    return std::round(value * scale) / scale;
}

// How often the threads of this process gave up the processor to wait.
int64_t voluntarySwitches() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

// From the first IDR picture's way into the codec, as soon as all of it had come, to its way out.
nlohmann::ordered_json firstIdrMs(const orvclient::PlaybackFigures& service) {
    if (service.firstIdrQueuedUs == 0 || service.firstIdrReadyUs == 0) {
        return nullptr;
    }
    const int64_t us = service.firstIdrReadyUs - service.firstIdrQueuedUs;
    return toDecimals(static_cast<double>(us) * 1e-3, 1);
}

// The peak of this program: that of rusage may be its parent's, from before it was executed.
int64_t maxRssKb() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        int64_t kb = 0;
        if (word == "VmHWM:" && status >> kb) {
            return kb;
        }
    }
    return 0;
}

uint64_t thrownAway(const orvclient::PlaybackFigures& service) {
    return service.picturesReleasedUnseen + service.picturesDroppedAtWindow;
}

nlohmann::ordered_json quantiles(double p50Ms, double p99Ms, double maxMs) {
    return {{"p50", toDecimals(p50Ms, 1)},
            {"p99", toDecimals(p99Ms, 1)},
            {"max", toDecimals(maxMs, 1)}};
}

}  // namespace

void RunSummary::begin() {
    mBeginNs = monotonicNs();
    mCpuAtBegin = cpuSeconds();
    mSwitchesAtBegin = voluntarySwitches();
}

void RunSummary::outputsOpened(const ServiceCounts& service) {
    if (!mOpened) {
        mDroppedAtOpening = thrownAway(service);
        mThrownAwayInBreaks = 0;
        if (mThrownAwayAtBreak.has_value()) {
            mThrownAwayAtBreak = mDroppedAtOpening;
        }
        mOpened = true;
    }
}

void RunSummary::beginBreak(const ServiceCounts& service) {
    if (!mThrownAwayAtBreak.has_value()) {
        mThrownAwayAtBreak = thrownAway(service);
    }
}

void RunSummary::endBreak(const ServiceCounts& service) {
    if (mThrownAwayAtBreak.has_value()) {
        mThrownAwayInBreaks += thrownAway(service) - *mThrownAwayAtBreak;
        mThrownAwayAtBreak.reset();
    }
}

uint64_t RunSummary::dropped(const ServiceCounts& service) const {
    return mOpened ? mThrownAwayAtBreak.value_or(thrownAway(service)) - mDroppedAtOpening -
                         mThrownAwayInBreaks
                   : 0;
}

double RunSummary::ownCpuSeconds() const {
    return cpuSeconds() - mCpuAtBegin;
}

void RunSummary::end(const ServiceCounts& service) {
    endBreak(service);
    mDropped = dropped(service);
    mAudioFrames = service.audioFrames;
    mFirstIdrMs = firstIdrMs(service);
    mCpuSeconds = ownCpuSeconds() + service.cpuSeconds;
    mSwitches = voluntarySwitches() - mSwitchesAtBegin + service.voluntarySwitches;
    mMaxRssKb = maxRssKb() + service.maxRssKb;
}

double RunSummary::firstFrameMs(const PictureOutput::Figures& pictures) const {
    return pictures.firstFrameNs != 0 ? static_cast<double>(pictures.firstFrameNs - mBeginNs) * 1e-6
                                      : 0.0;
}

nlohmann::ordered_json RunSummary::toJson(const PictureOutput::Figures& pictures,
                                          const SyncMeter& sync) const {
    const Distribution skew = sync.skew();
    nlohmann::ordered_json line = {
        {"event", "summary"}, {"framesRendered", pictures.frames}, {"framesDropped", mDropped}};
    if (mHasSound) {
        line["audioFrames"] = mAudioFrames;
    }
    line["captions"] = mCaptions.load();
    line["firstFrameMs"] = pictures.frames > 0
                               ? nlohmann::ordered_json(toDecimals(firstFrameMs(pictures), 0))
                               : nlohmann::ordered_json(nullptr);
    line["firstIdrMs"] = mFirstIdrMs;
    line["frameJitterMs"] =
        quantiles(pictures.jitterP50Ms, pictures.jitterP99Ms, pictures.jitterMaxMs);
    line["longestGapMs"] = toDecimals(pictures.longestGapMs, 0);
    if (mHasSound) {
        line["avSkewMs"] = quantiles(skew.quantileMs(0.50), skew.quantileMs(0.99), skew.maxMs());
        line["avSkewMs"]["mean"] = toDecimals(skew.meanMs(), 1);
        line["avSkewMs"]["count"] = skew.count();
        line["avSkewMs"]["from"] = sync.measuredByMarks() ? "marks" : "timestamps";
    }
    if (pictures.numbers.read > 0) {
        line["frameNumbers"] = {{"first", pictures.numbers.first},
                                {"last", pictures.numbers.last},
                                {"missing", pictures.numbers.missing},
                                {"repeated", pictures.numbers.repeated},
                                {"backward", pictures.numbers.backward}};
    }
    if (mReception.network.datagrams > 0) {
        line["reception"] = networkJson(mReception.network);
        line["reception"]["continuityErrors"] = mReception.continuityErrors;
        line["reception"]["droppedPackets"] = mReception.droppedPackets;
    }
    if (mReception.frontend.present) {
        line["frontend"] = frontendJson(mReception.frontend);
    }
    line["cpuSeconds"] = toDecimals(mCpuSeconds, 2);
    line["voluntarySwitches"] = mSwitches;
    line["maxRssKb"] = mMaxRssKb;
    return line;
}

std::string RunSummary::toText(const PictureOutput::Figures& pictures,
                               const SyncMeter& sync) const {
    char sound[128] = "";
    if (mHasSound) {
        snprintf(sound, sizeof sound,
                 "Sound:    %llu sample frames, skew to the picture p99 %.1f ms\n",
                 static_cast<unsigned long long>(mAudioFrames), sync.skew().quantileMs(0.99));
    }
    char text[512];
    snprintf(text, sizeof text,
             "Pictures: %llu shown, %llu dropped, first after %.0f ms, jitter p99 %.1f ms\n"
             "%s"
             "Used:     %.2f s of processor time, %.0f MiB of memory at most\n",
             static_cast<unsigned long long>(pictures.frames),
             static_cast<unsigned long long>(mDropped), firstFrameMs(pictures),
             pictures.jitterP99Ms, sound, mCpuSeconds, static_cast<double>(mMaxRssKb) / 1024);
    return text + networkText(mReception.network) + frontendText(mReception.frontend);
}

}  // namespace orvplay
