#include <media/mediaplayer.h>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>

#include "platform/media/player/MediaFile.h"
#include "platform/media/player/PlayerDriver.h"
#include "support/Await.h"
#include "support/ProcessUsage.h"

namespace {

using namespace android;
using namespace orvtest;
using testing::Test;

// One second in each of the containers; odd sizes, other aspects, other matrices, turned pictures.
struct FilmCase {
    Film film;
    int shownWidth;
    int shownHeight;
    uint32_t aspectWidth;
    uint32_t aspectHeight;
    int standard;       // of the colours
    int tolerance = 2;  // of lossless streams
    bool isInterlaced = false;
};

constexpr char LOSSLESS[] = "-c:v ffv1 -c:a aac";

class MediaPlayerTest : public Test {
protected:
    static void SetUpTestSuite() { sFolder = new MediaFolder; }
    static void TearDownTestSuite() { delete sFolder; }

    void SetUp() override { renew(); }
    void TearDown() override {
        mPlayer->disconnect();
        mPlayer = nullptr;
    }

    void renew() {
        mPlayer = new MediaPlayer;
        mLog = new NotificationLog;
        mWindow = std::make_unique<TestWindow>();
        ASSERT_EQ(mPlayer->setVideoSurfaceTexture(mWindow->producer()), OK);
        mPlayer->setListener(mLog);
    }

    status_t open(const std::string& file) {
        EXPECT_FALSE(file.empty()) << "ffmpeg made no file";
        EXPECT_EQ(mPlayer->setDataSource(nullptr, file.c_str(), nullptr), OK);
        return mPlayer->prepare();
    }

    // Three seconds, a picture that can be decoded alone in each, so that a seek has where to go.
    static std::string longFilm() {
        static const std::string file =
            sFolder->add({"long.mp4", "-c:v mpeg4 -g 25 -c:a aac", 160, 120, 75});
        return file;
    }

    int positionMs() {
        int ms = -1;
        EXPECT_EQ(mPlayer->getCurrentPosition(&ms), OK);
        return ms;
    }

    static MediaFolder* sFolder;
    sp<MediaPlayer> mPlayer;
    sp<NotificationLog> mLog;
    std::unique_ptr<TestWindow> mWindow;
};

MediaFolder* MediaPlayerTest::sFolder = nullptr;

void expectColour(const int* seen, const uint8_t* chroma, int tolerance, const char* half) {
    SCOPED_TRACE(half);
    EXPECT_NEAR(seen[0], LUMA, tolerance);
    EXPECT_NEAR(seen[1], chroma[0], tolerance);
    EXPECT_NEAR(seen[2], chroma[1], tolerance);
}

TEST_F(MediaPlayerTest, PlaysFilmsFromTheFirstToTheLastPicture) {
    const int SD = HAL_DATASPACE_STANDARD_BT601_525;
    const FilmCase cases[] = {
        {{"film.mp4", "-c:v mpeg4 -q:v 1 -c:a aac"}, 160, 120, 1, 1, SD, 4},
        {{"film.mkv", LOSSLESS, 160, 120, 15}, 160, 120, 1, 1, SD},
        {{"odd.mkv", LOSSLESS, 203, 147, 15}, 203, 147, 1, 1, SD},
        {{"wide.mkv", "-c:v ffv1 -aspect 16:9", 160, 120, 10, false}, 160, 120, 4, 3, SD},
        {{"hd.mkv", "-c:v ffv1 -colorspace bt709", 1280, 720, 10, false},
         1280,
         720,
         1,
         1,
         HAL_DATASPACE_STANDARD_BT709},
        {{"fields.mkv", "-c:v mpeg2video -q:v 1 -flags +ildct+ilme -top 1", 320, 240, 10, false},
         320,
         240,
         1,
         1,
         SD,
         4,
         true},
        {{"full.mkv", "-c:v ffv1 -color_range pc", 160, 120, 10, false}, 160, 120, 1, 1, SD},
    };
    for (const FilmCase& one : cases) {
        SCOPED_TRACE(one.film.name);
        renew();
        ASSERT_EQ(open(sFolder->add(one.film)), OK);
        int durationMs = 0;
        mPlayer->getDuration(&durationMs);
        EXPECT_NEAR(durationMs, one.film.pictures * 40, 100);
        ASSERT_EQ(mPlayer->start(), OK);
        ASSERT_TRUE(mLog->await("complete"));
        EXPECT_NEAR(positionMs(), durationMs, 100);

        const std::string size =
            "size " + std::to_string(one.shownWidth) + "x" + std::to_string(one.shownHeight);
        EXPECT_EQ(mLog->events(), (std::vector<std::string>{size, "start", "complete"}));
        const auto pictures = mWindow->pictures();
        ASSERT_FALSE(pictures.empty());
        EXPECT_EQ(pictures.front().number, 0);
        EXPECT_GT(pictures.back().number, one.film.pictures / 2);  // a busy machine drops some
        for (const SeenPicture& picture : pictures) {
            EXPECT_EQ(picture.width, one.shownWidth);
            EXPECT_EQ(picture.height, one.shownHeight);
            EXPECT_NEAR(static_cast<double>(picture.input.timestamp) / 1e6, picture.number * 40,
                        250);
        }
        const SeenPicture& last = pictures.back();
        EXPECT_EQ(last.input.sampleAspectWidth, one.aspectWidth);
        EXPECT_EQ(last.input.sampleAspectHeight, one.aspectHeight);
        EXPECT_EQ(last.input.interlaced, one.isInterlaced);
        EXPECT_EQ(last.input.topFieldFirst, one.isInterlaced);
        EXPECT_EQ(last.input.dataSpace & HAL_DATASPACE_STANDARD_MASK, one.standard);
        expectColour(last.left, LEFT_COLOUR, one.tolerance, "left");
        expectColour(last.right, RIGHT_COLOUR, one.tolerance, "right");
    }
}

// A camera that was held upright says so beside the picture; the bar code then reads across.
TEST_F(MediaPlayerTest, TurnsPicturesThatWereTakenUpright) {
    const std::string lying =
        sFolder->add({"lying.mp4", "-c:v mpeg4 -q:v 1 -vf transpose=cclock", 240, 160, 15, false});
    const std::string upright = sFolder->path("upright.mp4");
    ASSERT_EQ(
        system(("ffmpeg -v error -y -i " + lying + " -c copy -metadata:s:v rotate=270 " + upright)
                   .c_str()),
        0);
    ASSERT_EQ(open(upright), OK);
    ASSERT_EQ(mPlayer->start(), OK);
    ASSERT_TRUE(mLog->await("complete"));
    EXPECT_GT(mWindow->lastNumber(), 7);
    EXPECT_EQ(mWindow->pictures().back().width, 240);
    EXPECT_EQ(mWindow->pictures().back().height, 160);
}

TEST_F(MediaPlayerTest, PlaysSoundAlone) {
    ASSERT_EQ(open(sFolder->addSound("tone.mp3", 1)), OK);
    ASSERT_EQ(mPlayer->start(), OK);
    EXPECT_TRUE(await([this] { return positionMs() >= 300; }));
    EXPECT_TRUE(mLog->await("complete"));
    EXPECT_NEAR(positionMs(), 1000, 100);
    EXPECT_EQ(mLog->events(), (std::vector<std::string>{"complete"}));
    EXPECT_EQ(mWindow->count(), 0u);
}

// A pause keeps picture and position; seeks go to the picture that can be decoded alone, or
// exactly; the end can be left by a seek, or by starting over.
TEST_F(MediaPlayerTest, PausesSeeksAndStartsOver) {
    ASSERT_EQ(open(longFilm()), OK);
    ASSERT_EQ(mPlayer->start(), OK);
    ASSERT_TRUE(mWindow->awaitCount(10));
    ASSERT_EQ(mPlayer->pause(), OK);
    const int paused = positionMs();
    const size_t shown = mWindow->count();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LE(mWindow->count(), shown + 2);  // those that were on their way
    EXPECT_NEAR(positionMs(), paused, 100);

    EXPECT_EQ(mPlayer->seekTo(2600), OK);  // all of it while it is paused
    EXPECT_EQ(mWindow->awaitLast(50), 50);
    EXPECT_NEAR(static_cast<double>(mWindow->pictures().back().input.timestamp) / 1e6, 2000, 80);
    EXPECT_EQ(mPlayer->seekTo(1400, MediaPlayerSeekMode::SEEK_CLOSEST), OK);
    EXPECT_EQ(mWindow->awaitLast(35), 35);
    EXPECT_EQ(mPlayer->seekTo(-5), OK);
    EXPECT_EQ(mWindow->awaitLast(0), 0);
    EXPECT_EQ(mPlayer->seekTo(2100), OK);
    EXPECT_EQ(mWindow->awaitLast(50), 50);
    EXPECT_EQ(mPlayer->start(), OK);
    EXPECT_TRUE(mLog->await("complete"));
    EXPECT_GT(mWindow->lastNumber(), 60);

    EXPECT_EQ(mPlayer->seekTo(2100), OK);
    EXPECT_EQ(mPlayer->start(), OK);
    EXPECT_TRUE(mLog->await("complete", 2));
    EXPECT_EQ(mPlayer->start(), OK);  // from the beginning
    EXPECT_TRUE(await([this] { return mWindow->lastNumber() < 50; }));
    EXPECT_EQ(mPlayer->seekTo(99'000), OK);
    EXPECT_TRUE(mLog->await("complete", 3));
    EXPECT_EQ(mLog->count("start"), 1u);
}

TEST_F(MediaPlayerTest, TellsOnceWhatCannotBePlayed) {
    std::string film;
    {
        std::ifstream file(sFolder->add({"whole.mp4", "-c:v mpeg4 -c:a aac", 160, 120, 5}),
                           std::ios::binary);
        film.assign(std::istreambuf_iterator<char>(file), {});
    }
    ASSERT_GT(film.size(), 2000u);
    const struct {
        const char* what;
        std::string file;
        int error;
    } cases[] = {
        {"missing", sFolder->path("missing.mp4"), MEDIA_ERROR_IO},
        {"empty", sFolder->addBytes("empty.mp4", ""), MEDIA_ERROR_UNSUPPORTED},
        {"a folder", sFolder->path(""), MEDIA_ERROR_IO},
        {"a pipe that nobody writes to", sFolder->addPipe("pipe.mp4"), MEDIA_ERROR_IO},
        {"text", sFolder->addBytes("text.mp4", "hello, world\n"), MEDIA_ERROR_UNSUPPORTED},
        {"noise", sFolder->addBytes("noise.mkv", std::string(70'000, '\x5A')),
         MEDIA_ERROR_UNSUPPORTED},
        {"a list", sFolder->addBytes("list.m3u", sFolder->path("whole.mp4") + "\n"),
         MEDIA_ERROR_UNSUPPORTED},
        {"cut", sFolder->addBytes("cut.mp4", film.substr(0, 1000)), MEDIA_ERROR_UNSUPPORTED},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        renew();
        EXPECT_EQ(open(one.file), one.error);
        EXPECT_EQ(mPlayer->start(), INVALID_OPERATION);
        EXPECT_EQ(mPlayer->seekTo(0), INVALID_OPERATION);
        EXPECT_TRUE(mLog->await("error " + std::to_string(one.error)));
        mPlayer->disconnect();
        EXPECT_EQ(mLog->events().size(), 1u);
        EXPECT_EQ(mWindow->count(), 0u);
    }
    renew();
    EXPECT_EQ(mPlayer->setDataSource(nullptr, "", nullptr), BAD_VALUE);
    EXPECT_NE(mPlayer->prepare(), OK);
    EXPECT_TRUE(mLog->await("error 0"));
}

// A list of segments is a format that FFmpeg reads by itself: the player must not follow it.
TEST_F(MediaPlayerTest, NeverGoesFromAFileToTheNetwork) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(listener, 8), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/a";
    EXPECT_NE(open(sFolder->addBytes("segments.m3u8",
                                     "#EXTM3U\n#EXT-X-TARGETDURATION:1\n"
                                     "#EXTINF:1,\n" +
                                         url + ".ts\n#EXT-X-ENDLIST\n")),
              OK);
    EXPECT_LT(accept(listener, nullptr, nullptr), 0);
    close(listener);
}

// The film goes on to its end, whatever becomes of the window.
TEST_F(MediaPlayerTest, NeverWaitsForTheWindow) {
    const struct {
        const char* what;
        std::function<void(TestWindow&, MediaPlayer&)> act;
    } cases[] = {
        {"it takes no picture", [](TestWindow& window, MediaPlayer&) { window.freeze(); }},
        {"it goes away", [](TestWindow& window, MediaPlayer&) { window.abandon(); }},
        {"the surface is taken away",
         [](TestWindow&, MediaPlayer& player) { player.setVideoSurfaceTexture(nullptr); }},
    };
    const std::string film =
        sFolder->add({"short.mp4", "-c:v mpeg4 -c:a aac", 160, 120, PICTURES_PER_SECOND});
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        renew();
        ASSERT_EQ(open(film), OK);
        ASSERT_EQ(mPlayer->start(), OK);
        ASSERT_TRUE(mWindow->awaitCount(5));
        one.act(*mWindow, *mPlayer);
        EXPECT_TRUE(mLog->await("complete"));
    }
}

// A window that comes while the film is paused shows the picture of the pause; one that another
// producer has is refused, and so is whatever cannot be.
TEST_F(MediaPlayerTest, ExchangesTheSurface) {
    ASSERT_EQ(open(longFilm()), OK);
    EXPECT_EQ(mPlayer->seekTo(1100), OK);
    EXPECT_EQ(mWindow->awaitLast(25), 25);
    TestWindow other;
    EXPECT_EQ(mPlayer->setVideoSurfaceTexture(other.producer()), OK);
    EXPECT_EQ(other.awaitLast(25), 25);

    const sp<MediaPlayer> second = new MediaPlayer;
    EXPECT_NE(second->setVideoSurfaceTexture(other.producer()), OK);
    EXPECT_EQ(second->setVideoSurfaceTexture(mWindow->producer()), OK);
    second->disconnect();
    EXPECT_EQ(second->setVideoSurfaceTexture(mWindow->producer()), INVALID_OPERATION);
    EXPECT_EQ(second->setDataSource(nullptr, longFilm().c_str(), nullptr), INVALID_OPERATION);
    EXPECT_EQ(mPlayer->setVolume(0.5f, NAN), BAD_VALUE);
    EXPECT_EQ(mPlayer->setVolume(0.5f, 0.25f), OK);
    EXPECT_NE(second->getAudioSessionId(), mPlayer->getAudioSessionId());
}

// Whenever it comes: nothing is told and no thread is left after a stop, and it can begin anew.
TEST_F(MediaPlayerTest, StopsAtAnyMoment) {
    ASSERT_EQ(open(longFilm()), OK);
    EXPECT_EQ(mPlayer->stop(), OK);  // the module is loaded, with what it leaves for good
    const size_t threads = ProcessUsage::now().threads;
    for (const int ms : {0, 1, 5, 20, 45, 80, 150, 0, 2, 35}) {
        SCOPED_TRACE(ms);
        ASSERT_EQ(mPlayer->prepare(), OK);
        ASSERT_EQ(mPlayer->start(), OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        if (ms % 2 != 0) {
            EXPECT_EQ(mPlayer->seekTo(1500), OK);
        }
        EXPECT_EQ(mPlayer->stop(), OK);
        const size_t told = mLog->events().size();
        EXPECT_EQ(mPlayer->stop(), INVALID_OPERATION);
        EXPECT_TRUE(await([&] { return ProcessUsage::now().threads <= threads; }));
        EXPECT_LE(mLog->events().size(), told + 1);  // the one that was being told
    }
}

}  // namespace
