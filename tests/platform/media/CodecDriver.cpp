#include "CodecDriver.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

namespace orvtest {

using namespace android;

namespace {

// A dequeue comes back with -EAGAIN long before a test gives up.
template <typename Dequeue>
status_t await(int64_t timeoutUs, Dequeue dequeue) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(timeoutUs);
    status_t result;
    do {
        result = dequeue();
    } while (result == -EAGAIN && std::chrono::steady_clock::now() < deadline);
    return result;
}

}  // namespace

CodecDriver::CodecDriver(const char* mime, const sp<Surface>& surface, bool adts)
    : looper(new ALooper), mMime(mime), mSurface(surface), mAdts(adts) {
    looper->setName("MTVMediaCodecLoop");
    EXPECT_EQ(looper->start(), OK);
    codec = MediaCodec::CreateByType(looper, mime, false);
    EXPECT_NE(codec, nullptr);
}

CodecDriver::~CodecDriver() {
    if (codec != nullptr) {
        codec->release();
    }
}

status_t CodecDriver::configureAndStart() {
    sp<AMessage> format = new AMessage;
    format->setString("mime", mMime);
    if (mAdts) {
        format->setInt32("is-adts", 1);
    }
    if (const status_t result = codec->configure(format, mSurface, nullptr, 0); result != OK) {
        return result;
    }
    if (const status_t result = codec->start(); result != OK) {
        return result;
    }
    outputs.clear();
    events.clear();
    formats.clear();
    codec->getOutputBuffers(&mOutputBuffers);
    return codec->getInputBuffers(&mInputBuffers);
}

bool CodecDriver::feed(const Unit* unit, uint32_t flags, int64_t timeoutUs) {
    size_t index = 0;
    const status_t result =
        await(timeoutUs, [&] { return codec->dequeueInputBuffer(&index, timeoutUs); });
    if (result != OK) {
        return false;
    }
    if (unit == nullptr) {
        return codec->queueInputBuffer(index, 0, 0, 0, MediaCodec::BUFFER_FLAG_EOS) == OK;
    }
    const sp<MediaCodecBuffer>& buffer = mInputBuffers[index];
    EXPECT_LE(unit->bytes.size(), buffer->capacity());
    memcpy(buffer->base(), unit->bytes.data(), unit->bytes.size());
    return codec->queueInputBuffer(index, 0, unit->bytes.size(), unit->timeUs, flags) == OK;
}

void CodecDriver::play(const Stream& stream) {
    std::thread feeder([&] {
        if (!stream.configuration.empty()) {
            const Unit configuration = {stream.configuration, 0};
            EXPECT_TRUE(feed(&configuration, MediaCodec::BUFFER_FLAG_CODECCONFIG));
        }
        for (const Unit& unit : stream.units) {
            EXPECT_TRUE(feed(&unit));
        }
        EXPECT_TRUE(feed(nullptr));
    });
    takeAll();
    feeder.join();
}

void CodecDriver::takeAll() {
    while (true) {
        size_t index = 0;
        Output output = {};
        uint32_t flags = 0;
        const status_t result = awaitOutput(&index, &output, &flags);
        if (result == INFO_FORMAT_CHANGED) {
            note('F');
            formats.emplace_back();
            ASSERT_EQ(codec->getOutputFormat(&formats.back()), OK);
            continue;
        }
        if (result == INFO_OUTPUT_BUFFERS_CHANGED) {
            note('B');
            ASSERT_EQ(codec->getOutputBuffers(&mOutputBuffers), OK);
            continue;
        }
        ASSERT_EQ(result, OK);
        if (flags & MediaCodec::BUFFER_FLAG_EOS) {
            ASSERT_EQ(codec->releaseOutputBuffer(index), OK);
            return;
        }
        note('.');
        output.pcm.resize(output.bytes / sizeof(int16_t));
        if (output.bytes > 0) {
            memcpy(output.pcm.data(), mOutputBuffers[index]->data(), output.bytes);
        }
        ASSERT_EQ(
            render ? codec->renderOutputBufferAndRelease(index) : codec->releaseOutputBuffer(index),
            OK);
        if (onOutput) {
            onOutput(output);
        }
        outputs.push_back(std::move(output));
    }
}

status_t CodecDriver::awaitOutput(size_t* index, Output* output, uint32_t* flags) {
    return await(WAIT_US, [&] {
        size_t offset = 0;
        return codec->dequeueOutputBuffer(index, &offset, &output->bytes, &output->timeUs, flags,
                                          WAIT_US);
    });
}

void CodecDriver::note(char event) {
    if (event != '.' || events.empty() || events.back() != '.') {
        events += event;
    }
}

std::vector<int64_t> CodecDriver::times() const {
    std::vector<int64_t> times;
    for (const Output& output : outputs) {
        times.push_back(output.timeUs);
    }
    return times;
}

int32_t int32Of(const sp<AMessage>& format, const char* key) {
    int32_t value = -1;
    EXPECT_TRUE(format->findInt32(key, &value)) << key;
    return value;
}

size_t threadCount() {
    size_t count = 0;
    for ([[maybe_unused]] const auto& task :
         std::filesystem::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

}  // namespace orvtest
