#include "TimingLog.h"

#include <cmath>
#include <optional>
#include <utility>

#include "MonotonicTime.h"

using orvhost::PresentationEvent;
using orvhost::TunerSignal;

namespace orvplay {

namespace {

constexpr int64_t GAP_NS = 500'000'000;
constexpr int64_t TEXT_LATE_NS = 1'000'000'000;  // a caption's text comes within that, or never
constexpr size_t MOST_TEXTS = 64;
constexpr double EARLY_MS = 201.0;  // so much ahead of its time sound is written at once
constexpr double MAX_LATE_MS = 1000.0;

// Why something was not shown; empty for what was.
const char* reasonOf(PresentationEvent::Outcome outcome) {
    switch (outcome) {
        case PresentationEvent::Outcome::SHUT:
            return "gate";
        case PresentationEvent::Outcome::LATE:
            return "late";
        case PresentationEvent::Outcome::EARLY:
            return "early";
        case PresentationEvent::Outcome::NO_CLOCK:
            return "noClock";
        case PresentationEvent::Outcome::SKIPPED:
            return "skipped";
        case PresentationEvent::Outcome::FLUSHED:
            return "flushed";
        case PresentationEvent::Outcome::CLOCK_OFF:
            return "clockOff";
        case PresentationEvent::Outcome::NO_WINDOW:
            return "window";
        default:
            return "";
    }
}

double rounded(double value, double perUnit) {
    return std::round(value * perUnit) / perUnit;
}

nlohmann::ordered_json clockOf(const PresentationEvent& event) {
    return event.clock90k == PresentationEvent::NO_TIME ? nlohmann::ordered_json()
                                                        : nlohmann::ordered_json(event.clock90k);
}

nlohmann::ordered_json fieldsOf(const PresentationEvent& event) {
    nlohmann::ordered_json fields = {{"pts", event.pts90k},
                                     {"clock", clockOf(event)},
                                     {"waitMs", event.waitMs},
                                     {"shown", event.outcome == PresentationEvent::Outcome::SHOWN}};
    if (const char* const why = reasonOf(event.outcome); *why != '\0') {
        fields["why"] = why;
    }
    return fields;
}

}  // namespace

void TimingLog::subscribe(orvclient::Callbacks* callbacks) {
    const auto also = [](auto first, auto second) {
        return [first, second](auto... values) {
            if (first) {
                first(values...);
            }
            second(values...);
        };
    };
    callbacks->onSignal = also(callbacks->onSignal, [this](unsigned, unsigned current) {
        constexpr const char* WORDS[] = {"signalGood", "signalWeak", "signalLost"};
        onFault(current < std::size(WORDS) ? WORDS[current] : "signal", monotonicNs());
    });
    callbacks->onBufferingBegin =
        also(callbacks->onBufferingBegin, [this] { onFault("buffering", monotonicNs()); });
    callbacks->onBufferingEnd =
        also(callbacks->onBufferingEnd, [this] { onFault("bufferingEnd", monotonicNs()); });
}

void TimingLog::begin(orvclient::Player& player, const std::string& source, int64_t beginNs,
                      bool isSteady) {
    mBeginNs = beginNs;
    mIsSteady = isSteady;
    write("start", beginNs, {{"source", source}});
    look(player);
}

void TimingLog::look(orvclient::Player& player) {
    orvhost::PresentationReport report;
    if (mBeginNs == 0 || !player.presentation(&report)) {
        return;
    }
    // What was missed before the first report is none of ours.
    if (std::exchange(mHasReported, true)) {
        mFile.miss(report.missed);
        for (const PresentationEvent& event : report.events) {
            onEvent(event, report.outputLatencyMs);
        }
    }
    writeCaptions(false);
    const int64_t nowNs = monotonicNs();
    writeFills(report, nowNs);
    const TunerSignal signal = player.tuner().signal();
    compareSignals(signal, nowNs);
    watchPackets(signal, nowNs);
    mSignal = signal;
}

void TimingLog::lookAtEnd(orvclient::Player& player) {
    mIsStopped = true;
    look(player);
}

void TimingLog::onEvent(const PresentationEvent& event, double latencyMs) {
    switch (event.kind) {
        case PresentationEvent::Kind::VIDEO:
            write("video", event.timeNs, fieldsOf(event));
            break;
        case PresentationEvent::Kind::AUDIO: {
            Json fields = fieldsOf(event);
            fields["frames"] = event.frames;
            if (latencyMs > 0.0 && event.frames > 0 && event.waitMs < EARLY_MS &&
                event.waitMs > -MAX_LATE_MS) {
                fields["skewMs"] = rounded(latencyMs - event.waitMs, 100);
            }
            write("audio", event.timeNs, fields);
            break;
        }
        case PresentationEvent::Kind::SILENCE:
            write("silence", event.timeNs,
                  {{"pts", event.pts90k}, {"clock", clockOf(event)}, {"frames", event.frames}});
            break;
        case PresentationEvent::Kind::CAPTION:
            if (event.outcome == PresentationEvent::Outcome::SHOWN) {
                mCaptions.push_back(event);
            } else {
                write("caption", event.timeNs, fieldsOf(event));
            }
            break;
        case PresentationEvent::Kind::CLOCK:
            if (mIsStopped) {
                break;
            }
            if (event.outcome == PresentationEvent::Outcome::RESET) {
                onFault("clockReset", event.timeNs);
            } else {
                onFault("clockJump", event.timeNs,
                        {{"to", event.pts90k}, {"jumpMs", event.waitMs}});
            }
            break;
    }
}

// A caption's text comes by itself, a moment after it was noted that it is shown.
void TimingLog::writeCaptions(bool all) {
    while (!mCaptions.empty()) {
        const PresentationEvent& event = mCaptions.front();
        const std::optional<std::string> text = takeText(event.timeNs);
        if (!text && !all && monotonicNs() - event.timeNs < TEXT_LATE_NS) {
            return;
        }
        Json fields = fieldsOf(event);
        if (text) {
            fields["text"] = *text;
        }
        write("caption", event.timeNs, fields);
        mCaptions.pop_front();
    }
}

// Texts of before belong to captions that were missed.
std::optional<std::string> TimingLog::takeText(int64_t timeNs) {
    std::lock_guard<std::mutex> guard(mTextLock);
    while (!mTexts.empty() && mTexts.front().timeNs < timeNs) {
        mTexts.pop_front();
    }
    if (mTexts.empty()) {
        return std::nullopt;
    }
    std::string utf8 = std::move(mTexts.front().utf8);
    mTexts.pop_front();
    return utf8;
}

void TimingLog::onCaption(const std::string& utf8) {
    std::lock_guard<std::mutex> guard(mTextLock);
    mTexts.push_back({monotonicNs(), utf8});
    if (mTexts.size() > MOST_TEXTS) {
        mTexts.pop_front();
    }
}

void TimingLog::onPicture(int64_t timestampNs) {
    if (mBeginNs != 0) {
        write("video", monotonicNs(),
              {{"pts", timestampNs / 1000 * 9 / 100}, {"clock", nullptr}, {"shown", true}});
    }
}

void TimingLog::writeFills(const orvhost::PresentationReport& report, int64_t nowNs) {
    if (report.fills.empty()) {
        return;
    }
    Json fields = Json::object();
    for (const orvhost::BufferFill& fill : report.fills) {
        fields[fill.name] = rounded(100.0 * fill.usedBytes / fill.sizeBytes, 100);
    }
    write("buffers", nowNs, {{"percent", fields}});
}

void TimingLog::compareSignals(const TunerSignal& signal, int64_t nowNs) {
    const std::pair<const char*, uint64_t TunerSignal::*> counts[] = {
        {"continuity", &TunerSignal::continuityErrors},
        {"transportErrors", &TunerSignal::transportErrors},
        {"scrambled", &TunerSignal::scrambled},
        {"syncLoss", &TunerSignal::syncLosses},
        {"packetsDropped", &TunerSignal::droppedPackets}};
    for (const auto& [what, count] : counts) {
        if (signal.*count > mSignal.*count) {
            onFault(what, nowNs, {{"count", signal.*count - mSignal.*count}});
        }
    }
    if (signal.network.lost > mSignal.network.lost) {
        onFault("datagramsLost", nowNs, {{"count", signal.network.lost - mSignal.network.lost}});
    }
}

void TimingLog::watchPackets(const TunerSignal& signal, int64_t nowNs) {
    if (!mIsSteady || signal.atEnd) {
        return;
    }
    if (signal.packets == mSignal.packets) {
        if (mPacketsNs != 0 && nowNs - mPacketsNs > GAP_NS && !std::exchange(mIsGap, true)) {
            onFault("sourceGap", mPacketsNs);
        }
        return;
    }
    if (std::exchange(mIsGap, false)) {
        onFault("sourceBack", nowNs, {{"gapMs", (nowNs - mPacketsNs) / 1'000'000}});
    }
    mPacketsNs = nowNs;
}

void TimingLog::onFault(const std::string& what, int64_t timeNs, const Json& more) {
    Json fields = {{"what", what}};
    if (more.is_object()) {
        fields.update(more);
    }
    write("fault", timeNs, fields);
}

void TimingLog::write(const char* kind, int64_t timeNs, const Json& fields) {
    const int64_t beginNs = mBeginNs;
    if (beginNs == 0) {
        return;
    }
    Json line = {{"kind", kind},
                 {"t", rounded(static_cast<double>(timeNs - beginNs) * 1e-9, 10'000)}};
    line.update(fields);
    // A caption may hold what is no valid UTF-8.
    mFile.write(line.dump(-1, ' ', false, Json::error_handler_t::replace));
}

int TimingLog::finish() {
    writeCaptions(true);
    return mFile.finish();
}

}  // namespace orvplay
