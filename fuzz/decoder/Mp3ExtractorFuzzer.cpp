// PES records through the extractor of MPEG audio. Byte 0 is the room for frames.

#include "PesRecords.h"
#include "decoder/MP3MediaExtractor.h"

using namespace OrvPlayer;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return setenv("ORV_TRACE", "off", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    const android::sp<MediaExtractor> extractor = new MP3MediaExtractor(pesRing());
    PesRecords(*pesRing(), *extractor, (data[0] & 1) != 0 ? 128 : 4096).run(data, size);
    return 0;
}
