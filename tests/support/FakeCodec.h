#pragma once

#include <media/stagefright/MediaCodec.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace orvtest {

// The platform codec of a test program: FakeCodec.cpp defines MediaCodec for it. It decodes
// nothing. What comes in is taken down, what comes out is what the test said, in order; when that
// is used up a dequeue waits a little and says so.
class FakeCodec {
public:
    using Bytes = std::vector<uint8_t>;

    struct Input {
        Bytes bytes;
        int64_t timeUs;
        uint32_t flags;
        bool operator==(const Input&) const = default;
    };
    struct Output {
        int status = 0;  // other than 0: the dequeue returns just this
        size_t index = 0;
        int64_t timeUs = 0;
        Bytes bytes;  // put into the buffer of the index
    };

    static constexpr size_t INPUTS = 2, OUTPUTS = 4, CAPACITY = 4096;

    static FakeCodec& instance();
    void reset();

    // What the test prepares.
    void addOutput(const Output& output);
    void failInput(int status, int times);  // the next dequeues of an input return this
    void fail(const std::string& operation, int status);  // "create", "name", "configure", ...
    void setFormat(const android::sp<android::AMessage>& format);

    // What happened, in order: "create video/avc", "component NAME", "configure", "start", "stop",
    // "release", "render 3", "drop 2", "outputs" for getOutputBuffers() after the start.
    std::vector<std::string> takeEvents();
    // Waits until the event has come (since the last takeEvents); false when it does not.
    bool await(const std::string& event, int times = 1);
    bool awaitInputs(size_t count);
    std::vector<Input> inputs() const;
    size_t inputsOut() const;                       // indices that the client holds
    android::sp<android::AMessage> format() const;  // given to configure()
    bool outputsUsedUp() const;

    // From the fake.
    int add(const std::string& event);
    int dequeueInput(size_t* index);
    int queueInput(size_t index, const Input& input);
    int dequeueOutput(Output* output);
    void start(const android::Vector<android::sp<android::MediaCodecBuffer>>& outputs);
    void stop();
    void configure(const android::sp<android::AMessage>& format);
    int outputFormat(android::sp<android::AMessage>* format);
    int statusOf(const std::string& operation) const;

private:
    static constexpr std::chrono::seconds LIMIT{5};
    static constexpr std::chrono::milliseconds WAIT{10};

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<Output> mOutputs;
    std::deque<int> mInputFailures;
    std::vector<std::pair<std::string, int>> mFailures;
    std::vector<std::string> mEvents;
    std::vector<Input> mInputs;
    std::vector<size_t> mFree;
    size_t mOut = 0;
    bool mStarted = false;
    android::Vector<android::sp<android::MediaCodecBuffer>> mBuffers;
    android::sp<android::AMessage> mFormat;
    android::sp<android::AMessage> mOutputFormat;
};

}  // namespace orvtest
