#pragma once

#include <cstddef>
#include <cstdint>

namespace orvhost {

// Frames of sound run over the ends of PES packets, so that a recording of whole PES packets begins
// and ends with parts of frames, of which decoders complain:
//
//   PES packets   [rest F1 F2 F3a] [F3b F4] ... [F7b F8 F9a]
//   afterwards         [F1 F2 F3a] [F3b F4] ... [F7b F8]
//
// Both work on packets of 188 bytes in memory, of which those of this PID alone change: some become
// null packets, and the one with the cut carries stuffing instead of the part that goes. Frames are
// those of LOAS, ADTS (ISO/IEC 14496-3) or MPEG audio layer II, whatever the tables call them;
// where none are found, or nothing is cut, no packet changes. Nothing but unencrypted packets
// without a hole among them is understood.

// The first packets of a recording: lets the sound begin with a frame.
void beginWithFrame(uint8_t* packets, size_t count, uint16_t pid);

// The last packets of a recording, in which every PES packet of the PID is whole.
void endWithFrame(uint8_t* packets, size_t count, uint16_t pid);

// The packet becomes a null packet.
void makeNull(uint8_t* packet);

}  // namespace orvhost
