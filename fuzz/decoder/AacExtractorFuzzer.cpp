// PES records through the AAC extractor. Byte 0 is the framing and the room for units.

#include "PesRecords.h"
#include "decoder/AACMediaExtractor.h"

using namespace OrvPlayer;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    const auto framing = (data[0] & 1) != 0 ? AACMediaExtractor::ADTS : AACMediaExtractor::LOAS;
    const android::sp<MediaExtractor> extractor = new AACMediaExtractor(pesRing(), framing);
    PesRecords(*pesRing(), *extractor, (data[0] & 2) != 0 ? 64 : 8192).run(data, size);
    return 0;
}
