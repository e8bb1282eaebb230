#pragma once

#include <dtv/TunerTypes.h>

#include <cstdint>

namespace orvhost {

StreamKind streamKindOf(uint8_t streamType);

// Whether a stream is captions: private PES whose component tag is one of captions (0x30 to 0x37,
// or 0x87 in partial reception; ARIB TR-B14), or, with another tag or none, whose data component
// descriptor names the caption coding (0x0008 or 0x0012; ARIB STD-B10). Superimposed text (tags
// 0x38 to 0x3F and 0x88) is not.
bool isCaptions(const ElementaryStream& stream);

}  // namespace orvhost
