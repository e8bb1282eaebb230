#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvhost {

constexpr uint16_t PID_NONE = 0x1FFF;  // the null packets' PID: "no PID" everywhere here

enum class StreamKind {
    Unknown,
    Video,      // 0x01, 0x02, 0x1B, 0x24
    AudioLatm,  // 0x11
    AudioAdts,  // 0x0F
    AudioMpeg,  // 0x03, 0x04
    Caption,    // 0x06, private PES: captions and superimposed text
};

StreamKind streamKindOf(uint8_t streamType);

// A descriptor as the table had it (ISO/IEC 13818-1 2.6), without its two header bytes.
struct Descriptor {
    uint8_t tag = 0;
    std::vector<uint8_t> data;
};

// One elementary stream of a PMT.
struct ElementaryStream {
    uint16_t pid = PID_NONE;
    uint8_t streamType = 0;
    StreamKind kind = StreamKind::Unknown;
    std::string language;   // ISO 639-2, empty when no descriptor names one
    int componentTag = -1;  // stream identifier descriptor, -1 without one
    std::vector<Descriptor> descriptors;
};

// Whether a stream is captions: private PES whose component tag is one of captions (0x30 to 0x37,
// or 0x87 in partial reception; ARIB TR-B14), or, with another tag or none, whose data component
// descriptor names the caption coding (0x0008 or 0x0012; ARIB STD-B10). Superimposed text (tags
// 0x38 to 0x3F and 0x88) is not.
bool isCaptions(const ElementaryStream& stream);

// One programme: a PMT with what the SDT says about it.
struct Service {
    uint16_t serviceId = 0;
    uint16_t pmtPid = PID_NONE;
    uint16_t pcrPid = PID_NONE;
    uint8_t serviceType = 0;       // service descriptor; 0 without an SDT
    std::vector<uint8_t> rawName;  // in the broadcast's own character coding
    std::string name;              // best effort, valid UTF-8: the Latin part of rawName
    std::string provider;          // likewise
    std::vector<ElementaryStream> streams;
};

}  // namespace orvhost
