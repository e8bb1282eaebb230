#pragma once

#include <cstdint>

// The demultiplexer service: PID filters over whatever the tuner of this process is tuned to.
//
//   int video = DemuxBinder_StartFiltering(0x111, DEMUX_FILTER_VIDEO);
//   DemuxBinder_HandleSet wanted;
//   DemuxBinder_HandleZERO(&wanted);
//   DemuxBinder_HandleSET(video, &wanted);
//   for (;;) {
//       DemuxBinder_HandleSet ready = wanted;
//       if (DemuxBinder_Select(&ready, 30) > 0 && DemuxBinder_HandleISSET(video, &ready))
//           n = DemuxBinder_ReadData(video, buffer, sizeof(buffer));
//   }
//
// Every function may be called from any thread. The source is read only while a filter runs. Data
// becomes ready in batches of about 20 ms. A handle is given again only after all the others have
// been used, so that a stopped handle left behind in a set stays harmless.

// What a filter delivers: always whole 188-byte transport stream packets.
enum DemuxBinder_FilterKind {
    // Only packets with a PCR, cut to header and adaptation field: adaptation_field_control 2, no
    // start flag, not scrambled, a continuity counter that never moves (no payload, so it must not,
    // ISO/IEC 13818-1 2.4.3.3), the rest of the packet stuffing inside the field.
    DEMUX_FILTER_PCR = 0,
    DEMUX_FILTER_PES = 1,    // every packet of the PID: audio, captions, tables
    DEMUX_FILTER_VIDEO = 2,  // the same with a deeper queue
};

constexpr int DEMUX_HANDLE_COUNT = 1024;

// A set of handles, a plain value. Fill it with the three functions below.
struct DemuxBinder_HandleSet {
    uint64_t bits[DEMUX_HANDLE_COUNT / 64];
};

extern "C" {

// Starts a filter. Returns its handle (0 or more), -EINVAL for a PID above 0x1FFF or an unknown
// kind, -EMFILE when too many filters run, -ENOMEM. Several filters on one PID each get all of it.
// A filter may be started before anything is tuned: data comes once something is.
int DemuxBinder_StartFiltering(unsigned short pid, int kind);

// Stops a filter and drops what it still held. Never waits for the source. Returns 0, or -EBADF
// when no such filter runs.
int DemuxBinder_StopFiltering(int handle);

// Waits until a filter of the set holds data, at most timeoutMs milliseconds (0: only looks).
// Returns how many do, and leaves only those in the set. Returns 0 with an empty set after the time
// has passed, -EINVAL for a null set or a negative time-out. Stopped handles are never ready; a set
// without a running filter waits its time out.
int DemuxBinder_Select(DemuxBinder_HandleSet* set, int timeoutMs);

// Moves as many whole packets as are there and fit into data. Returns the bytes moved (0: nothing
// there), -EBADF when no such filter runs, -EINVAL for a null buffer or one under 188 bytes.
int DemuxBinder_ReadData(int handle, unsigned char* data, int size);

void DemuxBinder_HandleZERO(DemuxBinder_HandleSet* set);
void DemuxBinder_HandleSET(int handle, DemuxBinder_HandleSet* set);         // -1 is passed over
int DemuxBinder_HandleISSET(int handle, const DemuxBinder_HandleSet* set);  // 1 or 0

}  // extern "C"
