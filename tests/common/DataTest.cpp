#include "common/Data.h"

#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace {

using namespace OrvPlayer;

// Constructs a record in memory that is aligned to 4 bytes and no more, as in a ring buffer.
template <typename Record>
class InPlace {
public:
    InPlace() : mRecord(new (mBytes + 4) Record) {}
    Record* operator->() { return mRecord; }
    unsigned char* bytes() { return mBytes + 4; }

private:
    alignas(8) unsigned char mBytes[4 + 512];
    Record* mRecord;
};

template <typename Record>
void expectPayloadAt(unsigned int offset) {
    InPlace<Record> record;
    record->mSize = offset + 188;
    unsigned char* data = nullptr;
    unsigned int size = 0;
    record->getRaw(&data, &size);
    EXPECT_EQ(data, record.bytes() + offset);
    EXPECT_EQ(size, 188u);
}

TEST(DataTest, PayloadFollowsTheFixedPart) {
    expectPayloadAt<PESData>(40);
    expectPayloadAt<AudioFragmentData>(32);
    expectPayloadAt<VideoFrameData>(80);
}

TEST(DataTest, PictureInAGraphicBufferIsCopied) {
    const android::sp<android::GraphicBuffer> picture = new android::GraphicBuffer(
        32, 16, 0x105,
        android::GraphicBuffer::USAGE_SW_WRITE_OFTEN | android::GraphicBuffer::USAGE_SW_READ_OFTEN);
    ASSERT_EQ(picture->initCheck(), 0);
    void* pixels = nullptr;
    ASSERT_EQ(picture->lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels), 0);
    memset(pixels, 0x5A, picture->getByteSize());
    picture->unlock();
    InPlace<VideoFrameData> record;
    record->mSize = VideoFrameData::FIXED_SIZE;
    record->mGraphicBuffer = picture.get();
    unsigned char* data = nullptr;
    unsigned int size = 0;
    record->getRaw(&data, &size);
    const std::unique_ptr<unsigned char[]> copy(data);
    ASSERT_EQ(size, picture->getByteSize());
    EXPECT_NE(static_cast<void*>(data), pixels);
    EXPECT_EQ(data[0], 0x5A);
    EXPECT_EQ(data[size - 1], 0x5A);
    EXPECT_NE(picture->unlock(), 0);  // it was unlocked
}

// Deliberate: behind the first 64-bit number the scan expects letters that are never written, so
// only the record whose fields end there reads its own text back.
TEST(DataTest, TextForms) {
    PESData pes;
    pes.mSize = 228;
    pes.mPTS = 0x1FFFFFFFF;
    pes.mDTS = 7;
    pes.mOffsetES = 54;
    pes.mSizeES = 174;
    std::string text = pes.toString();
    EXPECT_EQ(text,
              "mType = 0\nmSize = 228\nmPTS = 8589934591\nmDTS = 7\nmOffsetES = 54\nmSizeES = "
              "174\n");
    PESData read;
    EXPECT_FALSE(read.fromString(text.data()));
    EXPECT_EQ(read.mSize, 228u);
    EXPECT_EQ(read.mPTS, 0x1FFFFFFFFu);
    EXPECT_EQ(read.mDTS, 0u);
    char complete[] = "mType = 9\nmSize = 8\nmPTS = 7lu\nmDTS = 6lu\nmOffsetES = 5\nmSizeES = 4\n";
    EXPECT_TRUE(read.fromString(complete));
    EXPECT_EQ(read.mDTS, 6u);
    EXPECT_EQ(read.mSizeES, 4u);

    VideoFrameData video;
    video.mType = Data::VIDEO_FRAME;
    video.mSize = 80;
    video.mPTS = 90'000;
    text = video.toString();
    EXPECT_EQ(text, "mType = 2\nmSize = 80\nmPTS = 90000\n");
    VideoFrameData readVideo;
    EXPECT_TRUE(readVideo.fromString(text.data()));
    EXPECT_EQ(readVideo.mType, 2u);
    EXPECT_EQ(readVideo.mPTS, 90'000u);

    AudioFragmentData audio;
    audio.mType = Data::AUDIO_FRAGMENT;
    audio.mNumberChannels = 2;
    audio.mBitsPerSample = 16;
    audio.mSamplingRate = 48'000;
    text = audio.toString();
    EXPECT_EQ(text,
              "mType = 1\nmSize = 0\nmPTS = 0\nmNumberChannels = 2\nmBitsPerSample = "
              "16\nmSamplingRate = 48000\n");
    AudioFragmentData readAudio;
    EXPECT_FALSE(readAudio.fromString(text.data()));
    EXPECT_EQ(readAudio.mNumberChannels, 0);
    char characters[] =
        "mType = 1\nmSize = 0\nmPTS = 5lu\nmNumberChannels = 2\nmBitsPerSample = 8\n"
        "mSamplingRate = 32000\n";
    EXPECT_TRUE(readAudio.fromString(characters));
    EXPECT_EQ(readAudio.mNumberChannels, '2');
    EXPECT_EQ(readAudio.mSamplingRate, 32'000u);
    EXPECT_FALSE(readAudio.fromString(const_cast<char*>("")));
}

}  // namespace
