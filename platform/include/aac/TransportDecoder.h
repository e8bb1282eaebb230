#pragma once

#include <cstdint>

// AAC transport framing: finds the frames of a byte stream and gives out the raw access units
// in them, one per call, together with the AudioSpecificConfig that describes them.
//
//   bytes in any pieces:  [..tail of a frame][LOAS or ADTS frame: AU AU][frame: A][U][ ..
//   out, one per call:                                             AU, AU,         AU
//
// Use, from one thread:
//     FillData(pieces) -> ReadAccessUnit() until it is not TRANSPORTDEC_OK -> FillData ...
//     after each TRANSPORTDEC_OK: GetAuBitsTotal() and GetBitstream() for the unit's bits
//
// LOAS is the AudioSyncStream of ISO/IEC 14496-3 (11-bit sync word 0x2B7) around an AudioMuxElement
// with its StreamMuxConfig inside, for one program with one layer. ADTS is that of ISO/IEC 13818-7
// and 14496-3. No byte sequence can stop the framing: each refused frame costs at least its first
// byte and the search goes on behind it, every length is held against the frame that carries it,
// and a configuration is only believed once the whole frame around it was read.

enum TRANSPORT_TYPE {
    TT_MP4_ADTS = 2,
    TT_MP4_LOAS = 10,
};

enum TPDEC_PARAM {
    // Whether frames are given out without waiting for the buffer fullness that they announce.
    // Always so here: the parameter is accepted and changes nothing.
    TPDEC_PARAM_IGNORE_BUFFERFULLNESS = 4,
};

enum TRANSPORTDEC_ERROR {
    TRANSPORTDEC_OK = 0,
    TRANSPORTDEC_NOT_ENOUGH_BITS = 0x101,    // the frame's end has not arrived; feed more bytes
    TRANSPORTDEC_SYNC_ERROR = 0x102,         // no frame start in all bytes fed; they are dropped
    TRANSPORTDEC_INVALID_PARAMETER = 0x202,  // wrong argument, nothing done
    TRANSPORTDEC_UNSUPPORTED_FORMAT = 0x402  // a sound frame of a kind not handled, skipped whole
};

// What an AudioSpecificConfig says (ISO/IEC 14496-3, 1.6.2.1). With SBR signalled, the core coder's
// values stand in the first group and those of the output in the extension group.
struct CSAudioSpecificConfig {
    uint8_t m_aot = 0;                     // audio object type of the core coder
    uint8_t m_samplingFrequencyIndex = 0;  // 15: the frequency was written out
    uint32_t m_samplingFrequency = 0;      // Hz, may be 0 when written out
    uint8_t m_channelConfiguration = 0;    // 0: described by a program_config_element

    uint8_t m_extensionAudioObjectType = 0;  // 5 when SBR was signalled as present, else 0
    uint8_t m_extensionSamplingFrequencyIndex = 0;
    uint32_t m_extensionSamplingFrequency = 0;  // Hz

    uint32_t m_samplesPerFrame = 0;  // of the core coder, per channel
    uint8_t m_channelCount = 0;      // from the configuration or its element; 0: not known
    bool m_sbrPresentFlag = false;
    bool m_psPresentFlag = false;

    bool operator==(const CSAudioSpecificConfig&) const = default;
};

struct TRANSPORTDEC;
using HANDLE_TRANSPORTDEC = TRANSPORTDEC*;

// The bits of the unit read last; gone with the next FillData, ReadAccessUnit or Close. Reads past
// the unit's end give zero bits.
struct FDK_BITSTREAM;
using HANDLE_FDK_BITSTREAM = FDK_BITSTREAM*;

// Called from ReadAccessUnit for the first configuration and whenever it changed, before the first
// unit it applies to is given out. `asc` stays valid until the decoder is closed, its contents
// until the next call. `*changed` is 1, or 0 for the first configuration. A result other than 0
// refuses the frame, which is then skipped; the same configuration is offered again with the next.
using cbUpdateConfig_t = int (*)(void* context, const CSAudioSpecificConfig* asc,
                                 unsigned char layer, unsigned char* changed);

// `flags` is 1 for ADTS that may carry MPEG-4 profiles, else 0; both are read alike. Null when the
// framing is unknown, `layers` is not 1 or memory is short.
HANDLE_TRANSPORTDEC transportDec_Open(TRANSPORT_TYPE type, unsigned flags, unsigned layers);

TRANSPORTDEC_ERROR transportDec_SetParam(HANDLE_TRANSPORTDEC decoder, TPDEC_PARAM param, int value);

// 0, or 1 without a decoder. A null callback removes the one before.
int transportDec_RegisterAscCallback(HANDLE_TRANSPORTDEC decoder, cbUpdateConfig_t callback,
                                     void* context);

// Copies as much of the last `*bytesValid` bytes of `buffer` (of `bufferSize` bytes) as there is
// room for, and lowers `*bytesValid` by what it took. There is room for more than 64 KiB once
// ReadAccessUnit has asked for more bits.
TRANSPORTDEC_ERROR transportDec_FillData(HANDLE_TRANSPORTDEC decoder, const unsigned char* buffer,
                                         unsigned bufferSize, unsigned* bytesValid, int layer);

// Moves to the next access unit, over whatever is damaged in front of it. NOT_ENOUGH_BITS and
// SYNC_ERROR mean that no unit can come from the bytes fed so far; after UNSUPPORTED_FORMAT more
// may.
TRANSPORTDEC_ERROR transportDec_ReadAccessUnit(HANDLE_TRANSPORTDEC decoder, unsigned layer);

// The whole length in bits of the unit read last, whatever has been read of it; 0 without one.
int transportDec_GetAuBitsTotal(HANDLE_TRANSPORTDEC decoder, unsigned layer);

// Stands at the unit's first bit after ReadAccessUnit. Never null for an open decoder.
HANDLE_FDK_BITSTREAM transportDec_GetBitstream(HANDLE_TRANSPORTDEC decoder, unsigned layer);

// Frees the decoder and clears the handle; null and a cleared handle are fine.
void transportDec_Close(HANDLE_TRANSPORTDEC* decoder);

// The next `count` bits (0 to 32), most significant first.
uint32_t FDKreadBits(HANDLE_FDK_BITSTREAM bits, unsigned count);

// The next `count` whole bytes, from any bit position: the quick way to take a unit out.
void FDKreadBytes(HANDLE_FDK_BITSTREAM bits, unsigned char* out, unsigned count);

// Skips to the next byte boundary, counted from the unit's first bit.
void FDKbyteAlign(HANDLE_FDK_BITSTREAM bits);

// Bits left in the unit.
unsigned FDKgetValidBits(HANDLE_FDK_BITSTREAM bits);
