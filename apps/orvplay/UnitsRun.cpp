#include "UnitsRun.h"

extern "C" {
#include <libavutil/md5.h>
}

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <nlohmann/json.hpp>

#include "ExitCode.h"
#include "Interrupt.h"
#include "MonotonicTime.h"
#include "dtv/Tuner.h"

namespace orvplay {

namespace {

constexpr int PASSES_PER_LOOK = 64;
constexpr size_t PRINT_BUFFER_BYTES = 1 << 16;

UnitChain::Extraction audioExtraction(orvhost::StreamKind kind) {
    return kind == orvhost::StreamKind::AudioAdts ? UnitChain::Extraction::AAC_ADTS
                                                  : UnitChain::Extraction::AAC_LATM;
}

std::string md5Of(const uint8_t* bytes, size_t size) {
    uint8_t digest[16];
    av_md5_sum(digest, bytes, size);
    char text[2 * sizeof digest + 1];
    for (size_t i = 0; i < sizeof digest; ++i) {
        snprintf(text + 2 * i, 3, "%02x", digest[i]);
    }
    return text;
}

}  // namespace

UnitsRun::UnitsRun(const UnitsOptions& options, const StreamSelection& selection)
    : mOptions(options), mSelection(selection) {
    const bool pes = options.stage == "pes";
    const auto extraction = [pes](UnitChain::Extraction usual) {
        return pes ? UnitChain::Extraction::NONE : usual;
    };
    // In the order of the roles, as the receiver pairs its outputs.
    if (selection.videoPid != 0) {
        addStream("video", OrvPlayer::PID_TYPE_VIDEO, selection.videoPid,
                  extraction(UnitChain::Extraction::H264));
    }
    if (selection.audioPid != 0) {
        addStream("audio", OrvPlayer::PID_TYPE_AUDIO, selection.audioPid,
                  extraction(audioExtraction(selection.audioKind)));
    }
}

UnitsRun::~UnitsRun() {
    if (mOut != nullptr) {
        fclose(mOut);
    }
}

void UnitsRun::addStream(const std::string& name, OrvPlayer::TSReceiverPIDType role, uint16_t pid,
                         UnitChain::Extraction extraction) {
    mStreams.push_back(std::make_unique<Stream>());
    Stream& stream = *mStreams.back();
    stream.name = name;
    stream.pid = pid;
    stream.chain = std::make_unique<UnitChain>(
        role, extraction, [this, &stream](const Unit& unit) { return take(stream, unit); });
}

int UnitsRun::run() {
    if (!openOut()) {
        return EXIT_FAILED;
    }
    setvbuf(stdout, nullptr, _IOFBF, PRINT_BUFFER_BYTES);
    mBeginNs = monotonicNs();
    if (!open()) {
        fprintf(stderr, "orvplay: the streams cannot be set up: out of memory\n");
        return EXIT_FAILED;
    }
    const int code = work();
    mReceiver->stop();
    mStatus.clear();
    printSummary();
    return lastCode(code);
}

bool UnitsRun::openOut() {
    if (mOptions.out.empty()) {
        return true;
    }
    mOut = fopen(mOptions.out.c_str(), "wbe");
    if (mOut == nullptr) {
        fprintf(stderr, "orvplay: %s: cannot be written: %s\n", mOptions.out.c_str(),
                strerror(errno));
    }
    return mOut != nullptr;
}

bool UnitsRun::open() {
    mReceiver = new OrvPlayer::TSReceiver;
    std::map<OrvPlayer::TSReceiverPIDType, unsigned short> pids;
    for (const auto& stream : mStreams) {
        if (!stream->chain->open()) {
            return false;
        }
        mReceiver->addOutput(stream->chain->input(), nullptr);
        pids[stream->name == "video" ? OrvPlayer::PID_TYPE_VIDEO : OrvPlayer::PID_TYPE_AUDIO] =
            stream->pid;
    }
    return mReceiver->configure(pids) == 0 && mReceiver->open() == 0;
}

bool UnitsRun::take(Stream& stream, const Unit& unit) {
    const uint64_t index = stream.index++;
    if (mOut != nullptr && fwrite(unit.bytes, 1, unit.size, mOut) != unit.size) {
        mOutError = errno;
        return false;
    }
    if (mOptions.quiet) {
        return true;
    }
    const std::string md5 = md5Of(unit.bytes, unit.size);
    int written = printf("{\"stream\":\"%s\",\"index\":%" PRIu64 ",\"pts\":%" PRId64,
                         stream.name.c_str(), index, unit.pts90k);
    if (written > 0 && mOptions.stage == "pes") {
        written = printf(",\"dts\":%" PRId64 ",\"streamId\":%u,\"size\":%zu,\"md5\":\"%s\"}\n",
                         unit.dts90k, unit.streamId, unit.size, md5.c_str());
    } else if (written > 0) {
        written = printf(",\"size\":%zu,\"flags\":%u,\"md5\":\"%s\"}\n", unit.size, unit.flags,
                         md5.c_str());
    }
    if (written < 0) {
        mPrintError = errno;
    }
    return written >= 0;
}

// Returns EXIT_OK when the source was worked off.
int UnitsRun::work() {
    orvhost::Tuner& tuner = orvhost::Tuner::instance();
    bool ended = false;
    while (!ended) {
        if (Interrupt::requested()) {
            return EXIT_INTERRUPTED;
        }
        ended = tuner.atEnd() && tuner.demultiplexer().isDrained();
        if (!ended) {
            mReceiver->receivePass();
        }
        for (const auto& stream : mStreams) {
            if (const int code = workOff(*stream); code != EXIT_OK) {
                return code;
            }
        }
        showProgress();
    }
    return EXIT_OK;
}

int UnitsRun::workOff(Stream& stream) {
    switch (stream.chain->workOff()) {
        case UnitChain::State::SCRAMBLED:
            mStatus.clear();
            fprintf(stderr, "orvplay: PID %u is scrambled; choose a clear one (orvplay probe %s)\n",
                    stream.pid, mOptions.source.c_str());
            return EXIT_PLAYBACK;
        case UnitChain::State::SINK_CLOSED:
            return EXIT_FAILED;
        default:
            return EXIT_OK;
    }
}

void UnitsRun::showProgress() {
    if (++mPasses % PASSES_PER_LOOK == 0) {
        const uint64_t bytes = orvhost::Tuner::instance().statistics().bytes;
        mStatus.show("reading: " + std::to_string(bytes >> 20) + " MiB");
    }
}

void UnitsRun::printSummary() {
    uint64_t units = 0;
    uint64_t bytes = 0;
    nlohmann::ordered_json perStream = nlohmann::ordered_json::object();
    for (const auto& stream : mStreams) {
        units += stream->chain->units();
        bytes += stream->chain->bytes();
        perStream[stream->name] = {{"pid", stream->pid},
                                   {"units", stream->chain->units()},
                                   {"bytes", stream->chain->bytes()}};
    }
    const orvhost::TunerStatistics statistics = orvhost::Tuner::instance().statistics();
    nlohmann::ordered_json line = {
        {"event", "summary"},
        {"stage", mOptions.stage},
        {"units", units},
        {"bytes", bytes},
        {"seconds", static_cast<double>((monotonicNs() - mBeginNs) / 1000) * 1e-6},
        {"sourceBytes", statistics.bytes},
        {"packets", statistics.packets},
        {"streams", perStream}};
    if (printf("%s\n", line.dump().c_str()) < 0 || fflush(stdout) != 0) {
        mPrintError = errno;
    }
}

int UnitsRun::lastCode(int code) {
    if (mOut != nullptr && fclose(std::exchange(mOut, nullptr)) != 0 && mOutError == 0) {
        mOutError = errno;
    }
    if (mOutError != 0) {
        fprintf(stderr, "orvplay: %s: cannot be written: %s\n", mOptions.out.c_str(),
                strerror(mOutError));
        return EXIT_FAILED;
    }
    if (mPrintError != 0 && mPrintError != EPIPE) {
        fprintf(stderr, "orvplay: standard output cannot be written: %s\n", strerror(mPrintError));
        return EXIT_FAILED;
    }
    return mPrintError == EPIPE ? EXIT_OK : code;
}

}  // namespace orvplay
