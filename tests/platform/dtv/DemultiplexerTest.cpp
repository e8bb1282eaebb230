#include "dtv/Demultiplexer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

#include "dtv/PacketTap.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::Demultiplexer;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr unsigned VIDEO = 0x111;
constexpr unsigned AUDIO = 0x112;

DemuxBinder_HandleSet setOf(std::initializer_list<int> handles) {
    DemuxBinder_HandleSet set;
    DemuxBinder_HandleZERO(&set);
    for (int handle : handles) {
        DemuxBinder_HandleSET(handle, &set);
    }
    return set;
}

class DemultiplexerTest : public testing::Test {
protected:
    void feedLive(const Bytes& bytes) { mDemux.feedLive(bytes.data(), bytes.size() / 188); }

    Bytes readAll(int handle) {
        Bytes all;
        Bytes part(188 * 7 + 100);  // not a whole number of packets
        int got = 0;
        while ((got = mDemux.readData(handle, part.data(), static_cast<int>(part.size()))) > 0) {
            EXPECT_EQ(got % 188, 0);
            all.insert(all.end(), part.begin(), part.begin() + got);
        }
        EXPECT_EQ(got, 0);
        return all;
    }

    int selectNow(DemuxBinder_HandleSet& set) { return mDemux.select(&set, 0); }

    Demultiplexer mDemux;
};

TEST_F(DemultiplexerTest, EachFilterGetsItsPidWhole) {
    const int video = mDemux.startFiltering(VIDEO, DEMUX_FILTER_VIDEO);
    const int audio = mDemux.startFiltering(AUDIO, DEMUX_FILTER_PES);
    const int videoAgain = mDemux.startFiltering(VIDEO, DEMUX_FILTER_PES);
    const Bytes v = TsBuilder().pes(VIDEO, 0xE0, 90'000, Bytes(5000, 1)).build();
    const Bytes a = TsBuilder().pes(AUDIO, 0xC0, 90'000, Bytes(100, 2)).build();
    feedLive(v + a + TsBuilder().nulls(3).build());

    auto set = setOf({video, audio, videoAgain});
    EXPECT_EQ(selectNow(set), 3);
    EXPECT_EQ(readAll(video), v);
    EXPECT_EQ(readAll(audio), a);
    set = setOf({video, audio, videoAgain});
    EXPECT_EQ(selectNow(set), 1);
    EXPECT_FALSE(DemuxBinder_HandleISSET(video, &set));
    EXPECT_TRUE(DemuxBinder_HandleISSET(videoAgain, &set));
    EXPECT_EQ(readAll(videoAgain), v);
}

TEST_F(DemultiplexerTest, StoppedAndMissingHandlesAreHarmless) {
    const int stopped = mDemux.startFiltering(VIDEO, DEMUX_FILTER_VIDEO);
    feedLive(TsBuilder().packet(VIDEO, Bytes(184, 1)).build());
    EXPECT_EQ(mDemux.stopFiltering(stopped), 0);
    EXPECT_EQ(mDemux.stopFiltering(stopped), -EBADF);
    const int running = mDemux.startFiltering(VIDEO, DEMUX_FILTER_VIDEO);
    EXPECT_NE(running, stopped);  // an old set must not name the new filter
    feedLive(TsBuilder().packet(VIDEO, Bytes(184, 2)).build());

    auto set = setOf({-1, stopped, running, 100'000});
    EXPECT_EQ(selectNow(set), 1);
    EXPECT_TRUE(DemuxBinder_HandleISSET(running, &set));
    EXPECT_FALSE(DemuxBinder_HandleISSET(stopped, &set));
    EXPECT_FALSE(DemuxBinder_HandleISSET(-1, &set));
    uint8_t packet[188];
    for (int handle : {-1, stopped, 100'000}) {
        EXPECT_EQ(mDemux.readData(handle, packet, sizeof(packet)), -EBADF);
    }
}

TEST_F(DemultiplexerTest, RefusesWhatItCannotDo) {
    uint8_t packet[188];
    const int handle = mDemux.startFiltering(0x1FFF, DEMUX_FILTER_PES);
    EXPECT_GE(handle, 0);
    EXPECT_EQ(mDemux.startFiltering(0x2000, DEMUX_FILTER_PES), -EINVAL);
    EXPECT_EQ(mDemux.startFiltering(VIDEO, 3), -EINVAL);
    EXPECT_EQ(mDemux.startFiltering(VIDEO, -1), -EINVAL);
    EXPECT_EQ(mDemux.select(nullptr, 0), -EINVAL);
    auto set = setOf({handle});
    EXPECT_EQ(mDemux.select(&set, -1), -EINVAL);
    EXPECT_EQ(mDemux.readData(handle, nullptr, 188), -EINVAL);
    EXPECT_EQ(mDemux.readData(handle, packet, 187), -EINVAL);
    EXPECT_EQ(mDemux.readData(handle, packet, -5), -EINVAL);
    int last = 0;
    for (int i = 0; i < DEMUX_HANDLE_COUNT && last >= 0; ++i) {
        last = mDemux.startFiltering(VIDEO, DEMUX_FILTER_PCR);
    }
    EXPECT_EQ(last, -EMFILE);
}

// What a PCR filter delivers has the PCR and nothing that could upset a packet parser.
TEST_F(DemultiplexerTest, PcrFilterCutsToHeaderAndAdaptationField) {
    const int pcr = mDemux.startFiltering(VIDEO, DEMUX_FILTER_PCR);
    feedLive(TsBuilder()
                 .packet(VIDEO, Bytes(184, 7), true)              // no adaptation field
                 .packet(VIDEO, Bytes(176, 7), true, 27'000'000)  // PCR beside payload
                 .packet(VIDEO, Bytes(100, 7))                    // stuffing only
                 .pcr(VIDEO, 54'000'123, true)                    // PCR alone, announced jump
                 .packet(AUDIO, Bytes(176, 7), true, 81'000'000)  // another PID
                 .build());
    const Bytes out = readAll(pcr);
    ASSERT_EQ(out.size(), 2 * 188u);
    for (size_t at : {0, 188}) {
        const uint8_t* p = out.data() + at;
        EXPECT_EQ(p[1] & 0xC0, 0);  // neither error nor start
        EXPECT_EQ(orvhost::pidOf(p), VIDEO);
        EXPECT_EQ(p[3], 0x20);  // adaptation field only; the counter repeats
        EXPECT_EQ(p[4], 183);
        EXPECT_EQ(Bytes(p + 12, p + 188), Bytes(176, 0xFF));  // no payload came through
    }
    EXPECT_EQ(orvhost::pcrOf(out.data()), 27'000'000);
    EXPECT_EQ(orvhost::pcrOf(out.data() + 188), 54'000'123);
    EXPECT_TRUE(orvhost::hasDiscontinuityIndicator(out.data() + 188));
}

// ISO/IEC 13818-1 2.4.3.3: the same counter and the same bytes but for the PCR.
TEST_F(DemultiplexerTest, APacketThatIsSentTwiceIsDeliveredOnce) {
    struct Case {
        const char* name;
        Bytes second;  // behind packet(VIDEO, Bytes(100, 7), true, 27'000'000), counter 0
        size_t delivered;
    };
    const auto one = [](const Bytes& payload, int64_t pcr, unsigned lost = 0) {
        TsBuilder builder;
        for (unsigned i = 0; i < lost; ++i) {
            builder.packet(VIDEO, Bytes(184, 1));
        }
        const Bytes all = builder.packet(VIDEO, payload, true, pcr).build();
        return Bytes(all.end() - 188, all.end());
    };
    const Bytes first = one(Bytes(100, 7), 27'000'000);
    const Case cases[] = {
        {"the same", first, 1},
        {"another PCR", one(Bytes(100, 7), 27'000'999), 1},
        {"another payload", one(Bytes(100, 8), 27'000'000), 2},
        {"another length", one(Bytes(101, 7), 27'000'000), 2},
        {"the next counter", one(Bytes(100, 7), 27'000'000, 1), 2},
        {"no PCR", one(Bytes(100, 7), NO_TIME), 2},
    };
    uint64_t repeated = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const int video = mDemux.startFiltering(VIDEO, DEMUX_FILTER_VIDEO);
        const int pcr = mDemux.startFiltering(VIDEO, DEMUX_FILTER_PCR);
        feedLive(first);
        EXPECT_EQ(readAll(video), first);  // also across a read
        feedLive(c.second + TsBuilder().nulls(1).build());
        EXPECT_EQ(readAll(video), c.delivered == 1 ? Bytes{} : c.second);
        EXPECT_EQ(readAll(pcr).size(), orvhost::hasPcr(c.second.data()) ? 2 * 188u : 188u);
        repeated += 2 - c.delivered;
        EXPECT_EQ(mDemux.repeatedPackets(), repeated);
        mDemux.stopFiltering(video);
        mDemux.stopFiltering(pcr);
    }
    const int video = mDemux.startFiltering(VIDEO, DEMUX_FILTER_VIDEO);
    feedLive(first);
    mDemux.flush();  // a jump: the same packet again is a new one
    feedLive(first);
    EXPECT_EQ(readAll(video), first);
}

// Wants the tables, and the video once it has seen one.
struct TestTap : orvhost::PacketTap {
    bool hasRoom() override { return true; }
    const std::vector<uint16_t>& pids() const override { return mPids; }
    bool onPacket(const uint8_t* packet) override {
        mGot.insert(mGot.end(), packet, packet + 188);
        const bool changes = mPids.size() < 2;
        mPids = {TABLE, VIDEO};
        return changes;
    }
    void onBatchEnd() override { ++mBatches; }
    void onSourceLeft() override { ++mLeft; }

    static constexpr uint16_t TABLE = 0x100;
    std::vector<uint16_t> mPids{TABLE};
    Bytes mGot;
    int mBatches = 0;
    int mLeft = 0;
};

TEST_F(DemultiplexerTest, ATapGetsSeveralPidsInTheirOrderAndWhatIsSentTwice) {
    TestTap tap;
    TestTap second;
    ASSERT_TRUE(mDemux.startTap(tap));
    EXPECT_FALSE(mDemux.startTap(second));
    const int audio = mDemux.startFiltering(AUDIO, DEMUX_FILTER_PES);
    TsBuilder builder;
    const auto next = [&builder](unsigned pid, uint8_t mark) {
        const size_t before = builder.size();
        builder.packet(pid, Bytes(184, mark));
        const Bytes& all = builder.build();
        return Bytes(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());
    };
    const Bytes early = next(VIDEO, 1);
    const Bytes table = next(TestTap::TABLE, 2);
    const Bytes video = next(VIDEO, 3);
    const Bytes sound = next(AUDIO, 4);
    feedLive(early + table + video + sound + video + table);  // the video twice
    mDemux.lend(early.data(), 1);
    EXPECT_TRUE(mDemux.takeBack());
    EXPECT_EQ(tap.mGot, table + video + video + table + early);
    EXPECT_EQ(readAll(audio), sound);
    EXPECT_EQ(tap.mBatches, 2);
    mDemux.leaveSource();
    EXPECT_EQ(tap.mLeft, 1);

    mDemux.stopTap(second);  // not the one that runs
    EXPECT_TRUE(mDemux.isTapped());
    mDemux.stopTap(tap);
    feedLive(table + video);
    mDemux.leaveSource();
    EXPECT_EQ(tap.mGot.size(), 5 * 188u);
    EXPECT_EQ(tap.mLeft, 1);
}

TEST_F(DemultiplexerTest, FullLiveQueueLosesItsOldestPackets) {
    const int handle = mDemux.startFiltering(AUDIO, DEMUX_FILTER_PES);
    TsBuilder one;
    constexpr uint64_t FED = 10'000;
    for (uint64_t i = 0; i < FED; ++i) {
        one.packet(AUDIO, Bytes{static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)});
    }
    feedLive(one.build());
    const Bytes kept = readAll(handle);
    EXPECT_EQ(mDemux.droppedPackets(), FED - kept.size() / 188);
    EXPECT_GT(mDemux.droppedPackets(), 0u);
    // The newest ones, in order and whole.
    EXPECT_TRUE(std::equal(kept.rbegin(), kept.rend(), one.build().rbegin()));
}

TEST_F(DemultiplexerTest, LosslessFeedStallsUntilTheSlowFilterIsReadOrStopped) {
    const int slow = mDemux.startFiltering(AUDIO, DEMUX_FILTER_PES);
    const int other = mDemux.startFiltering(VIDEO, DEMUX_FILTER_VIDEO);
    TsBuilder builder;
    for (int i = 0; i < 5000; ++i) {
        builder.packet(AUDIO, Bytes{static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)});
    }
    const Bytes& bytes = builder.build();
    Bytes got;
    auto feeder = std::async(std::launch::async, [&] {
        for (int lap = 0; lap < 2; ++lap) {
            Bytes copy = bytes;
            mDemux.lend(copy.data(), 5000);
            while (!mDemux.takeBack()) {  // the second time, until the filter is stopped
                mDemux.waitForRoom();
            }
        }
    });
    const auto set = setOf({slow, other});
    while (got.size() < bytes.size()) {
        auto ready = set;
        ASSERT_EQ(mDemux.select(&ready, 5000), 1);
        Bytes part(188 * 1000);
        const int n = mDemux.readData(slow, part.data(), static_cast<int>(part.size()));
        ASSERT_GT(n, 0);
        got.insert(got.end(), part.begin(), part.begin() + n);
    }
    got.resize(bytes.size());
    EXPECT_EQ(got, bytes);
    EXPECT_EQ(mDemux.droppedPackets(), 0u);
    EXPECT_EQ(mDemux.stopFiltering(slow), 0);
    EXPECT_EQ(feeder.wait_for(milliseconds(5000)), std::future_status::ready);
}

TEST_F(DemultiplexerTest, SelectWakesWithTheBatchAndTimesOutWithoutOne) {
    const int handle = mDemux.startFiltering(AUDIO, DEMUX_FILTER_PES);
    auto set = setOf({handle});
    const auto before = steady_clock::now();
    EXPECT_EQ(mDemux.select(&set, 30), 0);
    EXPECT_GE(steady_clock::now() - before, milliseconds(30));
    EXPECT_FALSE(DemuxBinder_HandleISSET(handle, &set));

    auto reader = std::async(std::launch::async, [&] {
        auto ready = setOf({handle});
        return mDemux.select(&ready, 10'000);
    });
    feedLive(TsBuilder().packet(VIDEO, Bytes(184, 1)).build());  // nobody's PID
    feedLive(TsBuilder().packet(AUDIO, Bytes(184, 1)).build());
    EXPECT_EQ(reader.get(), 1);
    EXPECT_LT(steady_clock::now() - before, milliseconds(5000));
}

// A reader that waits for a filter which another thread stops gets its time-out, nothing worse.
TEST_F(DemultiplexerTest, FiltersComeAndGoUnderAReader) {
    std::atomic<bool> over{false};
    std::thread feeder([&] {
        const Bytes bytes = TsBuilder().nulls(50).build();
        while (!over) {
            mDemux.feedLive(bytes.data(), 50);
        }
    });
    std::atomic<int> handle{-1};
    std::thread reader([&] {
        Bytes part(188 * 64);
        while (!over) {
            const int now = handle;
            auto set = setOf({now});
            if (mDemux.select(&set, 2) > 0) {
                const int got = mDemux.readData(now, part.data(), static_cast<int>(part.size()));
                EXPECT_TRUE(got == -EBADF || got % 188 == 0) << got;
            }
        }
    });
    for (int i = 0; i < 300; ++i) {
        handle = mDemux.startFiltering(0x1FFF, i % 3);
        ASSERT_GE(handle, 0);
        EXPECT_EQ(mDemux.stopFiltering(handle), 0);
    }
    over = true;
    feeder.join();
    reader.join();
    EXPECT_EQ(mDemux.filterCount(), 0u);
}

}  // namespace
