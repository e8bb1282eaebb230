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
