#include "recording/RecordingTap.h"

#include <gtest/gtest.h>

#include <set>

#include "RecordingBuilder.h"
#include "dtv/Demultiplexer.h"
#include "dtv/PacketCounter.h"
#include "dtv/ServiceTables.h"

namespace {

using namespace orvtest;
using orvhost::Demultiplexer;
using orvhost::PacketQueue;
using orvhost::pidOf;
using orvhost::RecordingTap;
using orvhost::ServiceTables;
using orvhost::TunedProgramme;

constexpr unsigned PMT = 0x100;
constexpr unsigned OTHER = 0x120;  // of another programme

class StillClock : public orvhost::HostClock {
public:
    int64_t nowNs() override { return mNowNs; }
    void waitUntil(std::unique_lock<std::mutex>&, std::condition_variable&, int64_t) override {}

    int64_t mNowNs = 1'000'000'000;
};

void read(ServiceTables& tables, const Bytes& bytes) {
    for (size_t at = 0; at < bytes.size(); at += 188) {
        if (tables.wants(pidOf(bytes.data() + at))) {
            tables.push(bytes.data() + at);
        }
    }
}

TunedProgramme programmeOf(const Bytes& bytes) {
    ServiceTables tables;
    read(tables, bytes);
    const auto found = tables.findProgramme(REC_VIDEO, REC_AUDIO, 0);
    EXPECT_TRUE(found);
    return found ? *found : TunedProgramme();
}

// The packets of these PIDs, from the packet with that number on.
Bytes only(const Bytes& bytes, const std::set<unsigned>& pids, size_t from = 0) {
    Bytes out;
    for (size_t at = from * 188; at < bytes.size(); at += 188) {
        if (pids.contains(pidOf(bytes.data() + at))) {
            out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at) + 188);
        }
    }
    return out;
}

const std::set<unsigned> STREAMS{REC_VIDEO, REC_AUDIO, REC_PCR};

class RecordingTapTest : public testing::Test {
protected:
    void begin(const TunedProgramme& programme, size_t queuePackets = 100'000) {
        mQueue = std::make_unique<PacketQueue>(queuePackets);
        mTap = std::make_unique<RecordingTap>(programme, static_cast<uint16_t>(REC_VIDEO), *mQueue,
                                              mClock);
        ASSERT_TRUE(mDemux.startTap(*mTap));
    }

    ~RecordingTapTest() override {
        if (mTap != nullptr) {
            mDemux.stopTap(*mTap);
        }
    }

    void feed(const Bytes& bytes, size_t packetsAtOnce = 500) {
        for (size_t at = 0; at < bytes.size(); at += packetsAtOnce * 188) {
            mDemux.feedLive(bytes.data() + at, std::min(packetsAtOnce, (bytes.size() - at) / 188));
        }
    }

    Bytes written() {
        Bytes all;
        for (;;) {
            const PacketQueue::Stretch part = mQueue->wait(0, 333, 0);
            if (part.packets == 0) {
                return all;
            }
            all.insert(all.end(), part.data, part.data + part.packets * 188);
            if (mQueue->release(part.packets)) {
                mDemux.tapHasRoom();
            }
        }
    }

    StillClock mClock;
    Demultiplexer mDemux;
    std::unique_ptr<PacketQueue> mQueue;
    std::unique_ptr<RecordingTap> mTap;
};

// Damaged, scrambled and repeated packets and those of other programmes among them.
Bytes roughSource(size_t* secondGroup) {
    const Bytes clean = makeRecording({.pictures = 40});
    Bytes rough = TsBuilder().section(PMT + 1, pmt(2, OTHER, {{0x1B, OTHER, {}}})).build();
    size_t groups = 0;
    for (size_t at = 0; at < clean.size(); at += 188) {
        Bytes packet(clean.begin() + static_cast<std::ptrdiff_t>(at),
                     clean.begin() + static_cast<std::ptrdiff_t>(at) + 188);
        const size_t number = at / 188;
        const bool isAccess =
            pidOf(packet.data()) == REC_VIDEO &&
            std::search(packet.begin(), packet.end(), "\x01\x67", "\x01\x67" + 2) != packet.end();
        if (isAccess && ++groups == 2) {
            *secondGroup = rough.size() / 188;
        }
        if (pidOf(packet.data()) == REC_AUDIO && number % 9 == 0) {
            packet[1] |= 0x80;
        }
        if (pidOf(packet.data()) == REC_AUDIO && number % 11 == 0) {
            packet[3] |= 0xC0;
        }
        rough = rough + packet + (number % 7 == 0 ? packet : Bytes{}) +
                TsBuilder().packet(OTHER, Bytes(184, 1)).build();
    }
    return rough;
}

TEST_F(RecordingTapTest, EveryPacketInItsOrderFromTheFirstPictureThatCanBeDecoded) {
    size_t second = 0;
    const Bytes source = roughSource(&second);
    const Bytes late = only(source, {0, PMT, REC_VIDEO, REC_AUDIO, REC_PCR, OTHER}, second / 2);
    for (size_t atOnce : {1, 7, 100'000}) {
        SCOPED_TRACE(atOnce);
        begin(programmeOf(source));
        feed(late, atOnce);
        mDemux.stopTap(*mTap);
        const Bytes recording = written();
        EXPECT_EQ(only(recording, STREAMS), only(source, STREAMS, second));
        EXPECT_EQ(only(recording, {OTHER, PMT + 1}).size(), 0u);
        EXPECT_EQ(mTap->lostPackets(), 0u);
    }
}

TEST_F(RecordingTapTest, TablesOfThisProgrammeAloneFiveTimesASecond) {
    const Bytes audioLoop = descriptor(0x0A, bytesOf("por") + Bytes{0});
    const Bytes body = pmt(5, REC_PCR, {{0x1B, REC_VIDEO, {}}, {0x11, REC_AUDIO, audioLoop}},
                           descriptor(0xC1, Bytes(200, 0x84)), 9);  // two packets
    Bytes source = TsBuilder()
                       .section(0, pat({{4, 0x104}, {5, PMT}}, 3))
                       .section(0x104, pmt(4, OTHER, {{0x1B, OTHER, {}}}))
                       .section(PMT, body)
                       .build();
    begin(programmeOf(source));
    feed(source + only(makeRecording({.pictures = 100}), STREAMS));  // and no tables for 4 s
    const Bytes recording = written();
    ASSERT_GT(recording.size(), 188u * 4);
    EXPECT_EQ(pidOf(recording.data()), 0);
    EXPECT_EQ(pidOf(recording.data() + 188), PMT);
    EXPECT_EQ(pidOf(recording.data() + 3 * 188), REC_VIDEO);

    ServiceTables tables;
    orvhost::PacketCounter counter;
    int64_t pcrMs = 0;
    int64_t tablesMs = -1;
    for (size_t at = 0; at < recording.size(); at += 188) {
        const uint8_t* packet = recording.data() + at;
        counter.count(packet);
        if (tables.wants(pidOf(packet))) {
            tables.push(packet);
        }
        pcrMs = orvhost::hasPcr(packet) ? orvhost::pcrOf(packet) / 27'000 : pcrMs;
        if (pidOf(packet) == 0) {
            EXPECT_LE(tablesMs < 0 ? 0 : pcrMs - tablesMs, 400);
            tablesMs = pcrMs == 0 ? -1 : pcrMs;
        }
    }
    for (const auto& pid : counter.pids()) {
        EXPECT_EQ(pid.continuityErrors, 0u) << pid.pid;
        EXPECT_TRUE(STREAMS.contains(pid.pid) || pid.pid == 0 || pid.pid == PMT) << pid.pid;
    }
    EXPECT_GE(tablesMs, 4600);
    const auto found = tables.findProgramme(REC_VIDEO, REC_AUDIO, 0);
    ASSERT_TRUE(found);
    EXPECT_EQ(tables.services().size(), 1u);
    EXPECT_EQ(found->service.serviceId, 5);
    EXPECT_EQ(found->pmt, Bytes(body.begin() + 8, body.end() - 4));
}

TEST_F(RecordingTapTest, BeginsWhereADecoderCanOrAtOnce) {
    // The first picture's parameter sets lie behind a long SEI, in its second packet.
    const Bytes sei = Bytes{0, 0, 0, 1, 0x09, 0xF0, 0, 0, 0, 1, 0x06} + Bytes(200, 0x11);
    const Bytes access = sei + Bytes{0, 0, 0, 1, 0x67, 0x42} + Bytes(300, 0xAA);
    const Bytes other = sei + Bytes{0, 0, 0, 1, 0x41} + Bytes(300, 0xAA);
    const Bytes head =
        TsBuilder()
            .section(0, pat({{1, PMT}}))
            .section(PMT, pmt(1, REC_PCR, {{0x1B, REC_VIDEO, {}}, {0x0F, REC_AUDIO, {}}}))
            .build();
    const Bytes sound = TsBuilder()
                            .section(0, pat({{1, PMT}}))
                            .section(PMT, pmt(1, REC_PCR, {{0x0F, REC_AUDIO, {}}}))
                            .build();
    const auto picture = [](const Bytes& es) {
        return TsBuilder()
            .pcr(REC_PCR, 27'000'000)
            .pes(REC_VIDEO, 0xE0, 90'000, es)
            .pes(REC_AUDIO, 0xC0, 90'000, Bytes(100, 1))
            .build();
    };
    const struct {
        const char* name;
        Bytes tables;
        Bytes fed;
        Bytes recorded;
    } cases[] = {
        {"told by the second packet", head, picture(other) + picture(access),
         only(picture(access), {REC_VIDEO, REC_AUDIO})},
        {"no picture in time", head, picture(other) + picture(other), {}},
        {"no video at all", sound, picture(access), only(picture(access), {REC_AUDIO, REC_PCR})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        begin(programmeOf(c.tables));
        const bool hasVideo = c.tables == head;
        feed(c.fed, 1);  // a batch may end anywhere
        EXPECT_EQ(only(written(), STREAMS), c.recorded);
        if (hasVideo && c.recorded.empty()) {
            mClock.mNowNs += RecordingTap::START_WAIT_NS - 1;
            feed(picture(other));
            EXPECT_TRUE(written().empty());
            mClock.mNowNs += 1;
            feed(TsBuilder().nulls(1).build());
            feed(picture(other));
            EXPECT_EQ(only(written(), STREAMS), picture(other));
        }
        mDemux.stopTap(*mTap);
    }
}

TEST_F(RecordingTapTest, FollowsTheTablesOfTheSource) {
    constexpr unsigned SECOND = 0x113;
    const auto streams = [](unsigned audio) {
        return std::vector<PmtStream>{{0x1B, REC_VIDEO, {}}, {0x0F, audio, {}}};
    };
    TsBuilder builder;
    builder.section(0, pat({{1, PMT}})).section(PMT, pmt(1, REC_VIDEO, streams(REC_AUDIO)));
    begin(programmeOf(builder.build()));
    const size_t head = builder.size();
    builder.pes(REC_VIDEO, 0xE0, 0, h264Picture(true, 100), 0);
    const auto sound = [&builder] {
        builder.pes(REC_AUDIO, 0xC0, 0, Bytes(100, 2)).pes(SECOND, 0xC0, 0, Bytes(100, 3));
    };
    sound();
    Bytes damaged = pmt(1, REC_VIDEO, streams(SECOND), {}, 1);
    damaged.back() ^= 1;
    builder.section(PMT, damaged).section(PMT, pmt(2, REC_VIDEO, streams(SECOND), {}, 1));
    sound();
    builder.section(PMT, pmt(1, REC_VIDEO, streams(SECOND), {}, 1));
    sound();
    builder.section(0, pat({{2, 0x102}, {1, 0x101}}, 1));  // without a PMT there yet
    sound();
    builder.section(0x101, pmt(1, REC_VIDEO, streams(REC_AUDIO), {}, 2));
    sound();
    const Bytes& all = builder.build();
    feed(Bytes(all.begin() + static_cast<std::ptrdiff_t>(head), all.end()));
    const Bytes recording = written();
    std::vector<unsigned> order;
    for (size_t at = 0; at < recording.size(); at += 188) {
        order.push_back(pidOf(recording.data() + at));
    }
    const unsigned A = REC_AUDIO;
    EXPECT_EQ(order, (std::vector<unsigned>{0, PMT, REC_VIDEO, A, A, 0, PMT, SECOND, 0, 0x101,
                                            SECOND, 0, 0x101, A}));
    // Read back, each change is a new version.
    ServiceTables tables;
    std::vector<std::pair<unsigned, unsigned>> seen;  // PMT PID, sound
    for (size_t at = 0; at < recording.size(); at += 188) {
        read(tables, Bytes(recording.begin() + static_cast<std::ptrdiff_t>(at),
                           recording.begin() + static_cast<std::ptrdiff_t>(at) + 188));
        const auto services = tables.services();
        if (!services.empty()) {
            const std::pair<unsigned, unsigned> now{services[0].pmtPid, services[0].streams[1].pid};
            if (seen.empty() || seen.back() != now) {
                seen.push_back(now);
            }
        }
    }
    EXPECT_EQ(seen, (std::vector<std::pair<unsigned, unsigned>>{
                        {PMT, A}, {PMT, SECOND}, {0x101, SECOND}, {0x101, A}}));
}

TEST_F(RecordingTapTest, KnowsWhichPesPacketsAreNotWhole) {
    const Bytes head =
        TsBuilder()
            .section(0, pat({{1, PMT}}))
            .section(PMT, pmt(1, REC_PCR, {{0x1B, REC_VIDEO, {}}, {0x0F, REC_AUDIO, {}}}))
            .build();
    const Bytes video = TsBuilder().pes(REC_VIDEO, 0xE0, 0, h264Picture(true, 70'000)).build();
    const Bytes whole = TsBuilder().pes(REC_AUDIO, 0xC0, 0, Bytes(900, 1)).build();
    const Bytes begun(whole.begin(), whole.end() - 188);
    const struct {
        const char* name;
        Bytes fed;
        std::vector<std::pair<unsigned, size_t>> open;  // PID, packet in the recording
    } cases[] = {
        {"a length that is reached", video + whole, {{REC_VIDEO, 2}}},
        {"one that is not",
         video + whole + begun,
         {{REC_VIDEO, 2}, {REC_AUDIO, 2 + (video.size() + whole.size()) / 188}}},
        {"the next picture",
         video + begun + video,
         {{REC_VIDEO, 2 + (video.size() + begun.size()) / 188},
          {REC_AUDIO, 2 + video.size() / 188}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        begin(programmeOf(head));
        feed(c.fed);
        mDemux.stopTap(*mTap);
        std::vector<std::pair<unsigned, size_t>> open;
        for (const auto& unit : mTap->openUnits()) {
            open.emplace_back(unit.pid, unit.offset / 188);
        }
        EXPECT_EQ(open, c.open);
    }
}

TEST_F(RecordingTapTest, AFullQueueLosesWhatComesAndCountsIt) {
    const Bytes source = makeRecording({.pictures = 60});
    constexpr size_t DEPTH = 100;
    begin(programmeOf(source), DEPTH);
    feed(source);
    const size_t fed = only(source, STREAMS).size() / 188;
    Bytes first = written();
    EXPECT_EQ(first.size(), DEPTH * 188);
    EXPECT_GE(mTap->lostPackets(), fed - DEPTH);
    const uint64_t lost = mTap->lostPackets();
    Bytes expected = only(source, STREAMS);
    expected.erase(expected.begin(), expected.begin() + 188);  // the clock before the picture
    first = only(first, STREAMS);
    expected.resize(first.size());
    EXPECT_EQ(first, expected);
    feed(TsBuilder().packet(REC_AUDIO, Bytes(184, 7)).build());
    EXPECT_EQ(only(written(), STREAMS).size(), 188u);  // and it goes on
    EXPECT_EQ(mTap->lostPackets(), lost);
}

// What begins in the middle of a PES packet is of no use; of one that carries the clock is.
TEST_F(RecordingTapTest, EachStreamBeginsWithAPesPacket) {
    for (const unsigned clock : {REC_PCR, REC_AUDIO}) {
        SCOPED_TRACE(clock);
        TsBuilder builder;
        builder.section(0, pat({{1, PMT}}))
            .section(PMT, pmt(1, clock, {{0x1B, REC_VIDEO, {}}, {0x0F, REC_AUDIO, {}}}));
        begin(programmeOf(builder.build()));
        const size_t head = builder.size();
        builder.pes(REC_AUDIO, 0xC0, 0, Bytes(300, 1))
            .pes(REC_VIDEO, 0xE0, 0, h264Picture(true, 9));
        builder.packet(REC_AUDIO, Bytes(184, 2)).packet(REC_AUDIO, Bytes(100, 2), false, 27'000);
        const size_t rest = builder.size();
        builder.pes(REC_AUDIO, 0xC0, 0, Bytes(300, 3)).packet(REC_AUDIO, Bytes(184, 4));
        const Bytes all = builder.build();
        feed(Bytes(all.begin() + static_cast<std::ptrdiff_t>(head), all.end()));
        mDemux.stopTap(*mTap);
        const auto from = static_cast<std::ptrdiff_t>(clock == REC_AUDIO ? rest - 188 : rest);
        EXPECT_EQ(only(written(), {REC_AUDIO}), Bytes(all.begin() + from, all.end()));
    }
}

TEST_F(RecordingTapTest, ASourceThatNothingPacesWaitsForTheWriter) {
    const Bytes source = makeRecording({.pictures = 60});
    begin(programmeOf(source), 100);
    Bytes recording;
    size_t refused = 0;
    for (size_t at = 0; at < source.size(); at += 188 * 10) {
        if (!mDemux.takeBack()) {
            ++refused;
            recording = recording + written();
            mDemux.waitForRoom();
            ASSERT_TRUE(mDemux.takeBack());
        }
        mDemux.lend(source.data() + at, std::min<size_t>(10, (source.size() - at) / 188));
    }
    recording = recording + written();
    EXPECT_GT(refused, 1u);
    EXPECT_EQ(mTap->lostPackets(), 0u);
    EXPECT_EQ(only(recording, STREAMS), only(source, STREAMS, 4));
}

}  // namespace
