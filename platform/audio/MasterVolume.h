#pragma once

#include <cstdint>
#include <optional>

namespace orvhost {

// How loud this process is to be, beside what is done to single tracks: chosen by whoever listens.
// At 100 % sound is as loud as it was sent; the scale is that of sound servers' mixers, the gain
// being its cube. Any thread.
struct MasterVolume {
    static constexpr int LOUDEST_PERCENT = 150;

    int percent = 100;
    bool isMuted = false;

    double gain() const;
    bool operator==(const MasterVolume&) const = default;
};

class MasterVolumeListener {
public:
    // Something else was chosen: masterVolume() tells. On the thread that chose it.
    virtual void onMasterVolume() = 0;

protected:
    ~MasterVolumeListener() = default;
};

// Percentages outside of 0 to LOUDEST_PERCENT become the nearest of them. Listeners were told when
// this returns.
void setMasterVolume(const MasterVolume& volume);
// Nothing where none was chosen: what plays then keeps what the sound server remembers.
std::optional<MasterVolume> masterVolume();

// A listener may be called until removeMasterVolumeListener() returns, which waits for a call under
// way; neither may be called from one.
void addMasterVolumeListener(MasterVolumeListener* pListener);
void removeMasterVolumeListener(MasterVolumeListener* pListener);

}  // namespace orvhost
