#include <gui/Surface.h>
#include <media/stagefright/MediaCodec.h>

#include <new>
#include <utility>

#include "media/CodecEngine.h"
#include "trace/HostLog.h"

namespace android {

namespace {

// The player is built without exceptions: none may leave the codec.
template <typename Call>
status_t guarded(Call call) {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return NO_MEMORY;
    }
}

}  // namespace

MediaCodec::MediaCodec(std::shared_ptr<orvhost::CodecEngine> engine) : mEngine(std::move(engine)) {}

MediaCodec::~MediaCodec() {
    mEngine->release();
}

sp<MediaCodec> MediaCodec::create(const sp<ALooper>& looper,
                                  const orvhost::CodecComponent* component, status_t* error) {
    sp<MediaCodec> codec;
    const status_t result = guarded([&] {
        if (component == nullptr) {
            return status_t(NAME_NOT_FOUND);
        }
        if (looper == nullptr) {
            return status_t(BAD_VALUE);
        }
        codec = new MediaCodec(std::make_shared<orvhost::CodecEngine>(*component, looper));
        return status_t(OK);
    });
    if (error != nullptr) {
        *error = result;
    }
    return codec;
}

sp<MediaCodec> MediaCodec::CreateByType(const sp<ALooper>& looper, const AString& mime,
                                        bool encoder, status_t* error) {
    return create(looper, encoder ? nullptr : orvhost::CodecComponent::byMime(mime.c_str()), error);
}

sp<MediaCodec> MediaCodec::CreateByComponentName(const sp<ALooper>& looper, const AString& name,
                                                 status_t* error) {
    return create(looper, orvhost::CodecComponent::byName(name.c_str()), error);
}

status_t MediaCodec::getName(AString* name) const {
    name->setTo(mEngine->name());
    return OK;
}

status_t MediaCodec::configure(const sp<AMessage>& format, const sp<Surface>& surface,
                               const sp<ICrypto>& crypto, uint32_t flags) {
    if (crypto != nullptr || flags != 0) {
        return ERROR_UNSUPPORTED;  // neither descrambling nor encoding
    }
    return guarded([&] { return mEngine->configure(format, surface); });
}

status_t MediaCodec::start() {
    return guarded([&] { return mEngine->start(); });
}

status_t MediaCodec::stop() {
    return mEngine->stop();
}

status_t MediaCodec::release() {
    return mEngine->release();
}

status_t MediaCodec::getInputBuffers(Vector<sp<MediaCodecBuffer>>* buffers) const {
    return mEngine->getInputBuffers(buffers);
}

status_t MediaCodec::getOutputBuffers(Vector<sp<MediaCodecBuffer>>* buffers) const {
    return mEngine->getOutputBuffers(buffers);
}

status_t MediaCodec::dequeueInputBuffer(size_t* index, int64_t timeoutUs) {
    return mEngine->dequeueInput(index, timeoutUs);
}

status_t MediaCodec::queueInputBuffer(size_t index, size_t offset, size_t size,
                                      int64_t presentationTimeUs, uint32_t flags,
                                      AString* errorDetail) {
    return guarded([&] {
        return mEngine->queueInput(index, offset, size, presentationTimeUs, flags, errorDetail);
    });
}

status_t MediaCodec::dequeueOutputBuffer(size_t* index, size_t* offset, size_t* size,
                                         int64_t* presentationTimeUs, uint32_t* flags,
                                         int64_t timeoutUs) {
    return guarded([&] {
        return mEngine->dequeueOutput(index, offset, size, presentationTimeUs, flags, timeoutUs);
    });
}

status_t MediaCodec::renderOutputBufferAndRelease(size_t index) {
    return guarded([&] { return mEngine->releaseOutput(index, true); });
}

status_t MediaCodec::releaseOutputBuffer(size_t index) {
    return guarded([&] { return mEngine->releaseOutput(index, false); });
}

status_t MediaCodec::getOutputFormat(sp<AMessage>* format) const {
    return mEngine->getOutputFormat(format);
}

}  // namespace android
