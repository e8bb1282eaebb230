#include <dtv/DemuxBinder.h>

#include "dtv/Tuner.h"

namespace {

orvhost::Demultiplexer& demultiplexer() {
    return orvhost::Tuner::instance().demultiplexer();
}

bool fitsSet(int handle) {
    return handle >= 0 && handle < DEMUX_HANDLE_COUNT;
}

}  // namespace

int DemuxBinder_StartFiltering(unsigned short pid, int kind) {
    return demultiplexer().startFiltering(pid, kind);
}

int DemuxBinder_StopFiltering(int handle) {
    return demultiplexer().stopFiltering(handle);
}

int DemuxBinder_Select(DemuxBinder_HandleSet* set, int timeoutMs) {
    return demultiplexer().select(set, timeoutMs);
}

int DemuxBinder_ReadData(int handle, unsigned char* data, int size) {
    return demultiplexer().readData(handle, data, size);
}

void DemuxBinder_HandleZERO(DemuxBinder_HandleSet* set) {
    *set = {};
}

void DemuxBinder_HandleSET(int handle, DemuxBinder_HandleSet* set) {
    if (fitsSet(handle)) {
        set->bits[handle / 64] |= uint64_t{1} << (handle % 64);
    }
}

int DemuxBinder_HandleISSET(int handle, const DemuxBinder_HandleSet* set) {
    return fitsSet(handle) && (set->bits[handle / 64] >> (handle % 64) & 1) != 0 ? 1 : 0;
}
