#include "common/RingBuffer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/Report.h"
#include "support/TraceCapture.h"

namespace {

using namespace OrvPlayer;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
constexpr auto BLOCKING = RingBuffer::BLOCKING;
constexpr auto NON_BLOCKING = RingBuffer::NON_BLOCKING;

android::sp<RingBuffer> makeRing(unsigned size) {
    android::sp<RingBuffer> ring = new RingBuffer;
    EXPECT_EQ(ring->configureWithSize("ring", size), 0);
    return ring;
}

template <typename Act>
milliseconds timeOf(Act act) {
    const auto begin = steady_clock::now();
    act();
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
}

// Moves both counters on by `bytes`; the ring is empty before and after.
void spin(RingBuffer& ring, uint64_t bytes) {
    while (bytes > 0) {
        const auto step = static_cast<unsigned>(std::min<uint64_t>(bytes, ring.getSize()));
        ASSERT_NE(ring.write(step, NON_BLOCKING), nullptr);
        ring.writeAdvance(step);
        ASSERT_NE(ring.read(step, NON_BLOCKING), nullptr);
        ring.readAdvance(step);
        bytes -= step;
    }
}

TEST(RingBufferTest, ConfiguresOnce) {
    struct {
        unsigned exponent;
        int result;
        unsigned size;
    } const CASES[] = {{12, 0, 4096}, {11, 1, 0}, {0, 1, 0}, {44, 0, 4096}, {20, 0, 1 << 20}};
    for (const auto& c : CASES) {
        orvtest::TraceCapture trace;
        const android::sp<RingBuffer> ring = new RingBuffer;
        EXPECT_EQ(ring->configure("ring", c.exponent), c.result);
        EXPECT_EQ(ring->getSize(), c.size);
        const bool refused = c.result != 0;
        EXPECT_EQ(trace.take(),
                  refused ? std::vector<std::string>{"configure: Size must be multiple of 4096"}
                          : std::vector<std::string>{});
        EXPECT_EQ(ring->configureWithSize("again", 8192), refused ? 0 : 1);
    }
}

// Only the lower bound is tested. A size that is no page multiple fails at the second view, and the
// buffer then stays configured without storage: it gives nothing and refuses another try.
TEST(RingBufferTest, FailedMappingIsFinal) {
    const android::sp<RingBuffer> ring = new RingBuffer;
    orvtest::TraceCapture trace;
    EXPECT_EQ(ring->configureWithSize("odd", 6000), 1);
    const std::vector<std::string> lines = trace.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("configureWithSize: mmap failed 3 fd = ")) << lines[0];
    EXPECT_EQ(ring->getSize(), 6000u);
    EXPECT_EQ(ring->configure("again", 12), 1);
    EXPECT_EQ(ring->write(100, NON_BLOCKING), nullptr);
    EXPECT_EQ(ring->read(0, NON_BLOCKING), nullptr);
}

TEST(RingBufferTest, RefusesSizesThatWrapWhenRoundedUp) {
    const auto ring = makeRing(4096);
    for (const unsigned huge : {0xFFFFFFFFu, 0xFFFFFFFDu, 0x80000000u, 4097u}) {
        ASSERT_EQ(ring->write(huge, NON_BLOCKING), nullptr);  // else its lock is held
        ASSERT_EQ(ring->read(huge, NON_BLOCKING), nullptr);
    }
}

// Any sequence of operations against a queue of bytes, from counters at 0 and from just below 2^32.
// Where the size does not divide 2^32, counters of 32 bits would shift every position there.
class RingBufferModelTest : public testing::TestWithParam<std::tuple<unsigned, bool>> {};

TEST_P(RingBufferModelTest, BehavesLikeAQueueOfBytes) {
    const auto [size, nearWrap] = GetParam();
    const auto ring = makeRing(size);
    if (nearWrap) {
        spin(*ring, (uint64_t{1} << 32) - size - 40);
    }
    std::mt19937 random(size + nearWrap);
    std::deque<unsigned char> model;
    unsigned char next = 0;
    for (int step = 0; step < 4000; ++step) {
        // Mostly records much smaller than the ring, at times up to all of it.
        const unsigned wanted = random() % (random() % 8 == 0 ? size + 8 : size / 6);
        const unsigned rounded = (wanted + 3) & ~3u;
        // Each side may go on by more than it asked for, by what it is told that there is.
        const unsigned asked = random() % 4 == 0 ? 0 : wanted;
        if (random() % 2 == 0) {
            unsigned char* to = ring->write(asked, NON_BLOCKING);
            ASSERT_EQ(to != nullptr, ((asked + 3) & ~3u) <= size - model.size());
            if (to == nullptr) {
                continue;
            }
            EXPECT_EQ(reinterpret_cast<uintptr_t>(to) % 4, 0u);
            if (rounded > ring->getFreeSpace()) {
                ring->writeAdvance(0);
                continue;
            }
            const bool commits = random() % 4 != 0;
            for (unsigned i = 0; i < rounded; ++i) {
                to[i] = commits ? static_cast<unsigned char>(next + i) : 0xDD;
            }
            ring->writeAdvance(commits ? wanted : 0);
            if (commits) {
                for (unsigned i = 0; i < rounded; ++i) {
                    model.push_back(next++);
                }
            }
        } else {
            const unsigned char* from = ring->read(asked, NON_BLOCKING);
            ASSERT_EQ(from != nullptr, asked <= model.size());
            if (from == nullptr) {
                continue;
            }
            ASSERT_EQ(ring->getDataSize(), model.size());
            ASSERT_TRUE(std::equal(model.begin(), model.end(), from));  // contiguous, all of it
            const unsigned consumed =
                random() % 4 != 0 ? std::min<unsigned>(rounded, model.size()) : 0;
            ring->readAdvance(consumed);
            model.erase(model.begin(), model.begin() + consumed);
        }
        ASSERT_EQ(ring->getDataSize() + ring->getFreeSpace(), size);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, RingBufferModelTest,
                         testing::Values(std::tuple(4096u, false), std::tuple(3 * 4096u, true),
                                         std::tuple(6'291'456u / 64, true)));

TEST(RingBufferTest, WaitsOnceForTheOtherSide) {
    const auto ring = makeRing(4096);
    EXPECT_GE(timeOf([&] { EXPECT_EQ(ring->read(4, BLOCKING), nullptr); }), milliseconds(95));
    ASSERT_NE(ring->write(4088, BLOCKING), nullptr);
    ring->writeAdvance(4088);
    EXPECT_GE(timeOf([&] { EXPECT_EQ(ring->write(12, BLOCKING), nullptr); }), milliseconds(95));
    ASSERT_NE(ring->write(8, BLOCKING), nullptr);
    EXPECT_FALSE(ring->waitForSpace(12));  // with the lock held, and kept
    EXPECT_TRUE(ring->waitForSpace(8));
    ring->writeAdvance(0);
}

// On a busy machine some waits may run to their end, but not most of them.
constexpr int WAITS = 50;
constexpr milliseconds MOST_OF_THEM = milliseconds(95) * WAITS / 2;

// Each record fills the ring, so both sides wait for every advance of the other.
TEST(RingBufferTest, AdvancingEndsAWait) {
    const auto ring = makeRing(4096);
    const auto took = timeOf([&] {
        std::thread reader([&] {
            for (int i = 0; i < WAITS; ++i) {
                while (ring->read(4096, BLOCKING) == nullptr) {
                }
                ring->readAdvance(4096);
            }
        });
        for (int i = 0; i < WAITS; ++i) {
            while (ring->write(4096, BLOCKING) == nullptr) {
            }
            ring->writeAdvance(4096);
        }
        reader.join();
    });
    EXPECT_LT(took, MOST_OF_THEM);
}

// A waiting side that is woken without data looks once and returns: a stop is not kept waiting.
TEST(RingBufferTest, WakingEndsAWait) {
    const auto ring = makeRing(4096);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        for (int i = 0; i < WAITS; ++i) {
            EXPECT_EQ(ring->read(4, BLOCKING), nullptr);
        }
        done = true;
    });
    const auto took = timeOf([&] {
        while (!done) {
            ring->wakeReaders();
            std::this_thread::yield();
        }
    });
    reader.join();
    EXPECT_LT(took, MOST_OF_THEM);
}

// A finished worker's lock is released from another thread; releasing a free lock does nothing.
TEST(RingBufferTest, LocksAreHandedOver) {
    const auto ring = makeRing(4096);
    std::thread([&] {
        ASSERT_NE(ring->write(40, NON_BLOCKING), nullptr);
        ring->writeAdvance(40);
        ASSERT_NE(ring->write(40, NON_BLOCKING), nullptr);
        ASSERT_NE(ring->read(40, NON_BLOCKING), nullptr);
    }).join();
    ring->writeAdvance(0);
    ring->readAdvance(0);
    ring->writeAdvance(0);
    ring->readAdvance(0);
    EXPECT_EQ(ring->getDataSize(), 40u);
    std::thread([&] {
        EXPECT_NE(ring->write(40, NON_BLOCKING), nullptr);
        EXPECT_NE(ring->read(40, NON_BLOCKING), nullptr);
        ring->readAdvance(40);
        ring->writeAdvance(0);
    }).join();
    ring->reset();
    EXPECT_EQ(ring->getDataSize(), 0u);
}

// A record is as long as its first word says and filled with its number.
TEST(RingBufferTest, TwoThreadsLoseNothing) {
    const auto ring = makeRing(3 * 4096);
    spin(*ring, (uint64_t{1} << 32) - 100'000);
    constexpr unsigned RECORDS = 20'000;
    std::thread writer([&] {
        std::mt19937 random(1);
        for (unsigned number = 0; number < RECORDS; ++number) {
            const unsigned words = 1 + random() % (number % 16 == 0 ? 2500 : 60);
            unsigned char* to = nullptr;
            while (to == nullptr) {
                to = ring->write(4 * words, BLOCKING);
            }
            auto* record = reinterpret_cast<unsigned*>(to);
            record[0] = words;
            std::fill_n(record + 1, words - 1, number);
            ring->writeAdvance(4 * words);
        }
    });
    std::thread observer([&] {  // a third thread sees sane values only
        for (int i = 0; i < 20'000; ++i) {
            ASSERT_LE(ring->getDataSize(), ring->getSize());
            ASSERT_LE(ring->getFreeSpace(), ring->getSize());
        }
        ring->getRepresentation();
    });
    for (unsigned number = 0; number < RECORDS; ++number) {
        unsigned char* from = nullptr;
        while (from == nullptr) {
            from = ring->read(4, BLOCKING);
        }
        const auto* record = reinterpret_cast<const unsigned*>(from);
        ASSERT_LE(4 * record[0], ring->getDataSize());
        for (unsigned i = 1; i < record[0]; ++i) {
            ASSERT_EQ(record[i], number);
        }
        ring->readAdvance(4 * record[0]);
    }
    writer.join();
    observer.join();
    EXPECT_EQ(ring->getDataSize(), 0u);
}

const std::string RED = "\033[01;31m", GREEN = "\033[01;32m", BORDER = "\033[01;33m|";

std::string bar(int n) {
    return std::string(static_cast<size_t>(n), '=');
}

TEST(RingBufferTest, DrawsItsOccupancy) {
    const auto ring = makeRing(4096);
    const auto expectBar = [&](const std::string& inner) {
        EXPECT_EQ(ring->getRepresentation(), BORDER + inner + BORDER + "\033[m");
    };
    expectBar(GREEN + bar(80));
    ASSERT_NE(ring->write(2048, NON_BLOCKING), nullptr);
    ring->writeAdvance(2048);
    expectBar(GREEN + RED + bar(40) + GREEN + bar(40));
    ASSERT_NE(ring->read(1024, NON_BLOCKING), nullptr);
    ring->readAdvance(1024);
    expectBar(GREEN + bar(20) + RED + bar(20) + GREEN + bar(40));
    ASSERT_NE(ring->write(2560, NON_BLOCKING), nullptr);
    ring->writeAdvance(2560);
    expectBar(RED + bar(10) + GREEN + bar(10) + RED + bar(60));
    ASSERT_NE(ring->write(512, NON_BLOCKING), nullptr);
    ring->writeAdvance(512);  // full
    expectBar(RED + bar(20) + GREEN + RED + bar(60));
}

// The counters are wider than the report shows: their low 32 bits, and the position they stand for.
TEST(RingBufferTest, ReportsItsState) {
    const std::string line = "\033[2K\r\t", end = "\033[m\n";
    const android::sp<RingBuffer> bare = new RingBuffer;
    EXPECT_EQ(orvtest::reportOf(*bare, 1),
              line + " - RingBuffer \n" + line + "\tRingBuffer is not configured.\n");
    const auto ring = makeRing(786'432);
    spin(*ring, uint64_t{1} << 32);
    ASSERT_NE(ring->write(393'216, NON_BLOCKING), nullptr);
    ring->writeAdvance(393'216);
    ASSERT_NE(ring->write(4, NON_BLOCKING), nullptr);
    const std::string report = orvtest::reportOf(*ring, 1);
    const size_t pointer = report.find(line + "\tPointer: 0x");
    const size_t locks = report.find(line + "\tWriteLock");
    ASSERT_LT(pointer, locks);
    EXPECT_EQ(report.substr(0, pointer), line + " - RingBuffer ring\n" + line + "\tSize: 786432\n" +
                                             line + "\tHead: 393216 (655360)\n" + line +
                                             "\tTail: 0 (262144)\n" + line + "\tUsed: 50.00%\n");
    EXPECT_EQ(report.substr(locks), line + "\tWriteLock: " + RED + "Locked" + end + line +
                                        "\tReadLock: " + GREEN + "Unlocked" + end + line + "\t" +
                                        ring->getRepresentation() + "\n" + line + "\t" +
                                        std::string(66, ' ') + "^ head\n" + line + "\t" +
                                        std::string(26, ' ') + "^ tail\n\n");
    ring->writeAdvance(0);
}

}  // namespace
