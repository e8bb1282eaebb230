#include "dtv/dvb/DvbSource.h"

#include <dtv/TunerTypes.h>
#include <gtest/gtest.h>

#include <thread>

#include "dtv/Tuner.h"
#include "dtv/TunerService.h"
#include "dtv/dvb/ChannelPlan.h"
#include "platform/binder/RelayBinder.h"
#include "support/FakeDvb.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::DvbParameters;
using orvhost::DvbSource;
using orvhost::TuneStatus;

constexpr uint32_t FREQUENCY = 473'142'857;

class DvbSourceTest : public testing::Test {
protected:
    std::unique_ptr<DvbSource> open(uint32_t frequencyHz) {
        orvhost::TuneResult result;
        auto source = DvbSource::open({0, 0, frequencyHz}, result);
        EXPECT_NE(source, nullptr) << result.message;
        return source;
    }

    FakeBand mBand;
    const BandOnAir mOnAir{mBand};
    uint8_t mData[1024] = {};
};

TEST_F(DvbSourceTest, GivesWhatIsReceived) {
    mBand.onAir[FREQUENCY] = Bytes(1000, 0x47);
    const auto source = open(FREQUENCY);
    ASSERT_EQ(mBand.tuned.size(), 1u);
    EXPECT_EQ(mBand.tuned[0], (DvbParameters{0, 0, FREQUENCY, 6'000'000}));
    EXPECT_EQ(source->read(mData, 600, 1000), 600);
    EXPECT_EQ(source->read(mData, 600, 1000), 400);
    EXPECT_EQ(source->read(mData, 600, 1), -EAGAIN);
    EXPECT_TRUE(source->signal().lock);
    EXPECT_EQ(source->signal().carrierToNoise.value, 24.5);
    const auto elsewhere = open(FREQUENCY + 6'000'000);
    EXPECT_EQ(elsewhere->read(mData, 600, 1), -EAGAIN);
    EXPECT_FALSE(elsewhere->signal().lock);
}

TEST_F(DvbSourceTest, CountsWhatTheKernelHadNoRoomFor) {
    mBand.onAir[FREQUENCY] = Bytes(188, 0x47);
    const auto source = open(FREQUENCY);
    mBand.overflows = 1;
    EXPECT_EQ(source->read(mData, sizeof mData, 1000), 188);
    EXPECT_EQ(source->overflows(), 1u);
    EXPECT_EQ(source->read(mData, sizeof mData, 1), -EAGAIN);
    EXPECT_EQ(source->overflows(), 1u);
}

// Through the tuner of a service and its parcels to a client in another process.
TEST_F(DvbSourceTest, ATunersSignalTellsOfTheFrontend) {
    const Bytes packets =
        TsBuilder().packet(0x111, Bytes(184, 9)).packet(0x111, Bytes(184, 9)).build();
    for (int i = 0; i < 20; ++i) {
        auto& stream = mBand.onAir[FREQUENCY];
        stream.insert(stream.end(), packets.begin(), packets.end());
    }
    orvhost::Tuner tuner;
    const android::sp<orvhost::TunerService> service(new orvhost::TunerService(tuner));
    const auto client = orvhost::ITuner::asInterface(new RelayBinder(service));
    EXPECT_FALSE(client->signal().frontend.present);
    mBand.overflows = 1;
    const DvbParameters place{1, 0, FREQUENCY};
    ASSERT_TRUE(client->tuneUri(place.uri(), {}).ok());
    EXPECT_EQ(mBand.tuned.back(), place);
    const auto signal = client->signal();
    EXPECT_TRUE(signal.frontend.present);
    EXPECT_TRUE(signal.frontend.signal.lock);
    EXPECT_EQ(signal.frontend.signal.carrierToNoise.scale, orvhost::DvbFigure::Scale::DECIBEL);
    EXPECT_EQ(signal.frontend.signal.carrierToNoise.value, 24.5);
    EXPECT_EQ(signal.frontend.signal.bitErrorRate, -1.0);
    EXPECT_EQ(signal.frontend.overflows, 1u);
    client->untune();

    // Silence is told as what it is.
    orvhost::TuneOptions quick;
    quick.timeoutMs = 50;
    mBand.onAir[FREQUENCY + 6'000'000] = {};
    const std::pair<uint32_t, const char*> cases[] = {{FREQUENCY + 6'000'000, "no packets in it"},
                                                      {FREQUENCY + 12'000'000, "antenna"}};
    for (const auto& [frequencyHz, advice] : cases) {
        const auto result = client->tuneUri(DvbParameters{0, 0, frequencyHz}.uri(), quick);
        EXPECT_EQ(result.status, TuneStatus::NoData);
        EXPECT_NE(result.message.find(advice), std::string::npos) << result.message;
    }
}

TEST_F(DvbSourceTest, InterruptionEndsTheWaitForASignal) {
    const auto source = open(FREQUENCY);
    std::thread other([&] { source->interrupt(); });
    EXPECT_EQ(source->read(mData, sizeof mData, 60'000), -EINTR);
    other.join();
    EXPECT_EQ(source->read(mData, sizeof mData, 60'000), -EINTR);
}

TEST_F(DvbSourceTest, FailuresSayWhatToDo) {
    const struct {
        int error;
        TuneStatus status;
        const char* advice;
    } cases[] = {
        {ENOENT, TuneStatus::NoSuchFile, "plugged in"},
        {EACCES, TuneStatus::PermissionDenied, "group video"},
        {EBUSY, TuneStatus::ReadError, "another program"},
        {ENOTSUP, TuneStatus::ReadError, "no ISDB-T"},
        {EINVAL, TuneStatus::ReadError, "473.143 MHz"},
        {EIO, TuneStatus::ReadError, "adapter 0"},
    };
    for (const auto& c : cases) {
        mBand.error = c.error;
        orvhost::TuneResult result;
        EXPECT_EQ(DvbSource::open({0, 0, FREQUENCY}, result), nullptr);
        EXPECT_EQ(result.status, c.status) << result.message;
        EXPECT_NE(result.message.find(c.advice), std::string::npos) << result.message;
    }
}

// The kernel's own adapters, of which there are not so many.
TEST(LinuxDvbAdapterTest, AnAdapterThatIsNotThere) {
    const auto adapter = orvhost::makeDvbAdapter();
    const int started = adapter->start({63, 0, FREQUENCY});
    EXPECT_TRUE(started == -ENOENT || started == -ENODEV) << started;
    EXPECT_FALSE(adapter->signal().lock);
}

TEST(DvbParametersTest, StandInAUri) {
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    const struct {
        const char* target;
        Pairs parameters;
        const char* uri;  // null: refused
    } cases[] = {
        {"", {{"frequency", "473142857"}}, "dvb://0.0?frequency=473142857&bandwidth=6000000"},
        {"1", {{"frequency", "177142857"}}, "dvb://1.0?frequency=177142857&bandwidth=6000000"},
        {"1.2",
         {{"frequency", "473142857"}, {"bandwidth", "8000000"}},
         "dvb://1.2?frequency=473142857&bandwidth=8000000"},
        {"0", {}, nullptr},
        {"64", {{"frequency", "473142857"}}, nullptr},
        {"1.", {{"frequency", "473142857"}}, nullptr},
        {"tv", {{"frequency", "473142857"}}, nullptr},
        {"0", {{"frequency", "473"}}, nullptr},
        {"0", {{"frequency", "473142857x"}}, nullptr},
        {"0", {{"frequency", "99999999999"}}, nullptr},
        {"0", {{"frequency", "473142857"}, {"bandwidth", "6"}}, nullptr},
        {"0", {{"frequency", "473142857"}, {"polarization", "v"}}, nullptr},
    };
    for (const auto& c : cases) {
        std::string error;
        const auto parsed = DvbParameters::parse(c.target, c.parameters, &error);
        ASSERT_EQ(parsed.has_value(), c.uri != nullptr) << c.target << " " << error;
        EXPECT_EQ(parsed ? parsed->uri() : "", c.uri != nullptr ? c.uri : "");
        EXPECT_EQ(error.empty(), parsed.has_value());
    }
}

TEST(ChannelPlanTest, CarriersLieAboveTheMiddle) {
    const struct {
        const char* region;
        int number;
        uint32_t frequencyHz;
    } cases[] = {{"br", 7, 177'142'857},  {"br", 13, 213'142'857}, {"br", 14, 473'142'857},
                 {"br", 51, 695'142'857}, {"jp", 13, 473'142'857}, {"jp", 62, 767'142'857}};
    for (const auto& c : cases) {
        const auto plan = orvhost::channelPlan(c.region);
        ASSERT_TRUE(plan);
        size_t found = 0;
        for (const auto& planned : *plan) {
            found += planned.number == c.number && planned.frequencyHz == c.frequencyHz;
        }
        EXPECT_EQ(found, 1u) << c.region << " " << c.number;
    }
    EXPECT_EQ(orvhost::channelPlan("br")->size(), 45u);
    EXPECT_EQ(orvhost::channelPlan("jp")->size(), 50u);
    EXPECT_FALSE(orvhost::channelPlan("us"));
}

}  // namespace
