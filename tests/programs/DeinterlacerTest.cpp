#include "Deinterlacer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "TestPictures.h"

namespace orvplay {
namespace {

constexpr int WIDTH = 322;  // no multiple of what vector code takes at a time
constexpr int HEIGHT = 96;
constexpr int64_t PERIOD_NS = 33'366'667;

// A bright bar, red, that moves by 6 columns with every field.
bool inBar(int x, int field) {
    const int left = 10 + 6 * field;
    return x >= left && x < left + 40;
}

int barLuma(int x, int field) {
    return inBar(x, field) ? 200 : 40;
}

int barCr(int x, int field) {
    return inBar(x, field) ? 220 : 128;
}

// Picture `number`: the rows of its first field show field 2 * number.
std::unique_ptr<TestPicture> movingPicture(int number, bool topFieldFirst, int height = HEIGHT) {
    auto picture = std::make_unique<TestPicture>(WIDTH, height);
    const auto fieldOf = [&](int row) {
        return 2 * number + ((row % 2 == 0) == topFieldFirst ? 0 : 1);
    };
    picture->drawLuma([&](int x, int y) { return barLuma(x, fieldOf(y)); });
    for (int row = 0; row < height / 2; ++row) {
        for (int x = 0; x < WIDTH; x += 2) {
            picture->chroma(x, 2 * row)[1] = static_cast<uint8_t>(barCr(x, fieldOf(row)));
        }
    }
    picture->input().interlaced = true;
    picture->input().topFieldFirst = topFieldFirst;
    picture->input().timestamp = 1'000'000'000 + number * PERIOD_NS;
    return picture;
}

// Mean distance of a picture from what the scene looked like at one field's time.
double lumaError(const PictureView& view, int field) {
    int64_t sum = 0;
    for (int y = 0; y < view.height; ++y) {
        for (int x = 0; x < view.width; ++x) {
            sum += std::abs(view.luma[y * view.lumaStride + x] - barLuma(x, field));
        }
    }
    return static_cast<double>(sum) / (view.width * view.height);
}

double chromaError(const PictureView& view, int field) {
    int64_t sum = 0;
    for (int y = 0; y < view.height / 2; ++y) {
        for (int x = 0; x < view.width; x += 2) {
            sum += std::abs(view.chroma[y * view.chromaStride + x + 1] - barCr(x, field));
        }
    }
    return static_cast<double>(sum) / (view.width * view.height / 4);
}

// Pixels that stick out from both the row above and the row below: the teeth of a comb.
int countTeeth(const PictureView& view) {
    int teeth = 0;
    for (int y = 1; y + 1 < view.height; ++y) {
        const uint8_t* row = view.luma + y * view.lumaStride;
        for (int x = 0; x < view.width; ++x) {
            const int above = row[x] - row[x - view.lumaStride];
            const int below = row[x] - row[x + view.lumaStride];
            teeth += above * below > 40 * 40 ? 1 : 0;
        }
    }
    return teeth;
}

bool push(Deinterlacer* deinterlacer, const TestPicture& picture) {
    const LockedPicture locked(picture.acquired());
    return deinterlacer->push(locked.view());
}

struct Pulled {
    Deinterlacer::Result kind;
    int64_t timestamp;
    double luma;
    double chroma;
    int teeth;
};

// Everything that is ready; `field` is the one that the first result shows.
std::vector<Pulled> pullAll(Deinterlacer* deinterlacer, int field) {
    std::vector<Pulled> all;
    PictureView view;
    for (;;) {
        const Deinterlacer::Result kind = deinterlacer->pull(&view);
        if (kind == Deinterlacer::Result::NONE) {
            return all;
        }
        EXPECT_FALSE(view.input.interlaced);
        all.push_back({kind, view.input.timestamp, lumaError(view, field), chromaError(view, field),
                       countTeeth(view)});
        ++field;
    }
}

class DeinterlacerTest : public testing::TestWithParam<bool> {};

// Each field comes out as the whole scene at its time; in a woven picture the bar has teeth. The
// wrong order of fields would show the scene of another time.
TEST_P(DeinterlacerTest, FieldsOfAMovingSceneBecomeWholePictures) {
    Deinterlacer deinterlacer(Deinterlacer::Rate::FIELD);
    for (int number = 0; number < 8; ++number) {
        const auto picture = movingPicture(number, GetParam());
        const LockedPicture woven(picture->acquired());
        EXPECT_GT(countTeeth(woven.view()), 500);
        EXPECT_GT(lumaError(woven.view(), 2 * number), 2.5);
        EXPECT_GT(chromaError(woven.view(), 2 * number), 1.5);

        ASSERT_TRUE(push(&deinterlacer, *picture));
        const auto results = pullAll(&deinterlacer, 2 * number - 2);
        if (number == 0) {
            EXPECT_TRUE(results.empty());
            continue;
        }
        ASSERT_EQ(results.size(), 2u);
        const int64_t timestamp = picture->input().timestamp - PERIOD_NS;
        EXPECT_EQ(results[0].kind, Deinterlacer::Result::PICTURE);
        EXPECT_EQ(results[0].timestamp, timestamp);
        EXPECT_EQ(results[1].kind, Deinterlacer::Result::SECOND_FIELD);
        EXPECT_EQ(results[1].timestamp, timestamp + PERIOD_NS / 2);
        for (const Pulled& result : results) {
            EXPECT_LT(result.teeth, 20) << number;
            EXPECT_LT(result.luma, 0.5) << number;
            EXPECT_LT(result.chroma, 0.5) << number;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(TopFieldFirst, DeinterlacerTest, testing::Bool());

// The numbers of the pictures that came out, from their time stamps.
std::vector<int> numbersOf(const std::vector<Pulled>& results) {
    std::vector<int> numbers;
    for (const Pulled& result : results) {
        if (result.kind == Deinterlacer::Result::PICTURE) {
            numbers.push_back(static_cast<int>((result.timestamp - 1'000'000'000) / PERIOD_NS));
        }
    }
    return numbers;
}

TEST(DeinterlacerOrderTest, ChangingTheRateLosesNoPicture) {
    Deinterlacer deinterlacer(Deinterlacer::Rate::FRAME);
    for (int number = 0; number < 12; ++number) {
        const bool perField = number / 3 % 2 != 0;
        deinterlacer.setRate(perField ? Deinterlacer::Rate::FIELD : Deinterlacer::Rate::FRAME);
        ASSERT_TRUE(push(&deinterlacer, *movingPicture(number, true)));
        const auto results = pullAll(&deinterlacer, 2 * number - 2);
        if (number > 0) {
            EXPECT_EQ(numbersOf(results), std::vector<int>{number - 1});
            EXPECT_EQ(results.size(), perField ? 2u : 1u) << number;
        }
    }
}

// A second field that nobody asked for comes in front of the next picture, never after it.
TEST(DeinterlacerOrderTest, FieldsNotPulledKeepTheirOrder) {
    Deinterlacer deinterlacer(Deinterlacer::Rate::FIELD);
    PictureView view;
    int64_t last = 0;
    for (int number = 0; number < 6; ++number) {
        ASSERT_TRUE(push(&deinterlacer, *movingPicture(number, true)));
        Deinterlacer::Result kind = Deinterlacer::Result::SECOND_FIELD;
        while (kind == Deinterlacer::Result::SECOND_FIELD) {
            kind = deinterlacer.pull(&view);
            if (kind != Deinterlacer::Result::NONE) {
                EXPECT_GT(view.input.timestamp, last);
                last = view.input.timestamp;
            }
        }
        EXPECT_EQ(kind, number == 0 ? Deinterlacer::Result::NONE : Deinterlacer::Result::PICTURE);
    }
    EXPECT_EQ(last, 1'000'000'000 + 4 * PERIOD_NS);
}

TEST(DeinterlacerOrderTest, ProgressivePicturesPassUntouchedInTheirPlace) {
    Deinterlacer deinterlacer(Deinterlacer::Rate::FIELD);
    for (int number = 0; number < 9; ++number) {
        // Combed as it is, this picture must come out so when it says that it is progressive.
        const auto picture = movingPicture(number, true);
        const auto isProgressive = [](int i) { return i % 3 == 1; };
        picture->input().interlaced = !isProgressive(number);
        ASSERT_TRUE(push(&deinterlacer, *picture));
        const auto results = pullAll(&deinterlacer, 2 * number - 2);
        if (number > 0) {
            EXPECT_EQ(numbersOf(results), std::vector<int>{number - 1});
            EXPECT_EQ(results.size(), isProgressive(number - 1) ? 1u : 2u) << number;
            EXPECT_EQ(results[0].teeth > 500, isProgressive(number - 1)) << number;
        }
    }
}

TEST(DeinterlacerOrderTest, BeginsAnewWithAnotherSizeAndRefusesTinyPictures) {
    Deinterlacer deinterlacer(Deinterlacer::Rate::FRAME);
    for (const int height : {HEIGHT, 48, 50, 9}) {
        for (int number = 0; number < 3; ++number) {
            ASSERT_TRUE(push(&deinterlacer, *movingPicture(number, true, height))) << height;
            const auto results = pullAll(&deinterlacer, 2 * number - 2);
            EXPECT_EQ(results.size(), number == 0 ? 0u : 1u) << height;
        }
    }
    for (const auto& [width, height] : {std::pair(2, 96), std::pair(64, 4), std::pair(1, 1)}) {
        EXPECT_FALSE(push(&deinterlacer, TestPicture(width, height)));
        PictureView view;
        EXPECT_EQ(deinterlacer.pull(&view), Deinterlacer::Result::NONE);
    }
    EXPECT_TRUE(push(&deinterlacer, *movingPicture(0, true)));
}

}  // namespace
}  // namespace orvplay
