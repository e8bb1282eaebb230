#include "CaptionReader.h"

#include "client/CaptionText.h"

using OrvPlayer::ClosedCaptionDecoder;
using OrvPlayer::ClosedCaptionFragmentData;
using OrvPlayer::RingBuffer;

namespace orvplay {

namespace {

constexpr unsigned int TEXT_BYTES = 4096;  // one caption: 96 characters and three line feeds

}  // namespace

CaptionReader::CaptionReader() : mText(new RingBuffer), mDecoder(new ClosedCaptionDecoder) {}

bool CaptionReader::open() {
    mDecoder->addOutput(mText, nullptr);
    return mText->configureWithSize("Captions", TEXT_BYTES) == 0;
}

std::string CaptionReader::read(OrvPlayer::PESData& record) {
    const int result = mDecoder->processPacket(&record);
    mDecoder->clearScreenData();
    if (result != ClosedCaptionDecoder::RESULT_WRITTEN) {
        return {};
    }
    const unsigned char* block =
        mText->read(ClosedCaptionFragmentData::FIXED_SIZE, RingBuffer::NON_BLOCKING);
    if (block == nullptr) {
        return {};
    }
    const uint32_t size = reinterpret_cast<const ClosedCaptionFragmentData*>(block)->mSize;
    std::string text = orvclient::captionUtf8(block + ClosedCaptionFragmentData::FIXED_SIZE,
                                              size - ClosedCaptionFragmentData::FIXED_SIZE);
    mText->readAdvance(size);
    return text;
}

}  // namespace orvplay
