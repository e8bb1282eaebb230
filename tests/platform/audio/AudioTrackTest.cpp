#include <gtest/gtest.h>
#include <media/AudioTrack.h>

#include <chrono>
#include <cmath>
#include <vector>

#include "audio/AudioOutput.h"

namespace android {
namespace {

class AudioTrackTest : public testing::Test {
protected:
    void SetUp() override { orvhost::setAudioOutput(orvhost::AudioOutput::SILENT); }

    static sp<AudioTrack> make(uint32_t rate, audio_channel_mask_t mask,
                               audio_format_t format = AUDIO_FORMAT_DEFAULT) {
        return new AudioTrack(AUDIO_STREAM_MUSIC, rate, format, mask);
    }
};

TEST_F(AudioTrackTest, RefusesWhatItCannotPlay) {
    struct {
        uint32_t rate;
        audio_channel_mask_t mask;
        audio_format_t format;
        status_t status;
    } const cases[] = {
        {48000, AUDIO_CHANNEL_OUT_MONO, AUDIO_FORMAT_DEFAULT, NO_ERROR},
        {192000, AUDIO_CHANNEL_OUT_7POINT1, AUDIO_FORMAT_PCM_16_BIT, NO_ERROR},
        {8000, AUDIO_CHANNEL_OUT_2POINT1, AUDIO_FORMAT_DEFAULT, NO_ERROR},
        {0, AUDIO_CHANNEL_OUT_STEREO, AUDIO_FORMAT_DEFAULT, BAD_VALUE},
        {0xFFFFFFFF, AUDIO_CHANNEL_OUT_STEREO, AUDIO_FORMAT_DEFAULT, BAD_VALUE},
        {48000, AUDIO_CHANNEL_NONE, AUDIO_FORMAT_DEFAULT, BAD_VALUE},
        {48000, AUDIO_CHANNEL_INVALID, AUDIO_FORMAT_DEFAULT, BAD_VALUE},
        {48000, 0x7FF, AUDIO_FORMAT_DEFAULT, BAD_VALUE},  // more than eight loudspeakers
        {48000, AUDIO_CHANNEL_OUT_STEREO, AUDIO_FORMAT_INVALID, BAD_VALUE},
    };
    for (const auto& form : cases) {
        const sp<AudioTrack> track = make(form.rate, form.mask, form.format);
        EXPECT_EQ(track->initCheck(), form.status) << form.rate << " " << form.mask;
        EXPECT_EQ(track->start(), form.status == NO_ERROR ? NO_ERROR : NO_INIT);
        EXPECT_EQ(track->write("abcdefgh", 8), form.status == NO_ERROR ? 8 : NO_INIT);
        EXPECT_EQ(track->setVolume(1, 1), form.status == NO_ERROR ? NO_ERROR : NO_INIT);
        track->flush();
        track->stop();
    }
}

TEST_F(AudioTrackTest, RefusesBadArguments) {
    const sp<AudioTrack> track = make(48000, AUDIO_CHANNEL_OUT_STEREO);
    track->start();
    for (const float bad : {-0.1F, 1.1F, NAN, INFINITY}) {
        EXPECT_EQ(track->setVolume(bad, 1.0F), BAD_VALUE);
        EXPECT_EQ(track->setVolume(1.0F, bad), BAD_VALUE);
    }
    EXPECT_EQ(track->write(nullptr, 4), BAD_VALUE);
    EXPECT_EQ(track->write(nullptr, 0), 0);
    EXPECT_EQ(track->write("abcd", SIZE_MAX), BAD_VALUE);
}

// On the real clock: half a second of sound takes that less the 50 ms it may run ahead.
TEST_F(AudioTrackTest, SilentDeviceKeepsThePace) {
    const sp<AudioTrack> track = make(48000, AUDIO_CHANNEL_OUT_STEREO);
    ASSERT_EQ(track->start(), NO_ERROR);
    const std::vector<char> pcm(96000);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(track->write(pcm.data(), pcm.size()), 96000);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took.count(), 449.9);
    EXPECT_LT(took.count(), 2000);
}

}  // namespace
}  // namespace android
