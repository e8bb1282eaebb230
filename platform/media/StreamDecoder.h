#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "media/Av.h"

namespace orvhost {

// What a consumer has to know before it can use an output.
struct StreamFormat {
    int width = 0;  // of a picture, after cropping
    int height = 0;
    int sampleRate = 0;  // of sound
    int channels = 0;

    bool operator==(const StreamFormat&) const = default;
};

struct DecodedOutput {
    StreamFormat format;
    int64_t timeUs = 0;
    AvFrame picture;      // video
    size_t pcmBytes = 0;  // sound: what writePcm() will write
};

// One decoder of one stream, without buffers, threads or states: units in, pictures or PCM out.
//
//      open -> (take until Again -> feed)*
//
// All calls come from one thread at a time.
class StreamDecoder {
public:
    enum class Status {
        Ok,
        Again,        // take: nothing more inside, feed the next unit
        EndOfStream,  // take: drained after feed(nullptr); the next unit starts afresh
        Damaged,      // the unit was of no use, the next one may be
        Failed,       // no decoder any more
    };

    StreamDecoder() = default;
    StreamDecoder(const StreamDecoder&) = delete;  // owns library state
    StreamDecoder& operator=(const StreamDecoder&) = delete;
    virtual ~StreamDecoder() = default;

    // Starts over, with the stream's configuration where it is carried outside the stream (empty
    // otherwise). What was inside is lost. Damaged: the configuration is no good, and units are
    // damaged until another one comes.
    [[nodiscard]] virtual Status open(std::span<const uint8_t> configuration) = 0;

    // One unit, its presentation time in the packet's pts in microseconds. The decoder takes its
    // own reference where it needs the bytes longer. Null: nothing follows.
    [[nodiscard]] virtual Status feed(AVPacket* packet) = 0;

    [[nodiscard]] virtual Status take(DecodedOutput& output) = 0;

    // Writes the sound that take() announced last: interleaved signed 16-bit samples.
    virtual void writePcm(uint8_t* /*out*/) {}
};

}  // namespace orvhost
