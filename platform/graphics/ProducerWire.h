#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <gui/IGraphicBufferProducer.h>
#include <utils/String16.h>

#include <cstdint>

// What the two sides of a buffer queue say to each other. The queue lives with the window, in the
// application's process; the producer, a codec, in the service's. All calls are one-way, and those
// of each direction are executed in order: so neither side ever waits for the other, and a picture
// costs one message, and credits for up to three of them another one the other way.
//
// The queue's side gives *credits*: it takes slots from its queue as they become free and sends
// each along, with the descriptor of its memory when that is new. The producer spends them without
// asking. A slot is with the producer from the credit until it queues it or asks for buffers of
// another size.
//
//   producer                        queue
//   CONNECT, REQUEST_BUFFERS  --->
//                             <---  DISPLAY_SIZE, CREDIT x free slots, with descriptors
//   QUEUE slot                --->        consumer acquires ... releases
//                             <---  CREDIT slots, while the producer has few
//   DISCONNECT                --->  everything is taken back
//
// Sizes are only ever told by the producer, with a number, the *generation*. Credits name the one
// they belong to; credits of another are stale and ignored. A session is named by a number that
// its producer draws.
namespace orvhost::producerwire {

// Calls to the queue, each beginning with the token of IGraphicBufferProducer::descriptor.
enum ToQueue : uint32_t {
    // int64 session, int32 api, binder of the ProducerLink that is to hear of credits
    CONNECT = android::IBinder::FIRST_CALL_TRANSACTION,
    // int64 session, uint32 generation, uint32 width, uint32 height, int32 format, uint32 kept.
    // Credits of earlier generations are void but for the slots of the bits in `kept`, which are
    // being written to. The same once more asks for what did not come.
    REQUEST_BUFFERS,
    // int64 session, int32 slot, uint32 pictures dropped since the last one; then the fields of
    // QueueBufferInput: int64 timestamp, int32 left, top, right, bottom of the crop, uint32 flags,
    // uint32 sampleAspectWidth, uint32 sampleAspectHeight, int32 dataSpace
    QUEUE,
    // int64 session, int32 slot: the picture that was queued last from it is being read
    PICTURE_READ,
    // int64 session
    DISCONNECT,
};

// Calls to the producer, each beginning with the token LINK_DESCRIPTOR.
enum ToProducer : uint32_t {
    // uint32 generation; then for each slot: int32 slot, int32 whether a descriptor follows, the
    // descriptor
    CREDIT = android::IBinder::FIRST_CALL_TRANSACTION,
    // int32 width, int32 height, pixels
    DISPLAY_SIZE,
    // int64 session, int32 why: NO_INIT, the queue has ended for good; else it has another producer
    ENDED,
};

extern const android::String16 LINK_DESCRIPTOR;

// The fields of a picture, as told for QUEUE.
void writeInput(const android::IGraphicBufferProducer::QueueBufferInput& input,
                android::Parcel* parcel);
// NOT_ENOUGH_DATA when some are missing. Any value may stand in them.
android::status_t readInput(const android::Parcel& parcel,
                            android::IGraphicBufferProducer::QueueBufferInput* input);

}  // namespace orvhost::producerwire
