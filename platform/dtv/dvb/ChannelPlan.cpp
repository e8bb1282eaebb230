#include "dtv/dvb/ChannelPlan.h"

namespace orvhost {

namespace {

constexpr uint32_t OFFSET_HZ = 1'000'000 / 7;  // 142,857

// Channels of 6 MHz side by side, the first one with its middle there.
void append(std::vector<PlannedChannel>* plan, int first, int last, uint32_t middleHz) {
    for (int number = first; number <= last; ++number) {
        const auto step = static_cast<uint32_t>(number - first);
        plan->push_back({number, middleHz + step * CHANNEL_BANDWIDTH_HZ + OFFSET_HZ});
    }
}

}  // namespace

std::optional<std::vector<PlannedChannel>> channelPlan(const std::string& region) {
    constexpr uint32_t VHF_HZ = 177'000'000;
    constexpr uint32_t UHF_HZ = 473'000'000;
    std::vector<PlannedChannel> plan;
    if (region == "br") {
        append(&plan, 7, 13, VHF_HZ);
        append(&plan, 14, 51, UHF_HZ);
    } else if (region == "jp") {
        append(&plan, 13, 62, UHF_HZ);
    } else {
        return std::nullopt;
    }
    return plan;
}

}  // namespace orvhost
