#pragma once

#include "dtv/dvb/DvbAdapter.h"

struct dvb_v5_fe_parms;

namespace orvhost {

// An adapter of this machine, below /dev/dvb, by libdvbv5. Written after the kernel's API; it was
// not run on a tuner.
class LinuxDvbAdapter : public DvbAdapter {
public:
    LinuxDvbAdapter() = default;
    ~LinuxDvbAdapter() override;
    LinuxDvbAdapter(const LinuxDvbAdapter&) = delete;  // owns its devices
    LinuxDvbAdapter& operator=(const LinuxDvbAdapter&) = delete;

    int start(const DvbParameters& parameters) override;
    int descriptor() const override { return mDvr; }
    ssize_t read(uint8_t* data, size_t size) override;
    DvbSignal signal() override;

private:
    int openFrontend(const DvbParameters& parameters);
    int openStream(const DvbParameters& parameters);

    dvb_v5_fe_parms* mFrontend = nullptr;
    int mDemux = -1;
    int mDvr = -1;
};

}  // namespace orvhost
