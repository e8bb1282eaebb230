#pragma once

#include <aac/TransportDecoder.h>

#include "decoder/MediaExtractor.h"

namespace OrvPlayer {

// Cuts raw AAC access units out of the audio PES records and gives each its presentation time.
//
//   PES records:   [..AU][frame: AU][frame: A]   [U][frame: AU] ...
//   given out:     AudioSpecificConfig,  AU,          AU, ...
//
// The unit that brought the configuration gives way to it. Units run over the ends of PES packets,
// so the transport decoder keeps what is left of one payload and is fed the next when it runs out
// of bits; the first unit that then comes began in the packet before and takes the time reached
// so far, the one behind it the new packet's. Deliberate: a unit that ends exactly with its packet
// looks the same, so where all do, every unit behind the first of the second packet is stamped one
// frame early.
// See AACMediaExtractorTest.UnitsAlignedToPESAreStampedOneFrameEarly.
//
// Broadcasts declare one framing but may carry the other. Until a configuration was given out the
// extractor counts the records that brought none, looks at how each payload begins, and switches.
class AACMediaExtractor : public MediaExtractor {
public:
    enum transportLayer_t { LOAS = 0, ADTS = 1 };

    AACMediaExtractor(const android::sp<RingBuffer>& ringBuffer, transportLayer_t transportLayer);

    // STATUS_NO_RECORD also when a record was used up, or is to be fed further, without a
    // configuration. The read lock of the ring buffer stays held while units of a record come, and
    // is released together with a configuration.
    int getDecodableUnit(void* out, unsigned long capacity, unsigned long* size, long long* pts,
                         unsigned char* flags) override;

    // The next unit is a configuration again. The framing and what waits in it stay: the units of
    // before come first, and the record met with them is passed over unread. See
    // AACMediaExtractorTest.ResetForgetsTheRecordAndRepeatsTheConfiguration.
    void reset() override;

protected:
    ~AACMediaExtractor() override;

private:
    enum FragmentStatus : int {
        FRAGMENT_OK = 0,        // a unit, or nothing this time
        FRAGMENT_FEED_ON = 1,   // bytes of the payload are still to be fed
        FRAGMENT_USED_UP = 2,   // the payload has been taken whole
        FRAGMENT_IS_CONFIG = 3  // an AudioSpecificConfig
    };

    void openTransport(const char* caller);
    static int ASCCallback(void* context, const CSAudioSpecificConfig* asc, unsigned char layer,
                           unsigned char* changed);

    int getNextFragment(void* out, unsigned long capacity, unsigned long* size, long long* pts);
    void feedTransport();
    int feedNext();
    void takeTime(long long* pts);
    int giveConfig(void* out, unsigned long capacity, unsigned long* size);
    int getASC(void* out, unsigned long capacity, unsigned long* size);

    void countSuspicion(const unsigned char* start, uint32_t size);
    void detectFraming(const unsigned char* start, uint32_t size);

    HANDLE_TRANSPORTDEC transportDecoder = nullptr;
    uint32_t bytesValid = 0;        // of the payload, not yet taken by the transport decoder
    uint32_t frameDuration = 0;     // of a unit, in 90 kHz ticks
    int64_t currentPts = 0;         // of the next unit, in 90 kHz ticks
    bool ptsFromNextBlock = false;  // the unit after the next takes the time of the record at hand
    bool ascDelivered = false;
    bool needFill = true;  // feed the payload before the next read

    // The first configuration found, kept for good: the decoder that told it may be closed since.
    CSAudioSpecificConfig firstConfig;
    const CSAudioSpecificConfig* ascConfig = nullptr;  // firstConfig, once there is one

    transportLayer_t transport;
    bool detecting = true;      // until the first configuration was given out
    uint32_t errorCount = 0;    // records without a configuration
    uint32_t suspectCount = 0;  // of them, those that began like the other framing
};

}  // namespace OrvPlayer
