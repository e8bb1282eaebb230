#include "audio/MasterVolume.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace orvhost {
namespace {

constexpr int UNSET = -1;
constexpr int MUTED = 0x10000;  // beside the percentage

std::atomic<int> sVolume{UNSET};

// Never destroyed: the sound server's thread runs while the process ends.
struct Listeners {
    std::mutex lock;
    std::vector<MasterVolumeListener*> list;
};
Listeners& listeners() {
    static Listeners& all = *new Listeners;
    return all;
}

}  // namespace

double MasterVolume::gain() const {
    const double share = percent / 100.0;
    return isMuted ? 0.0 : share * share * share;
}

void setMasterVolume(const MasterVolume& volume) {
    const int percent = std::clamp(volume.percent, 0, MasterVolume::LOUDEST_PERCENT);
    const std::lock_guard<std::mutex> guard(listeners().lock);
    sVolume = percent | (volume.isMuted ? MUTED : 0);
    for (MasterVolumeListener* const pListener : listeners().list) {
        pListener->onMasterVolume();
    }
}

std::optional<MasterVolume> masterVolume() {
    const int volume = sVolume;
    if (volume == UNSET) {
        return std::nullopt;
    }
    return MasterVolume{volume & ~MUTED, (volume & MUTED) != 0};
}

void addMasterVolumeListener(MasterVolumeListener* pListener) {
    const std::lock_guard<std::mutex> guard(listeners().lock);
    listeners().list.push_back(pListener);
}

void removeMasterVolumeListener(MasterVolumeListener* pListener) {
    const std::lock_guard<std::mutex> guard(listeners().lock);
    std::erase(listeners().list, pListener);
}

}  // namespace orvhost
