#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "platform/recording/RecordingBuilder.h"
#include "recording/FileBytes.h"
#include "recording/IndexFile.h"
#include "recording/RecordingIndex.h"
#include "support/TempFile.h"

namespace {

using namespace orvtest;
using namespace orvhost;

struct ScanCase {
    const char* name;
    RecordingShape shape;
    size_t gap;              // bytes between packets
    size_t points;           // expected
    int64_t durationMs;      // expected
    int64_t intervalMs;      // expected, from point to point
    bool beginsWithPicture;  // every point is the start of a video PES
};

class RecordingScanTest : public testing::TestWithParam<ScanCase> {};

constexpr int64_t WRAP_MS = (int64_t{1} << 33) / 90;
constexpr RecordingShape PLAIN;
// 119 pictures of 40 ms from the first to the last PCR, ten of them random access points.
const ScanCase SCAN_CASES[] = {
    {"Plain", PLAIN, 0, 10, 4760, 480, true},
    {"PacketsOf192", PLAIN, 4, 10, 4760, 480, true},
    {"PacketsOf204", PLAIN, 16, 10, 4760, 480, true},
    {"JunkInFront", {.junk = 100}, 0, 10, 4760, 480, true},
    {"WrapOf33Bits", {.firstPcrMs = WRAP_MS - 2000}, 0, 10, 4760, 480, true},
    {"WrapBetweenPcrAndStamp", {.firstPcrMs = WRAP_MS - 300}, 0, 10, 4760, 480, true},
    {"JumpBack", {.jumpAtPicture = 60, .jumpMs = -900}, 0, 10, 4760, 480, true},
    {"JumpAhead", {.jumpAtPicture = 60, .jumpMs = 3'600'000}, 0, 10, 4760, 480, true},
    {"AnnouncedJump",
     {.jumpAtPicture = 60, .jumpMs = 200, .announced = true},
     0,
     10,
     4760,
     480,
     true},
    {"TimeStampsAlone", {.pcr = false}, 0, 10, 4760, 480, true},
    {"NoAccessPoints", {.pictures = 300, .accessPoints = false}, 0, 3, 11960, 5000, true},
    {"SoundAlone", {.video = false}, 0, 10, 4760, 520, false},
};

TEST_P(RecordingScanTest, FindsWhereToBeginAndWhenThatIs) {
    const ScanCase& c = GetParam();
    const Bytes packets = makeRecording(c.shape);
    const Bytes bytes = c.gap == 0 ? packets : spread(packets, c.gap);
    TempFile file(bytes);
    const UniqueFd fd(open(file.path().c_str(), O_RDONLY));
    RecordingIndex index;
    index.programme = findProgramme(fd.get(), 0);
    ASSERT_TRUE(extendIndex(fd.get(), &index, nullptr));
    EXPECT_EQ(index.packetBytes, 188 + c.gap);
    EXPECT_EQ(index.scannedBytes, bytes.size());
    EXPECT_NEAR(static_cast<double>(index.durationMs()), static_cast<double>(c.durationMs), 40);
    ASSERT_EQ(index.points.size(), c.points);
    for (size_t i = 0; i < index.points.size(); ++i) {
        const RandomAccessPoint& point = index.points[i];
        ASSERT_LT(point.offset, bytes.size());
        const uint8_t* packet = bytes.data() + point.offset;
        ASSERT_EQ(packet[0], 0x47);
        if (c.beginsWithPicture) {
            EXPECT_TRUE(startsUnit(packet) && pidOf(packet) == REC_VIDEO) << i;
        }
        const auto expected = static_cast<int64_t>(i) * c.intervalMs;
        EXPECT_NEAR(static_cast<double>(index.positionMsOf(point)), static_cast<double>(expected),
                    50);
        EXPECT_EQ(index.pointBefore(index.positionMsOf(point)), &point);
        EXPECT_EQ(index.pointBefore(index.positionMsOf(point) + 100), &point);
    }
    EXPECT_EQ(index.pointBefore(-5), &index.points.front());
}

INSTANTIATE_TEST_SUITE_P(Recordings, RecordingScanTest, testing::ValuesIn(SCAN_CASES),
                         [](const auto& made) { return std::string(made.param.name); });

class RecordingIndexFileTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(mFd);
        mScanned.programme = findProgramme(mFd.get(), 0);
        ASSERT_TRUE(extendIndex(mFd.get(), &mScanned, nullptr));
    }
    void TearDown() override { unlink(mIndexPath.c_str()); }

    Bytes readIndexBytes() const {
        std::ifstream in(mIndexPath, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }
    void writeIndexBytes(const Bytes& bytes) const {
        std::ofstream(mIndexPath, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

    const Bytes mBytes = makeRecording({});
    TempFile mFile{mBytes};
    const std::string mIndexPath = indexPathOf(mFile.path());
    const UniqueFd mFd{open(mFile.path().c_str(), O_RDONLY)};
    RecordingIndex mScanned;
};

// In pieces of any size, whole or cut off: the index is the one that a scan of the file makes.
TEST_F(RecordingIndexFileTest, WrittenWhileRecordingItIsTheOneThatIsScanned) {
    for (const size_t packetsAtOnce : {size_t{1}, size_t{7}, size_t{5000}}) {
        for (const bool finished : {true, false}) {
            SCOPED_TRACE(testing::Message() << packetsAtOnce << " at once, finished: " << finished);
            auto writer = RecordingIndexWriter::create(mIndexPath, mScanned.programme);
            ASSERT_NE(writer, nullptr);
            const size_t packets = mBytes.size() / 188;
            Bytes added = mBytes;
            added[187] ^= finished ? 1 : 0;  // the head changes before the end
            for (size_t i = 0; i < packets; i += packetsAtOnce) {
                const size_t count = std::min(packetsAtOnce, packets - i);
                ASSERT_TRUE(writer->add(added.data() + i * 188, count));
            }
            EXPECT_EQ(writer->durationMs(), mScanned.durationMs());
            if (finished) {
                ASSERT_TRUE(writer->finish(mFd.get()));
            }
            auto read = readIndex(mIndexPath, mFd.get(), {});
            ASSERT_TRUE(read);
            if (!finished) {
                EXPECT_GE(read->durationMs(), packetsAtOnce == 5000 ? 0 : 3000);
                ASSERT_TRUE(extendIndex(mFd.get(), &*read, nullptr));
            }
            EXPECT_EQ(read->points, mScanned.points);
            EXPECT_EQ(read->scannedBytes, mScanned.scannedBytes);
            EXPECT_EQ(read->duration27M, mScanned.duration27M);
        }
    }
}

TEST_F(RecordingIndexFileTest, DamageCostsAtMostAnotherScan) {
    ASSERT_TRUE(saveIndex(mIndexPath, mScanned, mFd.get()));
    const Bytes good = readIndexBytes();
    const size_t half = INDEX_HEADER_BYTES + 5 * INDEX_POINT_BYTES;
    struct Case {
        const char* name;
        size_t size;
        size_t flipped;  // this byte; SIZE_MAX: none
        size_t points;   // that are believed; SIZE_MAX: not even the header
    };
    const Case cases[] = {
        {"whole", good.size(), SIZE_MAX, 10},
        {"empty", 0, SIZE_MAX, SIZE_MAX},
        {"header cut off", INDEX_HEADER_BYTES - 1, SIZE_MAX, SIZE_MAX},
        {"header hit", good.size(), 20, SIZE_MAX},
        {"header alone", INDEX_HEADER_BYTES, SIZE_MAX, 0},
        {"cut between points", half, SIZE_MAX, 5},
        {"cut in a point", half + 17, SIZE_MAX, 5},
        {"a point hit", good.size(), half + 3, 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes bytes = good;
        bytes.resize(c.size);
        if (c.flipped != SIZE_MAX) {
            bytes[c.flipped] ^= 0x10;
        }
        writeIndexBytes(bytes);
        const auto read = readIndex(mIndexPath, mFd.get(), {});
        ASSERT_EQ(read.has_value(), c.points != SIZE_MAX);
        if (read) {
            EXPECT_EQ(read->points.size(), c.points);
        }
        const auto rebuilt = loadOrRebuildIndex(mFile.path(), true, nullptr);
        ASSERT_TRUE(rebuilt);
        EXPECT_EQ(rebuilt->points, mScanned.points);
        EXPECT_EQ(rebuilt->duration27M, mScanned.duration27M);
        EXPECT_EQ(readIndexBytes(), good);  // and written again
    }
}

TEST_F(RecordingIndexFileTest, AnotherRecordingsIndexIsNotBelieved) {
    ASSERT_TRUE(saveIndex(mIndexPath, mScanned, mFd.get()));
    TempFile other(makeRecording({.firstPcrMs = 5000}));
    TempFile shorter(Bytes(mBytes.begin(), mBytes.begin() + 188 * 50));
    for (const auto* file : {&other, &shorter}) {
        const UniqueFd fd(open(file->path().c_str(), O_RDONLY));
        EXPECT_FALSE(readIndex(mIndexPath, fd.get(), {}));
    }
    EXPECT_FALSE(readIndex(mIndexPath, mFd.get(), {.pcrPid = 0x300}));  // another programme
}

TEST_F(RecordingIndexFileTest, AFileThatGrewIsScannedFromItsLastPoint) {
    TempFile growing(Bytes(mBytes.begin(), mBytes.begin() + 188 * 333 + 50));
    const UniqueFd fd(open(growing.path().c_str(), O_RDWR));
    RecordingIndex index;
    index.programme = mScanned.programme;
    ASSERT_TRUE(extendIndex(fd.get(), &index, nullptr));
    EXPECT_LT(index.points.size(), mScanned.points.size());
    ASSERT_TRUE(writeAllAt(fd.get(), mBytes.data(), mBytes.size(), 0));
    ASSERT_TRUE(extendIndex(fd.get(), &index, nullptr));
    EXPECT_EQ(index.points, mScanned.points);
    EXPECT_EQ(index.duration27M, mScanned.duration27M);
}

TEST(RecordingIndexTest, WhatIsNoRecordingFailsAndProgressMayGiveUp) {
    TempFile junk(Bytes(300'000, 0x12));
    TempFile empty(Bytes{});
    EXPECT_FALSE(loadOrRebuildIndex(junk.path(), false, nullptr));
    EXPECT_FALSE(loadOrRebuildIndex(empty.path(), false, nullptr));
    EXPECT_FALSE(loadOrRebuildIndex("/nonexistent/x.ts", false, nullptr));
    TempFile good(makeRecording({}));
    uint64_t of = 0;
    EXPECT_FALSE(loadOrRebuildIndex(good.path(), false, [&](uint64_t, uint64_t total) {
        of = total;
        return false;
    }));
    EXPECT_EQ(of, makeRecording({}).size());
}

}  // namespace
