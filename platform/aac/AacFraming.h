#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "aac/AudioSpecificConfig.h"

namespace orvhost {

// The part of the transport decoder that knows one frame format. It sees bytes in place and keeps
// no reference to them; the decoder owns the buffer, the search for sync and the pace.
//
// For each frame: startsFrame() on the bytes there are, frameSize() once headerSize() bytes are
// there, parse() once the whole frame is; then unitBytes() and the units, then retire().
class AacFraming {
public:
    // A run of bits of an access unit, counted from unitBytes().
    struct Unit {
        uint32_t firstBit;
        uint32_t bitCount;
    };

    // 64 subframes of 16 chunks each, the most that an AudioMuxElement can hold.
    static constexpr size_t kMaxUnits = 1024;
    // 13 bits of length and, for LOAS, the three bytes in front of them.
    static constexpr size_t kMaxFrameSize = 8191 + 3;

    AacFraming() = default;
    AacFraming(const AacFraming&) = delete;  // units refer to memory of this object
    AacFraming& operator=(const AacFraming&) = delete;
    virtual ~AacFraming() = default;

    // The first byte of every frame.
    virtual uint8_t syncByte() const = 0;
    virtual size_t headerSize() const = 0;

    // Whether a frame may start at `data`, judged by the `size` bytes (at least 1) there are.
    virtual bool startsFrame(const uint8_t* data, size_t size) const = 0;

    // Whether the bytes at `next` look like the frame behind that at `frame`.
    virtual bool follows(const uint8_t* frame, const uint8_t* next, size_t size) const = 0;

    // Whole size in bytes by the header, at most kMaxFrameSize; 0 when the header is in itself
    // wrong.
    virtual size_t frameSize(const uint8_t* header) const = 0;

    // False for a frame that builds on an earlier one which never came: its place can be told, its
    // contents cannot.
    virtual bool isReadable(const uint8_t* /*frame*/) const { return true; }

    // Reads a whole frame. On Ok the units and the configuration stand; otherwise everything kept
    // from earlier frames is as before.
    virtual AacParse parse(const uint8_t* frame, size_t size) = 0;

    // Whether the frame just parsed filled its announced size. Told apart only by LOAS.
    virtual bool fillsFrame() const { return true; }

    virtual const uint8_t* unitBytes(const uint8_t* frame) const { return frame; }

    // The last unit of the frame was given out, or the frame is passed over.
    virtual void retire() {}

    // Sync was lost: whatever waits for its second half in a later frame is void.
    virtual void forget() {}

    const CSAudioSpecificConfig& config() const { return mConfig; }
    size_t unitCount() const { return mUnitCount; }
    const Unit& unit(size_t index) const { return mUnits[index]; }

protected:
    void addUnit(size_t firstBit, size_t bitCount) {
        // An empty slot is no unit.
        if (bitCount != 0 && mUnitCount < kMaxUnits) {
            mUnits[mUnitCount++] = {static_cast<uint32_t>(firstBit),
                                    static_cast<uint32_t>(bitCount)};
        }
    }

    CSAudioSpecificConfig mConfig;
    size_t mUnitCount = 0;

private:
    std::array<Unit, kMaxUnits> mUnits;
};

}  // namespace orvhost
