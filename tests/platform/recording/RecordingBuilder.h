#pragma once

#include "support/TsBuilder.h"

// Recordings made in memory: a picture every 40 ms, the first of every twelve a random access
// point.
namespace orvtest {

struct RecordingShape {
    int pictures = 120;
    int64_t firstPcrMs = 1000;
    int64_t leadMs = 700;  // from the PCR beside a picture to its time stamp
    int jumpAtPicture = -1;
    int64_t jumpMs = 0;
    bool announced = false;    // the jump, by discontinuity_indicator
    bool pcr = true;           // else only time stamps
    bool video = true;         // else sound
    bool accessPoints = true;  // else no picture that a decoder may begin with
    size_t bytesPerPicture = 1000;
    size_t junk = 0;  // bytes in front
};

constexpr unsigned REC_VIDEO = 0x111;
constexpr unsigned REC_AUDIO = 0x112;
constexpr unsigned REC_PCR = 0x1FF;
constexpr int PICTURE_MS = 40;
constexpr int GROUP_PICTURES = 12;

inline Bytes h264Picture(bool access, size_t size) {
    Bytes es = {0, 0, 0, 1, 0x09, 0xF0};
    if (access) {
        es = es + Bytes{0, 0, 0, 1, 0x67, 0x42, 0, 0x1E, 0, 0, 0, 1, 0x65};
    } else {
        es = es + Bytes{0, 0, 0, 1, 0x41};
    }
    es.resize(std::max(size, es.size()), 0xAA);
    return es;
}

inline Bytes makeRecording(const RecordingShape& shape) {
    constexpr int64_t WRAP_MS = (int64_t{1} << 33) / 90;
    TsBuilder ts;
    ts.raw(Bytes(shape.junk, 0x55));
    const PmtStream video{0x1B, REC_VIDEO, {}};
    const PmtStream audio{0x0F, REC_AUDIO, {}};
    ts.section(0, pat({{1, 0x100}}))
        .section(0x100,
                 pmt(1, REC_PCR, shape.video ? std::vector{video, audio} : std::vector{audio}))
        .section(0x11, sdt({{1, 1, {}, bytesOf("Um")}}));
    for (int i = 0; i < shape.pictures; ++i) {
        const bool jumped = shape.jumpAtPicture >= 0 && i >= shape.jumpAtPicture;
        const int64_t ms =
            (shape.firstPcrMs + i * PICTURE_MS + (jumped ? shape.jumpMs : 0) + WRAP_MS) % WRAP_MS;
        if (shape.pcr) {
            ts.pcr(REC_PCR, ms * 27'000, shape.announced && i == shape.jumpAtPicture);
        }
        const int64_t pts = (ms + shape.leadMs) * 90;
        if (shape.video) {
            const bool access = shape.accessPoints && i % GROUP_PICTURES == 0;
            ts.pes(REC_VIDEO, 0xE0, pts, h264Picture(access, shape.bytesPerPicture));
        }
        ts.pes(REC_AUDIO, 0xC0, pts, Bytes(100, 0x22));
    }
    return ts.build();
}

// With `gap` bytes behind every packet, of which there are only whole ones.
inline Bytes spread(const Bytes& packets, size_t gap) {
    Bytes out;
    for (size_t at = 0; at + TsBuilder::PACKET <= packets.size(); at += TsBuilder::PACKET) {
        const auto from = packets.begin() + static_cast<std::ptrdiff_t>(at);
        out.insert(out.end(), from, from + TsBuilder::PACKET);
        out.resize(out.size() + gap, 0x47);
    }
    return out;
}

}  // namespace orvtest
