#include "dtv/network/RtpReorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using orvhost::RtpReorder;

constexpr int64_t MS = 1'000'000;

struct Came {
    uint16_t number;
    int64_t atMs = 0;  // 0: 1 ms after the one before
    uint32_t ssrc = 1;
};

struct Counts {
    uint64_t lost = 0;
    uint64_t reordered = 0;
    uint64_t duplicates = 0;
    uint64_t restarts = 0;

    bool operator==(const Counts&) const = default;
};

struct Case {
    const char* name;
    std::vector<Came> came;
    // Each number as it goes on, behind the time in milliseconds when that is another than the
    // last.
    std::string taken;
    Counts counts;
};

class Line {
public:
    void offer(const Came& came) {
        mNowMs = came.atMs != 0 ? came.atMs : mNowMs + 1;
        take();  // what is overdue by then
        if (mReorder.offer(came.ssrc, came.number, mNowMs * MS,
                           static_cast<int>(mNumbers.size()))) {
            mNumbers.push_back(came.number);
        }
        take();
    }

    // Time passes with nothing coming.
    void wait() {
        for (int64_t deadline = mReorder.deadlineNs(-1); deadline >= 0;
             deadline = mReorder.deadlineNs(-1)) {
            mNowMs = deadline / MS;
            take();
        }
    }

    const std::string& taken() const { return mTaken; }
    Counts counts() const {
        return {mReorder.lost(), mReorder.reordered(), mReorder.duplicates(), mReorder.restarts()};
    }

private:
    void take() {
        for (int packet = mReorder.take(mNowMs * MS); packet != RtpReorder::NONE;
             packet = mReorder.take(mNowMs * MS)) {
            if (mNowMs != mToldMs) {
                mTaken += (mTaken.empty() ? "" : " ") + std::to_string(mNowMs) + ":";
            } else {
                mTaken += ",";
            }
            mToldMs = mNowMs;
            mTaken += std::to_string(mNumbers.at(static_cast<size_t>(packet)));
        }
    }

    RtpReorder mReorder;
    std::vector<uint16_t> mNumbers;
    std::string mTaken;
    int64_t mNowMs = 0;
    int64_t mToldMs = -1;
};

TEST(RtpReorderTest, EveryWayOfComing) {
    const Case cases[] = {
        {"in order", {{7}, {8}, {9}}, "1:7 2:8 3:9", {}},
        {"swapped", {{7}, {9}, {8}, {10}}, "1:7 3:8,9 4:10", {0, 1, 0, 0}},
        {"over the wrap", {{65534}, {0}, {65535}, {1}}, "1:65534 3:65535,0 4:1", {0, 1, 0, 0}},
        {"each twice", {{7}, {7}, {8}, {8}, {9}, {9}}, "1:7 3:8 5:9", {0, 0, 3, 0}},
        {"twice while held", {{7}, {9}, {9}, {8}, {8}}, "1:7 4:8,9", {0, 1, 2, 0}},
        {"one lost", {{7}, {9, 10}, {10, 20}, {11, 120}}, "1:7 120:9,10,11", {1, 0, 0, 0}},
        {"one lost, then silence", {{7}, {9, 10}}, "1:7 110:9", {1, 0, 0, 0}},
        {"two holes, each with its wait",
         {{7}, {9, 10}, {11, 40}, {12, 115}, {13, 141}},
         "1:7 115:9 141:11,12,13",
         {2, 0, 0, 0}},
        {"too late", {{7}, {9, 10}, {10, 111}, {8, 112}}, "1:7 111:9,10", {1, 0, 0, 0}},
        {"before the first", {{7}, {6}, {8}}, "1:7 3:8", {}},
        {"another sender",
         {{7}, {8}, {300, 0, 2}, {301, 0, 2}},
         "1:7 2:8 3:300 4:301",
         {0, 0, 0, 1}},
        {"another sender while one is held",
         {{7}, {9}, {300, 0, 2}, {301, 0, 2}},
         "1:7 3:9,300 4:301",
         {1, 0, 0, 1}},
        {"another sender with the same numbers",
         {{7}, {8}, {8, 0, 2}},
         "1:7 2:8 3:8",
         {0, 0, 0, 1}},
        {"far back", {{700}, {300}, {301}}, "1:700 2:300 3:301", {0, 0, 0, 1}},
        {"far ahead", {{7}, {20000}, {20001}}, "1:7 2:20000 3:20001", {0, 0, 0, 1}},
        {"more missing than are waited for", {{7}, {300}}, "1:7 102:300", {292, 0, 0, 0}},
        {"just too many", {{7}, {9}, {137}, {138}}, "1:7 3:9 103:137,138", {128, 0, 0, 0}},
        {"a little behind, again and again",
         {{50}, {40, 200}, {41}, {42}, {43}, {44}, {45}, {46}, {47}, {48}},
         "1:50 207:47 208:48",
         {0, 0, 0, 1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Line line;
        for (const Came& came : c.came) {
            line.offer(came);
        }
        line.wait();
        EXPECT_EQ(line.taken(), c.taken);
        const Counts counts = line.counts();
        EXPECT_EQ(counts, c.counts)
            << counts.lost << " lost, " << counts.reordered << " reordered, " << counts.duplicates
            << " duplicates, " << counts.restarts << " restarts";
    }
}

}  // namespace
