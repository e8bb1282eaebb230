#include "MonitorService.h"

#include <binder/IPCThreadState.h>
#include <binder/PermissionCache.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "audio/MasterVolume.h"
#include "media/CodecStatistics.h"
#include "media/player/MediaFileState.h"
#include "recording/IndexState.h"
#include "service/PlayerLibrary.h"

namespace orvplayerd {

namespace {

constexpr int WRITE_MS = 1000;
constexpr size_t PIECE_BYTES = 4096;  // a pipe that polls as writable takes so many without waiting

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

bool writeAll(int fd, const char* text, size_t size) {
    while (size > 0) {
        pollfd writable = {fd, POLLOUT, 0};
        const int ready = poll(&writable, 1, WRITE_MS);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return false;
        }
        const ssize_t written = write(fd, text, std::min(size, PIECE_BYTES));
        if (written < 0 && errno != EINTR && errno != EAGAIN) {
            return false;
        }
        if (written > 0) {
            text += written;
            size -= static_cast<size_t>(written);
        }
    }
    return true;
}

using orvhost::PresentationEvent;
using Record = OrvPlayer::PresentationRecord;

static_assert(static_cast<int>(Record::CLOCK) == static_cast<int>(PresentationEvent::Kind::CLOCK) &&
              static_cast<int>(Record::RESET) ==
                  static_cast<int>(PresentationEvent::Outcome::RESET));

PresentationEvent eventOf(const Record& record) {
    return {record.timeNs,
            static_cast<int64_t>(record.pts & OrvPlayer::UINT33_MASK),
            record.clock == Record::NO_TIME ? PresentationEvent::NO_TIME
                                            : static_cast<int64_t>(record.clock),
            record.waitMs,
            record.frames,
            static_cast<PresentationEvent::Kind>(record.kind),
            static_cast<PresentationEvent::Outcome>(record.outcome)};
}

// As the player makes the codec's times into time stamps.
int64_t toTime90k(int64_t timeUs) {
    return static_cast<int64_t>(static_cast<uint64_t>(timeUs * 9 / 100) & OrvPlayer::UINT33_MASK);
}

}  // namespace

android::status_t MonitorService::figures(orvhost::PlaybackFigures* figures) {
    OrvPlayer_Figures player = {};
    OrvPlayer_figures(&player);
    figures->framesTimed = player.framesTimed;
    figures->lastFrameTimedNs = player.lastFrameTimedNs;
    figures->audioEarlyMs = static_cast<double>(player.audioEarlyMs);
    figures->audioEarlyCount = player.audioEarlyCount;
    const orvhost::CodecStatistics& codec = orvhost::codecStatistics();
    figures->picturesReleasedUnseen = codec.picturesReleasedUnseen;
    figures->picturesDroppedAtWindow =
        codec.picturesDroppedAtWindow + orvhost::mediaPicturesDropped();
    figures->firstIdrQueuedUs = codec.firstIdrQueuedUs;
    figures->firstIdrReadyUs = codec.firstIdrReadyUs;
    figures->firstPcrUs = player.firstPcrUs;
    figures->firstSoundUs = codec.firstSoundUs;
    figures->audioFrames = mSound.frames();
    figures->heard = mSound.heard();
    figures->outputLatencyMs = mSound.outputLatencyMs();
    figures->beepsNs = mSound.takeBeepsNs();
    figures->mediaDurationMs = orvhost::mediaFileDurationMs();
    figures->indexPercent = orvhost::indexPercent();
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    figures->cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    figures->voluntarySwitches = usage.ru_nvcsw;
    figures->maxRssKb = usage.ru_maxrss;
    figures->pid = getpid();
    return android::OK;
}

android::status_t MonitorService::setVolume(int32_t percent, bool isMuted) {
    orvhost::setMasterVolume({percent, isMuted});
    return android::OK;
}

android::status_t MonitorService::presentation(orvhost::PresentationReport* report) {
    std::lock_guard<std::mutex> guard(mPresentationLock);
    takeEvents(report);
    OrvPlayer::BufferFill fills[orvhost::PresentationReport::MAX_FILLS];
    const size_t count = OrvPlayer_bufferFills(fills, std::size(fills));
    for (size_t i = 0; i < count; ++i) {
        report->fills.push_back({fills[i].name, fills[i].usedBytes, fills[i].sizeBytes});
    }
    report->outputLatencyMs = mSound.outputLatencyMs();
    return android::OK;
}

// The player hands a picture to the codec and is done with it; whether the window had a buffer for
// it the codec knows, which counts before the player notes.
void MonitorService::takeEvents(orvhost::PresentationReport* report) {
    std::vector<OrvPlayer::PresentationRecord> records(orvhost::PresentationReport::MAX_EVENTS);
    records.resize(OrvPlayer_takePresentation(records.data(), records.size(), &report->missed));
    noticeWindowDrops();
    report->events.reserve(records.size());
    for (const OrvPlayer::PresentationRecord& record : records) {
        PresentationEvent& event = report->events.emplace_back(eventOf(record));
        if (event.kind == PresentationEvent::Kind::VIDEO &&
            event.outcome == PresentationEvent::Outcome::SHOWN && takeWindowDrop(event.pts90k)) {
            event.outcome = PresentationEvent::Outcome::NO_WINDOW;
        }
    }
}

void MonitorService::noticeWindowDrops() {
    using orvhost::CodecStatistics;
    const CodecStatistics& codec = orvhost::codecStatistics();
    const uint64_t count = codec.picturesDroppedAtWindow;
    const uint64_t known = count < CodecStatistics::DROPS ? 0 : count - CodecStatistics::DROPS;
    for (uint64_t i = std::max(mWindowDropsSeen, known); i < count; ++i) {
        mWindowDrops.push_back(toTime90k(codec.windowDropsUs[i % CodecStatistics::DROPS]));
    }
    mWindowDropsSeen = count;
    while (mWindowDrops.size() > CodecStatistics::DROPS) {
        mWindowDrops.pop_front();
    }
}

// Those before it were dropped while nobody looked.
bool MonitorService::takeWindowDrop(int64_t pts90k) {
    const auto found = std::find(mWindowDrops.begin(), mWindowDrops.end(), pts90k);
    if (found == mWindowDrops.end()) {
        return false;
    }
    mWindowDrops.erase(mWindowDrops.begin(), found + 1);
    return true;
}

android::status_t MonitorService::dump(int fd, const android::Vector<android::String16>&) {
    const bool isOurs = android::IPCThreadState::self()->getCallingUid() == getuid();
    if (!isOurs && !android::PermissionCache::checkCallingPermission(
                       android::String16("android.permission.DUMP"))) {
        return android::PERMISSION_DENIED;
    }
    return writePlayerState(fd) ? android::OK : android::TIMED_OUT;
}

bool writePlayerState(int fd) {
    char* text = nullptr;
    size_t size = 0;
    FILE* const memory = open_memstream(&text, &size);
    if (memory == nullptr) {
        return false;
    }
    OrvPlayer_dump(memory);
    fclose(memory);
    const bool written = writeAll(fd, text, size);
    free(text);
    return written;
}

}  // namespace orvplayerd
