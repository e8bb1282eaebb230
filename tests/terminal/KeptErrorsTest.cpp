#include "KeptErrors.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace orvplay {
namespace {

class KeptErrorsTest : public testing::Test {
protected:
    void SetUp() override {
        testing::internal::CaptureStderr();
        mKept = std::make_unique<KeptErrors>(true);
    }
    std::string end() {
        mKept = nullptr;
        return testing::internal::GetCapturedStderr();
    }

    std::unique_ptr<KeptErrors> mKept;
};

TEST_F(KeptErrorsTest, LinesAreTakenOnceAndTellAllAtTheEnd) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(mKept->take(), Lines());
    fputs("one\ntwo\nhalf", stderr);
    EXPECT_EQ(mKept->take(), (Lines{"one", "two"}));
    EXPECT_EQ(system("echo ' of it, by a process' >&2"), 0);
    EXPECT_EQ(mKept->take(), (Lines{"half of it, by a process"}));
    fputs("late", stderr);
    EXPECT_EQ(end(), "one\ntwo\nhalf of it, by a process\nlate");
}

// Nobody reads, and then much more comes than is kept.
TEST_F(KeptErrorsTest, AFloodStopsNobody) {
    const std::string line(1000, 'x');
    for (int i = 0; i < 1000; ++i) {
        fprintf(stderr, "%s\n", line.c_str());
    }
    clearerr(stderr);
    for (int i = 0; i < 1000; ++i) {
        fprintf(stderr, "%s\n", line.c_str());
        mKept->take();
    }
    const std::string told = end();
    EXPECT_LT(told.size(), 300'000u);
    EXPECT_TRUE(told.ends_with("more messages came than are kept\n"));
}

}  // namespace
}  // namespace orvplay
