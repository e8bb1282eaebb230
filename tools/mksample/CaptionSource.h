// The captions of the sample broadcast, as PES packets: a statement about every 0.9 s, a management
// group twice a second to the end of the programme (ARIB STD-B24 volume 1 part 3).
//
// Every caption tells its number and when it is due, "#7 6950 ms", in milliseconds from the first
// picture. They take turns at what a receiver must cope with: accents, the special set, colours and
// sizes, rows set in three ways, a full row, text that runs on into the next row, five rows of
// which three stay, a clear screen in the middle, the three timing modes.

#pragma once

#include <cstdint>

#include "mksample/PesSource.h"

namespace mksample {

class CaptionSource : public PesSource {
public:
    // Captions are due from the second second on, to the last one of the programme.
    explicit CaptionSource(double durationS);
    bool next(PesUnit* unit) override;

    // How long before PesUnit::due a packet is released.
    static constexpr int64_t LEAD_90K = 18000;

private:
    void takeManagement(PesUnit* unit);
    void takeStatement(PesUnit* unit);

    const int64_t mEndMs;
    int64_t mManagementMs;  // when the next one is released
    int64_t mNumber = 0;    // of the next caption
};

}  // namespace mksample
