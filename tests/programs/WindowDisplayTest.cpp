#include "WindowDisplay.h"
#include "WindowLoader.h"

#include <SDL.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "TestPictures.h"
#include "VirtualScreen.h"
#include "pattern/TestPattern.h"

// What libdbus keeps for the life of the process, and an empty list of fonts that fontconfig leaves
// behind where there is no font.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libdbus-1\nleak:FcFontSetCreate\n";
}

namespace orvplay {
namespace {

using Shot = VirtualScreen::Shot;

// As large as the window, which then covers it.
constexpr int SCREEN_WIDTH = 1280;
constexpr int SCREEN_HEIGHT = 720;
constexpr auto PATIENCE = std::chrono::seconds(10);
constexpr int64_t PERIOD_NS = 33'366'667;

class WindowDisplayTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
#ifdef __SANITIZE_ADDRESS__
        setenv("SDL_RENDER_DRIVER", "software", 1);  // OpenGL drivers leave memory behind
#endif
        sScreen = std::make_unique<VirtualScreen>();
        if (!sScreen->start(SCREEN_WIDTH, SCREEN_HEIGHT)) {
            sScreen = nullptr;
        }
    }
    static void TearDownTestSuite() {
        sScreen = nullptr;
    }

    void SetUp() override {
        if (sScreen == nullptr) {
            GTEST_SKIP() << "there is no Xvfb on this machine";
        }
        mDisplay = std::make_unique<WindowDisplay>("test");
        ASSERT_TRUE(mDisplay->open());
        ASSERT_EQ(mDisplay->width(), SCREEN_WIDTH);
        ASSERT_EQ(mDisplay->height(), SCREEN_HEIGHT);
    }

    // Runs the window until the screen is as wanted.
    bool waitFor(const std::function<bool(const Shot&)>& wanted) {
        const auto end = std::chrono::steady_clock::now() + PATIENCE;
        while (std::chrono::steady_clock::now() < end) {
            mDisplay->handleEvents();
            mShot = sScreen->shot();
            if (!mShot.pixels.empty() && wanted(mShot)) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    // The number on the part of the screen between two columns.
    static std::optional<uint32_t> numberOn(const Shot& shot, int left = 0,
                                            int right = SCREEN_WIDTH) {
        return orvtest::readFrameNumber(shot.green().data() + left, shot.width, right - left,
                                        shot.height);
    }

    static void drawNumber(TestPicture* picture, int visibleWidth, int visibleHeight,
                           uint32_t number) {
        orvtest::drawFrameNumber(picture->luma(), picture->stride(), visibleWidth, visibleHeight,
                                 number);
    }

    static std::unique_ptr<VirtualScreen> sScreen;
    std::unique_ptr<WindowDisplay> mDisplay;
    Shot mShot;
};

std::unique_ptr<VirtualScreen> WindowDisplayTest::sScreen;

void expectColour(const Shot& shot, int x, int y, int red, int green, int blue) {
    const uint8_t* pixel = shot.at(x, y);
    EXPECT_NEAR(pixel[2], red, 4) << x << ", " << y;
    EXPECT_NEAR(pixel[1], green, 4) << x << ", " << y;
    EXPECT_NEAR(pixel[0], blue, 4) << x << ", " << y;
}

// 1080 of 1088 rows, scaled to the window; below the crop is a white that must not be seen. The
// same colour samples are another red in BT.709 than in BT.601.
TEST_F(WindowDisplayTest, ShowsTheCropInItsColours) {
    TestPicture picture(1920, 1088);
    picture.input().crop = {0, 0, 1919, 1079};
    picture.drawLuma([](int, int y) { return y < 1080 ? 81 : 235; });
    picture.fillChroma(90, 240);
    for (const uint32_t number : {7U, 65432U}) {
        drawNumber(&picture, 1920, 1080, number);
        mDisplay->show(picture.acquired());
        EXPECT_TRUE(waitFor([number](const Shot& shot) { return numberOn(shot) == number; }));
    }
    expectColour(mShot, 640, 100, 255, 24, 0);
    expectColour(mShot, 2, 717, 255, 24, 0);

    picture.input().dataSpace = HAL_DATASPACE_V0_BT601_525;
    mDisplay->show(picture.acquired());
    EXPECT_TRUE(waitFor([](const Shot& shot) { return shot.at(640, 100)[1] < 4; }));
    expectColour(mShot, 640, 100, 254, 0, 0);
}

// 720 x 480 with pixels of 8:9 is a picture of 4:3, between bars of 160 columns.
TEST_F(WindowDisplayTest, KeepsTheAspectRatioBetweenBlackBars) {
    TestPicture wide(720, 480);
    wide.drawLuma([](int, int) { return 180; });
    wide.input().sampleAspectWidth = 32;
    wide.input().sampleAspectHeight = 27;
    drawNumber(&wide, 720, 480, 1);
    mDisplay->show(wide.acquired());
    EXPECT_TRUE(waitFor([](const Shot& shot) { return numberOn(shot) == 1U; }));
    expectColour(mShot, 2, 100, 191, 191, 191);

    wide.input().sampleAspectWidth = 8;
    wide.input().sampleAspectHeight = 9;
    drawNumber(&wide, 720, 480, 2);
    mDisplay->show(wide.acquired());
    EXPECT_TRUE(waitFor([](const Shot& shot) { return numberOn(shot, 160, 1120) == 2U; }));
    expectColour(mShot, 157, 100, 0, 0, 0);
    expectColour(mShot, 163, 100, 191, 191, 191);
    expectColour(mShot, 1116, 100, 191, 191, 191);
    expectColour(mShot, 1122, 100, 0, 0, 0);

    // Edges between chroma samples, and a size that changes.
    TestPicture odd(719, 481);
    odd.drawLuma([](int x, int y) { return x < 3 || y < 1 || x > 716 ? 16 : 180; });
    odd.input().crop = {3, 1, 716, 479};
    mDisplay->show(odd.acquired());
    EXPECT_TRUE(waitFor([](const Shot& shot) { return shot.at(640, 540)[1] > 150; }));
    const int left = (SCREEN_WIDTH - SCREEN_HEIGHT * 714 / 479) / 2;
    expectColour(mShot, left + 3, 360, 191, 191, 191);
    expectColour(mShot, left + 3, 2, 191, 191, 191);
}

int teethOn(const Shot& shot) {
    int teeth = 0;
    for (int y = 1; y + 1 < shot.height; ++y) {
        for (int x = 0; x < shot.width; ++x) {
            const int middle = shot.at(x, y)[1];
            const int above = middle - shot.at(x, y - 1)[1];
            const int below = middle - shot.at(x, y + 1)[1];
            teeth += above * below > 40 * 40 ? 1 : 0;
        }
    }
    return teeth;
}

int leftEdgeOn(const Shot& shot) {
    int x = 0;
    while (x < shot.width && shot.at(x, 100)[1] < 128) {
        ++x;
    }
    return x;
}

// A bar that moves 20 columns a field. Each picture shows first its first, then its second field,
// without teeth; the one that the window falls back to when it lacks time would have them.
TEST_F(WindowDisplayTest, ShowsBothFieldsOfInterlacedPicturesOneAfterTheOther) {
    const auto leftOf = [](int field) { return 40 + 20 * field; };
    for (int number = 0; number < 5; ++number) {
        TestPicture picture(SCREEN_WIDTH, SCREEN_HEIGHT);
        picture.input().interlaced = true;
        picture.input().topFieldFirst = true;
        picture.input().timestamp = number * PERIOD_NS;
        picture.drawLuma([&](int x, int y) {
            const int left = leftOf(2 * number + y % 2);
            return x >= left && x < left + 300 ? 235 : 16;
        });
        mDisplay->show(picture.acquired());
        if (number == 0) {
            continue;
        }
        EXPECT_LE(mDisplay->waitMs(), 17);
        EXPECT_TRUE(waitFor([&](const Shot& shot) {
            return leftEdgeOn(shot) == leftOf(2 * number - 1);
        })) << number
            << ": " << leftEdgeOn(mShot);
        EXPECT_LT(teethOn(mShot), 200);
        EXPECT_EQ(mDisplay->waitMs(), 20);  // nothing is due
    }
}

// Rows and columns of the screen where a picture of one grey is covered by something else.
struct Covered {
    int left = SCREEN_WIDTH;
    int top = SCREEN_HEIGHT;
    int right = -1;
    int bottom = -1;
    bool hasWhite = false;

    explicit Covered(const Shot& shot, int grey) {
        for (int y = 0; y < shot.height; ++y) {
            for (int x = 0; x < shot.width; ++x) {
                const int value = shot.at(x, y)[1];
                if (std::abs(value - grey) > 4) {
                    left = std::min(left, x);
                    right = std::max(right, x);
                    top = std::min(top, y);
                    bottom = std::max(bottom, y);
                    hasWhite |= value > 250;
                }
            }
        }
    }
    bool nothing() const { return right < 0; }
};

// Text on its box at the bottom of the safe area, there until another comes, the last until it is
// cleared, and scaled with the window.
TEST_F(WindowDisplayTest, ACaptionLiesOverThePictureUntilItIsCleared) {
    constexpr int GREY = 128;
    TestPicture picture(1920, 1080);
    picture.drawLuma([](int, int) { return 126; });  // 128 on the screen
    mDisplay->showCaption("early");                  // before there is a picture
    mDisplay->showCaption("");
    mDisplay->show(picture.acquired());
    ASSERT_TRUE(waitFor([](const Shot& shot) { return Covered(shot, GREY).nothing(); }));

    mDisplay->showCaption("One row");
    ASSERT_TRUE(waitFor([](const Shot& shot) { return Covered(shot, GREY).hasWhite; }));
    const Covered one(mShot, GREY);
    EXPECT_GE(one.left, SCREEN_WIDTH / 20);
    EXPECT_NEAR(one.left + one.right, SCREEN_WIDTH, 8) << "not in the middle";
    EXPECT_NEAR(one.bottom, SCREEN_HEIGHT * 19 / 20, 4);
    EXPECT_GT(one.top, SCREEN_HEIGHT * 4 / 5);

    mDisplay->showCaption("A first row\nand a longer second row\nand a third\n");
    ASSERT_TRUE(waitFor([&](const Shot& shot) {
        return Covered(shot, GREY).top < one.top - (one.bottom - one.top);
    }));
    const Covered three(mShot, GREY);
    EXPECT_LT(three.left, one.left);
    EXPECT_NEAR(three.bottom, one.bottom, 2);
    mDisplay->show(picture.acquired());  // the next picture has it too
    EXPECT_TRUE(waitFor([&](const Shot& shot) { return Covered(shot, GREY).top == three.top; }));

    mDisplay->showCaption("");
    EXPECT_TRUE(waitFor([](const Shot& shot) { return Covered(shot, GREY).nothing(); }));

    // The status, in the other half and with a caption or without, goes by itself.
    mDisplay->showStatus("0:12 / 1:00", false);
    EXPECT_TRUE(waitFor([](const Shot& shot) {
        const Covered status(shot, GREY);
        return !status.nothing() && status.bottom < SCREEN_HEIGHT / 4;
    }));
    EXPECT_TRUE(waitFor([](const Shot& shot) { return Covered(shot, GREY).nothing(); }));
}

void push(Uint32 type, SDL_Keycode key, const char* text = "") {
    SDL_Event event{};
    event.type = type;
    if (type == SDL_TEXTINPUT) {
        SDL_strlcpy(event.text.text, text, sizeof event.text.text);
    } else {
        event.key.keysym.sym = key;
    }
    SDL_PushEvent(&event);
}

// What is shown because of a key, or of the player, is there and goes again; captions keep out of
// its way.
TEST_F(WindowDisplayTest, BannerAndChannelListLieOverThePicture) {
    constexpr int GREY = 128;
    TestPicture picture(1920, 1080);
    picture.drawLuma([](int, int) { return 126; });
    ScreenState state;
    state.name = "ORV TV";
    state.now = Programme{"News", "", 0, 3600};
    state.clockUtcS = 1200;
    mDisplay->showState(state);
    mDisplay->showChannels({{{"1", "One"}, {"2", "Two", "News"}}, 0});
    mDisplay->show(picture.acquired());
    const auto isBare = [](const Shot& shot) { return Covered(shot, GREY).nothing(); };
    ASSERT_TRUE(waitFor(isBare));

    mDisplay->showBanner();
    ASSERT_TRUE(waitFor([](const Shot& shot) { return Covered(shot, GREY).hasWhite; }));
    const Covered banner(mShot, GREY);
    EXPECT_NEAR(banner.left, SCREEN_WIDTH / 20, 1);
    EXPECT_NEAR(banner.right, SCREEN_WIDTH * 19 / 20, 1);
    EXPECT_NEAR(banner.bottom, SCREEN_HEIGHT * 19 / 20, 1);
    EXPECT_GT(banner.top, SCREEN_HEIGHT / 2);
    mDisplay->showCaption("A caption");
    EXPECT_TRUE(
        waitFor([&](const Shot& shot) { return Covered(shot, GREY).top < banner.top - 20; }));
    mDisplay->showCaption("");
    push(SDL_KEYDOWN, SDLK_i);
    EXPECT_TRUE(waitFor(isBare));

    push(SDL_KEYDOWN, SDLK_c);
    ASSERT_TRUE(waitFor([](const Shot& shot) { return Covered(shot, GREY).hasWhite; }));
    const Covered list(mShot, GREY);
    EXPECT_NEAR(list.right, SCREEN_WIDTH * 19 / 20, 1);
    EXPECT_GT(list.left, SCREEN_WIDTH / 3);
    push(SDL_KEYDOWN, SDLK_DOWN);
    push(SDL_KEYDOWN, SDLK_RETURN);
    EXPECT_TRUE(mDisplay->handleEvents() ==
                (std::vector<UserRequest>{{Request::CHOOSE_CHANNEL, 1}}));
    EXPECT_TRUE(waitFor(isBare));

    // A pause has its sign until it ends.
    state.isPaused = true;
    mDisplay->showState(state);
    EXPECT_TRUE(waitFor(
        [](const Shot& shot) { return shot.at(SCREEN_WIDTH / 2, SCREEN_HEIGHT / 2)[1] < 100; }));
    state.isPaused = false;
    mDisplay->showState(state);
    EXPECT_TRUE(waitFor(isBare));
}

TEST_F(WindowDisplayTest, TellsWhatTheUserAskedForAndTakesNoInterrupt) {
    struct sigaction action {};
    sigaction(SIGINT, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);

    using Requests = std::vector<UserRequest>;
    EXPECT_TRUE(mDisplay->handleEvents() == Requests{});
    push(SDL_KEYDOWN, SDLK_v);
    push(SDL_KEYDOWN, SDLK_f);
    push(SDL_KEYDOWN, SDLK_ESCAPE);
    push(SDL_TEXTINPUT, 0, "#");
    push(SDL_TEXTINPUT, 0, "#");  // held down
    push(SDL_KEYUP, SDLK_3);
    push(SDL_TEXTINPUT, 0, "#");
    push(SDL_KEYDOWN, SDLK_LEFT);
    push(SDL_QUIT, 0);
    EXPECT_TRUE(mDisplay->handleEvents() == (Requests{{Request::NEXT_CAPTIONS},
                                                      {Request::NEXT_AUDIO},
                                                      {Request::NEXT_AUDIO},
                                                      {Request::SEEK, -5'000},
                                                      {Request::QUIT}}));
}

// Where no window can be opened, one line says what to do instead.
TEST(NoDisplayTest, SaysToRunHeadless) {
    struct Restore {
        std::string display = getenv("DISPLAY") != nullptr ? getenv("DISPLAY") : "";
        ~Restore() { setenv("DISPLAY", display.c_str(), 1); }
    } restore;
    unsetenv("WAYLAND_DISPLAY");
    unsetenv("SDL_VIDEODRIVER");
    for (const char* display : {"", ":64999", "nonsense"}) {
        setenv("DISPLAY", display, 1);
        EXPECT_EQ(isDisplayAvailable(), *display != '\0');
        WindowDisplay window("test");
        testing::internal::CaptureStderr();
        EXPECT_FALSE(window.open());
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_NE(said.find("use --headless\n"), std::string::npos) << said;
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    }
}

}  // namespace
}  // namespace orvplay
