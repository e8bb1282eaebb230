#include "support/FakeCodec.h"

#include <algorithm>
#include <cstring>
#include <utility>

using android::sp;

namespace orvhost {

// What a MediaCodec holds here.
class CodecEngine {
public:
    std::string name;
    android::Vector<sp<android::MediaCodecBuffer>> inputs;
    android::Vector<sp<android::MediaCodecBuffer>> outputs;
};

}  // namespace orvhost

namespace orvtest {

FakeCodec& FakeCodec::instance() {
    static FakeCodec only;
    return only;
}

void FakeCodec::reset() {
    std::lock_guard<std::mutex> guard(mLock);
    mOutputs.clear();
    mInputFailures.clear();
    mFailures.clear();
    mEvents.clear();
    mInputs.clear();
    mOutputFormat = nullptr;
}

void FakeCodec::addOutput(const Output& output) {
    std::lock_guard<std::mutex> guard(mLock);
    mOutputs.push_back(output);
    mChanged.notify_all();
}

void FakeCodec::failInput(int status, int times) {
    std::lock_guard<std::mutex> guard(mLock);
    mInputFailures.insert(mInputFailures.end(), static_cast<size_t>(times), status);
}

void FakeCodec::fail(const std::string& operation, int status) {
    std::lock_guard<std::mutex> guard(mLock);
    mFailures.emplace_back(operation, status);
}

void FakeCodec::setFormat(const sp<android::AMessage>& format) {
    std::lock_guard<std::mutex> guard(mLock);
    mOutputFormat = format;
}

int FakeCodec::statusOf(const std::string& operation) const {
    std::lock_guard<std::mutex> guard(mLock);
    for (const auto& [name, status] : mFailures) {
        if (name == operation) {
            return status;
        }
    }
    return 0;
}

std::vector<std::string> FakeCodec::takeEvents() {
    std::lock_guard<std::mutex> guard(mLock);
    return std::exchange(mEvents, {});
}

bool FakeCodec::await(const std::string& event, int times) {
    std::unique_lock<std::mutex> guard(mLock);
    return mChanged.wait_for(
        guard, LIMIT, [&] { return std::count(mEvents.begin(), mEvents.end(), event) >= times; });
}

bool FakeCodec::awaitInputs(size_t count) {
    std::unique_lock<std::mutex> guard(mLock);
    return mChanged.wait_for(guard, LIMIT, [&] { return mInputs.size() >= count; });
}

std::vector<FakeCodec::Input> FakeCodec::inputs() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mInputs;
}

size_t FakeCodec::inputsOut() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mOut;
}

sp<android::AMessage> FakeCodec::format() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mFormat;
}

bool FakeCodec::outputsUsedUp() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mOutputs.empty();
}

int FakeCodec::add(const std::string& event) {
    std::lock_guard<std::mutex> guard(mLock);
    mEvents.push_back(event);
    mChanged.notify_all();
    return 0;
}

void FakeCodec::configure(const sp<android::AMessage>& format) {
    std::lock_guard<std::mutex> guard(mLock);
    mFormat = format;
}

void FakeCodec::start(const android::Vector<sp<android::MediaCodecBuffer>>& outputs) {
    std::lock_guard<std::mutex> guard(mLock);
    mStarted = true;
    mBuffers = outputs;
    mFree.clear();
    for (size_t i = INPUTS; i-- > 0;) {
        mFree.push_back(i);
    }
    mOut = 0;
}

void FakeCodec::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    mStarted = false;
    mChanged.notify_all();
}

int FakeCodec::dequeueInput(size_t* index) {
    std::unique_lock<std::mutex> guard(mLock);
    mChanged.wait_for(guard, WAIT, [&] { return !mStarted || !mFree.empty(); });
    if (!mStarted) {
        return android::INVALID_OPERATION;
    }
    if (!mInputFailures.empty()) {
        const int status = mInputFailures.front();
        mInputFailures.pop_front();
        if (status == -EAGAIN) {
            mChanged.wait_for(guard, WAIT, [&] { return !mStarted; });
        }
        return mStarted ? status : static_cast<int>(android::INVALID_OPERATION);
    }
    if (mFree.empty()) {
        return -EAGAIN;
    }
    *index = mFree.back();
    mFree.pop_back();
    ++mOut;
    return 0;
}

int FakeCodec::queueInput(size_t index, const Input& input) {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) {
        return android::INVALID_OPERATION;
    }
    mInputs.push_back(input);
    mFree.push_back(index);
    --mOut;
    mChanged.notify_all();
    return 0;
}

int FakeCodec::dequeueOutput(Output* output) {
    std::unique_lock<std::mutex> guard(mLock);
    mChanged.wait_for(guard, WAIT, [&] { return !mStarted || !mOutputs.empty(); });
    if (!mStarted) {
        return android::INVALID_OPERATION;
    }
    if (mOutputs.empty()) {
        return -EAGAIN;
    }
    *output = mOutputs.front();
    mOutputs.pop_front();
    if (output->status == 0 && !output->bytes.empty()) {
        memcpy(mBuffers[output->index]->base(), output->bytes.data(), output->bytes.size());
    }
    mChanged.notify_all();
    return output->status;
}

int FakeCodec::outputFormat(sp<android::AMessage>* format) {
    std::lock_guard<std::mutex> guard(mLock);
    *format = mOutputFormat;
    return mOutputFormat == nullptr ? android::INVALID_OPERATION : 0;
}

}  // namespace orvtest

using orvtest::FakeCodec;

namespace android {

namespace {

FakeCodec& fake() {
    return FakeCodec::instance();
}

}  // namespace

MediaCodec::MediaCodec(std::shared_ptr<orvhost::CodecEngine> engine) : mEngine(std::move(engine)) {}
MediaCodec::~MediaCodec() = default;

sp<MediaCodec> MediaCodec::CreateByType(const sp<ALooper>&, const AString& mime, bool, status_t*) {
    fake().add(std::string("create ") + mime.c_str());
    if (fake().statusOf("create") != 0) {
        return nullptr;
    }
    auto engine = std::make_shared<orvhost::CodecEngine>();
    engine->name = "fake";
    return new MediaCodec(std::move(engine));
}

sp<MediaCodec> MediaCodec::CreateByComponentName(const sp<ALooper>& looper, const AString& name,
                                                 status_t* error) {
    fake().add(std::string("component ") + name.c_str());
    return CreateByType(looper, name, false, error);
}

status_t MediaCodec::getName(AString* name) const {
    name->setTo(mEngine->name.c_str());
    return fake().statusOf("name");
}

status_t MediaCodec::configure(const sp<AMessage>& format, const sp<Surface>&, const sp<ICrypto>&,
                               uint32_t) {
    fake().add("configure");
    fake().configure(format);
    return fake().statusOf("configure");
}

status_t MediaCodec::start() {
    fake().add("start");
    if (const int status = fake().statusOf("start"); status != 0) {
        return status;
    }
    mEngine->inputs.clear();
    mEngine->outputs.clear();
    for (size_t i = 0; i < FakeCodec::INPUTS; ++i) {
        mEngine->inputs.push_back(MediaCodecBuffer::allocate(FakeCodec::CAPACITY));
    }
    for (size_t i = 0; i < FakeCodec::OUTPUTS; ++i) {
        mEngine->outputs.push_back(MediaCodecBuffer::allocate(FakeCodec::CAPACITY));
    }
    fake().start(mEngine->outputs);
    return OK;
}

status_t MediaCodec::stop() {
    fake().stop();
    fake().add("stop");
    return fake().statusOf("stop");
}

status_t MediaCodec::release() {
    fake().add("release");
    return OK;
}

status_t MediaCodec::getInputBuffers(Vector<sp<MediaCodecBuffer>>* buffers) const {
    *buffers = mEngine->inputs;
    return fake().statusOf("inputs");
}

status_t MediaCodec::getOutputBuffers(Vector<sp<MediaCodecBuffer>>* buffers) const {
    fake().add("outputs");
    *buffers = mEngine->outputs;
    return fake().statusOf("outputs");
}

status_t MediaCodec::dequeueInputBuffer(size_t* index, int64_t) {
    return fake().dequeueInput(index);
}

status_t MediaCodec::queueInputBuffer(size_t index, size_t offset, size_t size, int64_t timeUs,
                                      uint32_t flags, AString*) {
    const uint8_t* bytes = mEngine->inputs[index]->base() + offset;
    return fake().queueInput(index, {FakeCodec::Bytes(bytes, bytes + size), timeUs, flags});
}

status_t MediaCodec::dequeueOutputBuffer(size_t* index, size_t* offset, size_t* size,
                                         int64_t* timeUs, uint32_t* flags, int64_t) {
    FakeCodec::Output output;
    const int status = fake().dequeueOutput(&output);
    *index = output.index;
    *offset = 0;
    *size = output.bytes.size();
    *timeUs = output.timeUs;
    *flags = 0;
    return status;
}

status_t MediaCodec::renderOutputBufferAndRelease(size_t index) {
    return fake().add("render " + std::to_string(index));
}

status_t MediaCodec::releaseOutputBuffer(size_t index) {
    return fake().add("drop " + std::to_string(index));
}

status_t MediaCodec::getOutputFormat(sp<AMessage>* format) const {
    return fake().outputFormat(format);
}

}  // namespace android
