#include "UnitsRun.h"

extern "C" {
#include <libavutil/md5.h>
}

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <nlohmann/json.hpp>

#include "ExitCode.h"
#include "MonotonicTime.h"
#include "dtv/Tuner.h"

namespace orvplay {

namespace {

constexpr size_t PRINT_BUFFER_BYTES = 1 << 16;

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
    : mOptions(options),
      mFlow(
          selection, options.stage == "pes" ? UnitFlow::Cut::PES : UnitFlow::Cut::UNITS,
          [this](const UnitFlow::Stream& stream, const Unit& unit) { return take(stream, unit); }) {
}

UnitsRun::~UnitsRun() {
    if (mOut != nullptr) {
        fclose(mOut);
    }
}

int UnitsRun::run() {
    if (!openOut()) {
        return EXIT_FAILED;
    }
    setvbuf(stdout, nullptr, _IOFBF, PRINT_BUFFER_BYTES);
    mBeginNs = monotonicNs();
    const UnitFlow::End end = mFlow.run([this] {
        const uint64_t bytes = orvhost::Tuner::instance().statistics().bytes;
        mStatus.show("reading: " + std::to_string(bytes >> 20) + " MiB");
    });
    mStatus.clear();
    const int code = exitCodeOf(end);
    if (end != UnitFlow::End::NO_MEMORY) {
        printSummary();
    }
    return lastCode(code);
}

// Says what went wrong.
int UnitsRun::exitCodeOf(UnitFlow::End end) {
    switch (end) {
        case UnitFlow::End::WORKED_OFF:
            return EXIT_OK;
        case UnitFlow::End::INTERRUPTED:
            return EXIT_INTERRUPTED;
        case UnitFlow::End::NO_MORE_WANTED:
            return EXIT_FAILED;  // lastCode() tells why
        case UnitFlow::End::SCRAMBLED:
            fprintf(stderr, "orvplay: PID %u is scrambled; choose a clear one (orvplay probe %s)\n",
                    mFlow.scrambledPid(), mOptions.source.c_str());
            return EXIT_PLAYBACK;
        case UnitFlow::End::NO_MEMORY:
            break;
    }
    fprintf(stderr, "orvplay: the streams cannot be set up: out of memory\n");
    return EXIT_FAILED;
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

bool UnitsRun::take(const UnitFlow::Stream& stream, const Unit& unit) {
    const uint64_t index = stream.chain->units() - 1;  // this one is counted already
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
    } else if (written > 0 && stream.role == OrvPlayer::PID_TYPE_CLOSED_CAPTION) {
        const nlohmann::json text =
            std::string(reinterpret_cast<const char*>(unit.bytes), unit.size);
        written = printf(",\"size\":%zu,\"text\":%s}\n", unit.size, text.dump().c_str());
    } else if (written > 0) {
        written = printf(",\"size\":%zu,\"flags\":%u,\"md5\":\"%s\"}\n", unit.size, unit.flags,
                         md5.c_str());
    }
    if (written < 0) {
        mPrintError = errno;
    }
    return written >= 0;
}

void UnitsRun::printSummary() {
    uint64_t units = 0;
    uint64_t bytes = 0;
    nlohmann::ordered_json perStream = nlohmann::ordered_json::object();
    for (const auto& stream : mFlow.streams()) {
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
        {"seconds", static_cast<double>(monotonicNs() - mBeginNs) * 1e-9},
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
