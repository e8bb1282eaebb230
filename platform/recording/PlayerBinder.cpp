#include <dtv/RecPlayerBinder.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "recording/RecordingPlayer.h"

namespace {

using orvhost::RecordingPlayer;

unsigned char byteOf(bool success) {
    return success ? 1 : 0;
}

template <typename T>
T fitting(int64_t value) {
    return static_cast<T>(std::clamp<int64_t>(value, 0, std::numeric_limits<T>::max()));
}

// Null for an empty name, and without memory.
char* copyOf(const std::string& text, uint32_t* length) {
    char* const copy = text.empty() ? nullptr : strdup(text.c_str());
    *length = copy == nullptr ? 0 : static_cast<uint32_t>(std::strlen(copy));
    return copy;
}

void fill(const orvhost::RecordingDetails& from, recDetails* to) {
    to->stationName = copyOf(from.stationName, &to->stationNameLength);
    to->prgName = copyOf(from.programmeName, &to->prgNameLength);
    to->creationTime = fitting<uint32_t>(from.creationTimeS);
    to->durationOfRec = fitting<uint32_t>(from.durationMs / 1000);
    to->sizeOfRec = fitting<uint32_t>(from.sizeBytes / 1024);
    to->recMode = from.mode;
    to->recLocation = from.storageType;
    to->bCanPlay = from.canPlay ? 1 : 0;
    to->playbackDuration = fitting<uint32_t>(from.durationMs);
    to->recStartTime = fitting<uint32_t>(from.startTimeS);
    to->recEndTime = fitting<uint32_t>(from.endTimeS);
    to->iV_PID = from.videoPid;
    to->iA_PID = from.audioPid;
    to->isLATM = from.audioFraming;
    to->fileNumName = from.number;
}

}  // namespace

unsigned char RecPlayerBinder_IsTSPlayerActive(RecPlayerBinder_EventCallback callback,
                                               void* userData) {
    return byteOf(RecordingPlayer::instance().begin(callback, userData));
}

recDetails* RecPlayerBinder_GetRecClipDetails(const char* path, int) {
    orvhost::RecordingDetails known;
    if (path == nullptr || !RecordingPlayer::instance().details(path, &known)) {
        return nullptr;
    }
    auto* const details = static_cast<recDetails*>(std::calloc(1, sizeof(recDetails)));
    if (details != nullptr) {
        fill(known, details);
    }
    return details;
}

unsigned char RecPlayerBinder_PauseTSPlayer() {
    return byteOf(RecordingPlayer::instance().setPaused(true));
}

unsigned char RecPlayerBinder_ResumeTSPlayer() {
    return byteOf(RecordingPlayer::instance().setPaused(false));
}

unsigned char RecPlayerBinder_IsPossibleSeek() {
    return byteOf(RecordingPlayer::instance().canSeek());
}

unsigned char RecPlayerBinder_RepositioningTSPlayer(int, int targetMs) {
    return byteOf(RecordingPlayer::instance().seek(targetMs));
}

unsigned char RecPlayerBinder_SetCurrLapTime(uint32_t elapsedMs, uint64_t) {
    RecordingPlayer::instance().setPosition(elapsedMs);
    return 1;
}
