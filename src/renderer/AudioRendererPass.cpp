// One pass of the audio render loop.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "common/Trace.h"
#include "renderer/AudioRenderer.h"

using android::sp;

namespace OrvPlayer {

namespace {

constexpr size_t SILENCE_BYTES = 8192;
constexpr unsigned char SILENCE[SILENCE_BYTES] = {};

constexpr int64_t TICKS_PER_MS = 90;
constexpr int64_t BLUETOOTH_TICKS = 170 * TICKS_PER_MS;
constexpr int64_t EARLY_TICKS = 201 * TICKS_PER_MS;  // from here on it counts as early
constexpr int64_t HUGE_TICKS = 900'000;              // 10 s
constexpr int64_t HUGE_MS = 10'000;
constexpr useconds_t NOT_READY_SLEEP_US = 1'000;
constexpr useconds_t NOTHING_SLEEP_US = 5'000;

}  // namespace

int AudioRenderer::render() {
    unsigned char* block = mInput->read(AudioFragmentData::FIXED_SIZE, RingBuffer::NON_BLOCKING);
    if (block == nullptr) {
        return renderSilence();
    }
    auto& record = *reinterpret_cast<AudioFragmentData*>(block);
    int status = 0;
    int64_t distance = 0;
    if (checkRecord(record, &status) == Step::PASS_DONE ||
        adoptConfiguration(record, &status) == Step::PASS_DONE ||
        checkDistance(record, &distance) == Step::PASS_DONE) {
        return status;
    }
    const int64_t distanceMs = distance / TICKS_PER_MS;
    if (mListener != nullptr) {
        mListener->onAudioReady(static_cast<long>(distanceMs));
    }
    if (distance >= EARLY_TICKS && distance < HUGE_TICKS) {
        insertSilence(record, distanceMs);
    } else {
        playRecord(record, distance);
    }
    return 0;
}

AudioRenderer::Step AudioRenderer::checkRecord(const AudioFragmentData& record, int* status) {
    if (mInput->getDataSize() < record.mSize || record.mSize < AudioFragmentData::FIXED_SIZE) {
        ORV_LOGE("%s: RingBuffer inconsistency", "render");
        mInput->readAdvance(0);
        *status = 1;
        return Step::PASS_DONE;
    }
    if (record.mType != Data::AUDIO_FRAGMENT) {
        ORV_LOGE("%s: frame is not an audio format", "render");
        onError(ERR_RECORD_TYPE);
        consume(record);
        return Step::PASS_DONE;
    }
    const auto rate = static_cast<int32_t>(record.mSamplingRate);
    if (rate <= 0 || record.mNumberChannels == 0 || record.mBitsPerSample == 0) {
        ORV_LOGI("%s: Invalid config values: %d %d %d. Discarding the packet\n", "render", rate,
                 record.mNumberChannels, record.mBitsPerSample);
        consume(record);
        return Step::PASS_DONE;
    }
    return Step::GO_ON;
}

// Rebuilds the track for a record of another configuration, then takes the presentation time if
// that is due.
AudioRenderer::Step AudioRenderer::adoptConfiguration(const AudioFragmentData& record,
                                                      int* status) {
    const auto rate = static_cast<int32_t>(record.mSamplingRate);
    const bool changed = rate != mSampleRate || record.mNumberChannels != mChannels ||
                         record.mBitsPerSample != mBitsPerSample;
    if (changed) {
        ORV_LOGW("%s: Changed audio rendering configuration: FS: %d - Ch: %d - bps: %d", "render",
                 rate, record.mNumberChannels, record.mBitsPerSample);
        mSampleRate = rate;
        mChannels = record.mNumberChannels;
        mBitsPerSample = record.mBitsPerSample;
        mBytesPerSample = mBitsPerSample / 8;
        if (createAudioPlayer() != 0) {
            ORV_LOGE("%s: Error in createAudioPlayer\n", "render");
            mInput->readAdvance(0);
            *status = ERR_RENDER;
            return Step::PASS_DONE;
        }
        dropSynchronization();
    }
    return synchronize(changed);
}

AudioRenderer::Step AudioRenderer::synchronize(bool configurationChanged) {
    if (!configurationChanged && mSynced) {
        return Step::GO_ON;
    }
    // The clock counts from an empty track. Whoever dropped synchronisation has flushed it, but a
    // write of this thread may have slipped in behind that.
    if (mTrackDirty) {
        if (const sp<android::AudioTrack> current = track(); current != nullptr) {
            current->flush();
        }
        mTrackDirty = false;
    }
    // Before the clock is read: a change that comes from here on drops synchronisation again.
    mSynced = true;
    if (!mSynchronization->getActualDefinedPCR(&mAudioClock)) {
        mSynced = false;
        ORV_LOGI("%s: Synchronization is not ready\n", "render");
        mInput->readAdvance(0);
        usleep(NOT_READY_SLEEP_US);
        return Step::PASS_DONE;
    }
    return Step::GO_ON;
}

// How far the record is from the audio clock, in ticks; positive when it is early.
AudioRenderer::Step AudioRenderer::checkDistance(const AudioFragmentData& record,
                                                 int64_t* distance) {
    if (checkOutputDevice()) {
        startResyncTimer();
    }
    const sp<OutputDeviceThread> watch = deviceThread();
    const bool bluetooth = watch != nullptr && watch->isBluetoothConnected();
    const Uint33 pts = uint33Sum(record.mPTS, bluetooth ? -BLUETOOTH_TICKS : 0);
    *distance = uint33Difference(pts, mAudioClock);
    const int64_t distanceMs = *distance / TICKS_PER_MS;
    if (std::llabs(distanceMs) <= HUGE_MS) {
        return Step::GO_ON;
    }
    ORV_LOGW("%s: PCR resynchronization forced due to huge difference in wait interaval: %d\n",
             "render", static_cast<int>(distanceMs));
    note(record, *distance, 0, PresentationRecord::CLOCK_OFF);
    mSynchronization->resetPCR();
    mSynced = false;
    consume(record);
    return Step::PASS_DONE;
}

// The record stays: it is looked at again once the silence has been written.
void AudioRenderer::insertSilence(const AudioFragmentData& record, int64_t distanceMs) {
    ORV_LOGW("%s: Audio samples are %lld msec early. Inserting silence\n", "render",
             static_cast<long long>(distanceMs));
    const int64_t wanted =
        static_cast<int64_t>(mBytesPerSample) * mChannels * (distanceMs * mSampleRate / 1000);
    const auto bytes =
        static_cast<size_t>(std::clamp<int64_t>(wanted, 0, static_cast<int64_t>(SILENCE_BYTES)));
    if (bytes == 0) {
        consume(record);  // of a format that makes no silence: the clock would never get there
        return;
    }
    noteSilence(bytes);
    const bool written = writeTrack(SILENCE, bytes);
    advanceClock(bytes);
    if (written) {
        mInput->readAdvance(0);
    } else {
        consume(record);
    }
}

void AudioRenderer::playRecord(AudioFragmentData& record, int64_t distance) {
    unsigned char* payload = nullptr;
    unsigned int size = 0;
    record.getRaw(&payload, &size);
    if (distance <= -EARLY_TICKS) {
        const int64_t distanceMs = distance / TICKS_PER_MS;
        ORV_LOGW("%s: Audio samples are late. Skipping some samples. (%lld)\n", "render",
                 static_cast<long long>(distanceMs));
        // Deliberate: not rounded to whole sample frames.
        const auto skipped = static_cast<int64_t>(
            static_cast<double>(distanceMs) * (-0.001 * mSampleRate * mChannels * mBytesPerSample));
        if (skipped >= static_cast<int64_t>(size)) {
            ORV_LOGW("Dropping fragment");
            note(record, distance, 0, PresentationRecord::LATE);
            consume(record);
            return;
        }
        payload += skipped;
        size -= static_cast<unsigned int>(skipped);
    }
    if (mListener != nullptr) {
        mListener->onAudioRendered();
    }
    note(record, distance, size,
         mVolume > 0.0f ? PresentationRecord::SHOWN : PresentationRecord::SHUT);
    writeTrack(payload, size);
    advanceClock(size);
    consume(record);
}

int AudioRenderer::renderSilence() {
    if (!mSynced || track() == nullptr) {
        usleep(NOTHING_SLEEP_US);
        return 0;
    }
    noteSilence(SILENCE_BYTES);
    if (!writeTrack(SILENCE, SILENCE_BYTES)) {
        return ERR_RENDER;
    }
    advanceClock(SILENCE_BYTES);
    return 0;
}

bool AudioRenderer::writeTrack(const unsigned char* bytes, size_t size) {
    const sp<android::AudioTrack> current = track();
    mTrackDirty = true;
    const ssize_t written =
        current != nullptr ? current->write(bytes, size) : ssize_t{android::NO_INIT};
    if (written == static_cast<ssize_t>(size)) {
        return true;
    }
    if (mExitRequested) {
        return false;  // the track was stopped under the write
    }
    ORV_LOGE("%s Could not write into system audio buffer: %s (%d)", "render",
             strerror(static_cast<int>(-written)), static_cast<int>(written));
    return false;
}

void AudioRenderer::note(const AudioFragmentData& record, int64_t distance, size_t bytes,
                         PresentationRecord::Outcome outcome) {
    if (!PresentationLog::instance().isOn()) {
        return;
    }
    PresentationRecord noted;
    noted.kind = PresentationRecord::AUDIO;
    noted.outcome = outcome;
    noted.pts = record.mPTS;
    noted.waitMs = static_cast<int32_t>(distance / TICKS_PER_MS);
    noteBytes(noted, bytes);
}

void AudioRenderer::noteSilence(size_t bytes) {
    if (!PresentationLog::instance().isOn()) {
        return;
    }
    PresentationRecord noted;
    noted.kind = PresentationRecord::SILENCE;
    noted.pts = mAudioClock;
    noteBytes(noted, bytes);
}

void AudioRenderer::noteBytes(PresentationRecord record, size_t bytes) {
    const size_t frameBytes = static_cast<size_t>(mBytesPerSample) * static_cast<size_t>(mChannels);
    record.frames = frameBytes > 0 ? static_cast<uint32_t>(bytes / frameBytes) : 0;
    mSynchronization->getActualDefinedPCR(&record.clock);
    PresentationLog::instance().add(record);
}

void AudioRenderer::advanceClock(size_t bytes) {
    const double bytesPerSecond = static_cast<double>(mChannels) * mSampleRate * mBytesPerSample;
    if (bytesPerSecond <= 0) {
        return;  // a record may claim samples of less than eight bits
    }
    mAudioClock = uint33Sum(
        mAudioClock, static_cast<int64_t>(static_cast<double>(bytes) * 90000 / bytesPerSecond));
}

}  // namespace OrvPlayer
