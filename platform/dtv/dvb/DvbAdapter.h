#pragma once

#include <dtv/TunerTypes.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "dtv/dvb/DvbParameters.h"

namespace orvhost {

// One adapter with its frontend, demultiplexer and stream, as the kernel has them (Linux DVB API
// 5). What lies above it never sees a device, so that tests put their own in its place. One thread
// at a time.
class DvbAdapter {
public:
    virtual ~DvbAdapter() = default;

    // Has the frontend tune, without waiting for a lock, and the whole transport stream flow. 0 or
    // a negative errno; -EBUSY when another program has it.
    virtual int start(const DvbParameters& parameters) = 0;

    // What to poll for packets.
    virtual int descriptor() const = 0;

    // The packets that came, without waiting: their bytes, or a negative errno; -EOVERFLOW once
    // when the kernel had no room for what came meanwhile.
    virtual ssize_t read(uint8_t* data, size_t size) = 0;

    // May take some milliseconds.
    virtual DvbSignal signal() = 0;
};

// Makes the adapters of this process: the kernel's, unless a test says otherwise, until it takes
// that back with null.
using DvbAdapterFactory = std::function<std::unique_ptr<DvbAdapter>()>;
void setDvbAdapterFactory(DvbAdapterFactory factory);
std::unique_ptr<DvbAdapter> makeDvbAdapter();

}  // namespace orvhost
