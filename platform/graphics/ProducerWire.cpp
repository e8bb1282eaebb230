#include "graphics/ProducerWire.h"

namespace orvhost::producerwire {

using android::Parcel;
using android::status_t;
using QueueBufferInput = android::IGraphicBufferProducer::QueueBufferInput;

namespace {

const android::StaticString16 LINK_TEXT(u"OrvProducerLink");

constexpr uint32_t INTERLACED = 0x1;
constexpr uint32_t TOP_FIELD_FIRST = 0x2;
// What a data space may consist of: its three fields, and the plain numbers below them.
constexpr int32_t DATA_SPACE_BITS =
    HAL_DATASPACE_STANDARD_MASK | HAL_DATASPACE_TRANSFER_MASK | HAL_DATASPACE_RANGE_MASK | 0xFFFF;

}  // namespace

const android::String16 LINK_DESCRIPTOR(LINK_TEXT);

void writeInput(const QueueBufferInput& input, Parcel* parcel) {
    parcel->writeInt64(input.timestamp);
    parcel->writeInt32(input.crop.left);
    parcel->writeInt32(input.crop.top);
    parcel->writeInt32(input.crop.right);
    parcel->writeInt32(input.crop.bottom);
    parcel->writeUint32((input.interlaced ? INTERLACED : 0) |
                        (input.topFieldFirst ? TOP_FIELD_FIRST : 0));
    parcel->writeUint32(input.sampleAspectWidth);
    parcel->writeUint32(input.sampleAspectHeight);
    parcel->writeInt32(input.dataSpace);
}

status_t readInput(const Parcel& parcel, QueueBufferInput* input) {
    input->timestamp = parcel.readInt64();
    input->crop.left = parcel.readInt32();
    input->crop.top = parcel.readInt32();
    input->crop.right = parcel.readInt32();
    input->crop.bottom = parcel.readInt32();
    const uint32_t flags = parcel.readUint32();
    input->interlaced = (flags & INTERLACED) != 0;
    input->topFieldFirst = (flags & TOP_FIELD_FIRST) != 0;
    input->sampleAspectWidth = parcel.readUint32();
    input->sampleAspectHeight = parcel.readUint32();
    int32_t dataSpace = 0;
    const status_t status = parcel.readInt32(&dataSpace);  // the last one: missing if any is
    input->dataSpace = static_cast<android_dataspace>(dataSpace & DATA_SPACE_BITS);
    return status;
}

}  // namespace orvhost::producerwire
