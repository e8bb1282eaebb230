#pragma once

#include <media/ICrypto.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/Vector.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace orvhost {
class CodecEngine;
struct CodecComponent;
}  // namespace orvhost

namespace android {

class Surface;

// Decodes one elementary stream: H.264 ("video/avc", Annex B), AAC ("audio/mp4a-latm": raw units
// behind an AudioSpecificConfig, or ADTS) or MPEG audio ("audio/mpeg").
//
//      dequeueInputBuffer -> fill -> queueInputBuffer          (the feeding thread)
//                 decoding on the looper's thread
//      dequeueOutputBuffer -> copy or keep -> release, render  (the taking thread, the renderer)
//
// created --configure--> configured --start--> started --stop--> created; release() from anywhere.
// Everything may be called from any thread; stop() may be called while others wait in a dequeue
// (they come back with INVALID_OPERATION at once). Decoding stalls, and takes no more input,
// while all output buffers are out or waiting: nothing decoded is ever dropped for want of one.
// Damaged units are counted and passed over; only a decoder that cannot be (re)created or memory
// that runs out makes the codec fail, and then every call but stop() and release() returns
// INVALID_OPERATION, the dequeues after their time-out.
class MediaCodec : public RefBase {
public:
    enum BufferFlags {
        BUFFER_FLAG_SYNCFRAME = 1,
        BUFFER_FLAG_CODECCONFIG = 2,  // the buffer holds the stream's configuration
        BUFFER_FLAG_EOS = 4,          // nothing follows: what is still inside comes out
    };

    // Null (and the reason in *error) when no decoder is made for that type or by that name.
    static sp<MediaCodec> CreateByType(const sp<ALooper>& looper, const AString& mime, bool encoder,
                                       status_t* error = nullptr);
    static sp<MediaCodec> CreateByComponentName(const sp<ALooper>& looper, const AString& name,
                                                status_t* error = nullptr);

    MediaCodec(const MediaCodec&) = delete;  // counted
    MediaCodec& operator=(const MediaCodec&) = delete;

    status_t getName(AString* name) const;

    // Keys of the format: "mime" (when present it must be this codec's), "is-adts" (AAC without a
    // configuration comes as ADTS), "width" and "height" or "channel-count" and "sample-rate" as
    // hints: the stream goes before them. Without a surface pictures are decoded and dropped.
    status_t configure(const sp<AMessage>& format, const sp<Surface>& surface,
                       const sp<ICrypto>& crypto, uint32_t flags);
    status_t start();

    // Drops everything inside and makes every index invalid. OK also when not started.
    status_t stop();
    // As stop(), and the codec is of no further use. Any number of times.
    status_t release();

    // The buffers behind the indices, valid between start() and stop(). A picture's output buffer
    // has no memory; PCM is interleaved, signed 16-bit, in host byte order.
    status_t getInputBuffers(Vector<sp<MediaCodecBuffer>>* buffers) const;
    status_t getOutputBuffers(Vector<sp<MediaCodecBuffer>>* buffers) const;

    // -EAGAIN after timeoutUs (0: at once), or after 50 ms when that is longer or negative: a
    // client that waits gets to look at its exit request often enough to end quickly.
    status_t dequeueInputBuffer(size_t* index, int64_t timeoutUs = 0);

    // Gives the buffer to the codec. An empty buffer without BUFFER_FLAG_EOS comes straight back
    // into circulation. On failure the caller keeps the index and *errorDetail says why.
    status_t queueInputBuffer(size_t index, size_t offset, size_t size, int64_t presentationTimeUs,
                              uint32_t flags, AString* errorDetail = nullptr);

    // In the order of presentation, each with the time of the unit it came from.
    // INFO_FORMAT_CHANGED before the first output and before the first one of every other format;
    // INFO_OUTPUT_BUFFERS_CHANGED before an output that needs getOutputBuffers() again; -EAGAIN as
    // above.
    status_t dequeueOutputBuffer(size_t* index, size_t* offset, size_t* size,
                                 int64_t* presentationTimeUs, uint32_t* flags,
                                 int64_t timeoutUs = 0);

    // Copies the picture into a buffer of the surface and queues it there. Waits at most 5 ms for
    // a free one; then the picture is dropped and counted, which is no error. The index is free
    // afterwards in every case.
    status_t renderOutputBufferAndRelease(size_t index);
    status_t releaseOutputBuffer(size_t index);

    // The format announced last: "mime", and "width", "height", "color-format" and "crop" or
    // "sample-rate" and "channel-count". INVALID_OPERATION before the first announcement.
    status_t getOutputFormat(sp<AMessage>* format) const;

protected:
    ~MediaCodec() override;

private:
    static sp<MediaCodec> create(const sp<ALooper>& looper,
                                 const orvhost::CodecComponent* component, status_t* error);
    explicit MediaCodec(std::shared_ptr<orvhost::CodecEngine> engine);

    const std::shared_ptr<orvhost::CodecEngine> mEngine;
};

}  // namespace android
