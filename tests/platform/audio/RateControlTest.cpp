#include "audio/RateControl.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace orvhost {
namespace {

// A sound card whose clock is off by so many millionths, and measurements that jitter by 3 ms: from
// 15 ms off its time sound is brought back within 100 s and stays, with a rate that nobody
// hears.
class RateControlTest : public testing::TestWithParam<int> {};

TEST_P(RateControlTest, HoldsSoundAgainstADriftingCard) {
    for (const uint32_t rate : {48000U, 8000U}) {
        RateControl control(rate);
        std::minstd_rand random(1);
        std::uniform_real_distribution<double> jitterMs(-3, 3);
        const double driftPpm = GetParam();
        double aheadMs = 15;
        uint32_t declared = rate;
        constexpr double STEP_SECONDS = 0.02;
        for (int64_t step = 0; step < 30 * 60 * 50; step++) {
            declared = control.update(step * 20'000'000, aheadMs + jitterMs(random));
            ASSERT_NEAR(declared, rate, rate * 0.001 + 0.5);
            const double excessPpm = (static_cast<double>(declared) / rate - 1) * 1e6 + driftPpm;
            aheadMs += excessPpm * STEP_SECONDS / 1000;
            const double limitMs = step * STEP_SECONDS < 100 ? 20 : 3;
            ASSERT_LT(std::abs(aheadMs), limitMs) << "after " << step * STEP_SECONDS << " s";
        }
        // A jump forgets the window it was measured in, and not the drift.
        control.restart();
        EXPECT_EQ(control.update(0, 500), declared);
    }
}

INSTANTIATE_TEST_SUITE_P(DriftPpm, RateControlTest, testing::Values(-300, -50, 0, 50, 300));

}  // namespace
}  // namespace orvhost
