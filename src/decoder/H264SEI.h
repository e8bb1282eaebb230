#pragma once

#include "decoder/H264ParameterSets.h"

namespace OrvPlayer {

// Decodes the messages of an SEI unit (ITU-T H.264, 7.3.2.3 and annex D), `unit` being its bytes
// behind the NAL header. Picture timing goes into `*sps`, whose HRD fields say how long its own
// are, and sets `*picTimingFound`; every other message is skipped. STEP_ERROR, logged, only when
// the unit as a whole could not be read.
int decodeSEI(const NALBytes& unit, bool removeEmulation, SPS* sps, bool* picTimingFound);

}  // namespace OrvPlayer
