// Video payloads in PES records through the H.264 extractor. Byte 0 is the room for units.

#include "PesRecords.h"
#include "decoder/H264MediaExtractor.h"

using namespace OrvPlayer;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    const android::sp<MediaExtractor> extractor = new H264MediaExtractor(pesRing());
    PesRecords(*pesRing(), *extractor, (data[0] & 1) != 0 ? 64 : 8192).run(data, size);
    return 0;
}
