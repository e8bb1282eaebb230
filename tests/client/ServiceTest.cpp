// The library and the service process itself, on the sample broadcast.

#include <gtest/gtest.h>
#include <malloc.h>
#include <orvclient/Player.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "client/CallbackQueue.h"
#include "client/Session.h"
#include "pattern/TestPattern.h"
#include "platform/binder/ChildProcess.h"
#include "platform/binder/PrivateBus.h"
#include "support/Await.h"
#include "support/ProcessUsage.h"

namespace orvtest {
namespace {

using orvclient::Picture;
using orvclient::Player;
using orvclient::State;
using orvclient::Status;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds BOUND{30};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

class ServiceTest : public testing::Test {
protected:
    void SetUp() override {
        mOptions.daemon = ORV_DAEMON;
        mOptions.commandTimeout = BOUND;
    }
    void TearDown() override { mPlayer = nullptr; }

    void create() {
        orvclient::Callbacks callbacks;
        callbacks.onCaption = [this](const std::string& text, int64_t pcr90k) {
            mCaptions += !text.empty() && pcr90k > 0 ? 1 : 0;
        };
        callbacks.onStill = [this](const orvclient::StillView& still) {
            const size_t bytes = size_t{still.width} * still.height * still.bytesPerPixel;
            const bool isDrawn = std::any_of(still.pixels, still.pixels + bytes,
                                             [](uint8_t value) { return value > 32; });
            mStills += isDrawn && still.source.ptsNs > 0 ? 1 : 0;
        };
        callbacks.onEnd = [this] { ++mEnds; };
        callbacks.onError = [this](int) { ++mErrors; };
        callbacks.onLost = [this](const std::string& reason) {
            std::lock_guard<std::mutex> guard(mLock);
            mLost.push_back(reason);
        };
        std::string error;
        mPlayer = Player::create(mOptions, callbacks, &error);
        ASSERT_NE(mPlayer, nullptr) << error;
        ASSERT_TRUE(mPlayer->setSurface(&mPictures).ok());
    }
    void tune() {
        orvhost::TuneOptions tuning;
        tuning.loop = true;
        const auto tuned = mPlayer->tuner().tune(ORV_SAMPLES_DIR "/small.ts", tuning);
        ASSERT_TRUE(tuned.ok()) << tuned.message;
        const auto list = mPlayer->tuner().services(5000);
        ASSERT_FALSE(list.services.empty()) << list.result.message;
        mSource = orvclient::liveSourceOf(list.services.front());
    }
    void play() {
        ASSERT_TRUE(mPlayer->open(mSource).ok());
        const Status started = mPlayer->start();
        ASSERT_TRUE(started.ok()) << started.message;
    }
    // Takes so many pictures. mSteps counts those whose drawn number is above that of the last.
    bool watch(int count) {
        const auto end = std::chrono::steady_clock::now() + BOUND;
        uint32_t last = 0;
        int taken = 0;
        for (mSteps = 0; taken < count && std::chrono::steady_clock::now() < end;) {
            Picture picture;
            if (!mPictures.acquire(&picture, 100)) {
                continue;
            }
            const auto number =
                readFrameNumber(picture.luma, static_cast<int>(picture.stride),
                                static_cast<int>(picture.width), static_cast<int>(picture.height));
            mSteps += number.has_value() && *number > last ? 1 : 0;
            last = number.value_or(last);
            ++taken;
            mPictures.release(picture);
        }
        return taken == count;
    }
    std::vector<std::string> lost() {
        std::lock_guard<std::mutex> guard(mLock);
        return mLost;
    }

    Player::Options mOptions;
    orvclient::PictureQueue mPictures;
    orvclient::LiveSource mSource;
    std::unique_ptr<Player> mPlayer;
    int mSteps = 0;
    std::atomic<int> mCaptions{0};
    std::atomic<int> mStills{0};
    std::atomic<int> mEnds{0};
    std::atomic<int> mErrors{0};

private:
    std::mutex mLock;
    std::vector<std::string> mLost;
};

TEST_F(ServiceTest, PlaysTheSample) {
    create();
    EXPECT_EQ(mPlayer->tuner().tune("/nonexistent.ts", {}).message,
              "/nonexistent.ts: no such file; check the path");
    EXPECT_EQ(mPlayer->tuner().services(0).result.status, orvhost::TuneStatus::NotTuned);
    tune();
    play();
    EXPECT_EQ(mPlayer->state(), State::PLAYING);
    EXPECT_TRUE(watch(30));
    EXPECT_EQ(mSteps, 30);
    EXPECT_TRUE(await([this] { return mCaptions > 0; }, BOUND));
    EXPECT_TRUE(mPlayer->requestStills(2, milliseconds(100)).ok());
    EXPECT_TRUE(await([this] { return watch(2) && mStills == 2; }, BOUND));
    EXPECT_EQ(mPlayer->seek(seconds(1)).code, Status::REFUSED) << "it is live";
    EXPECT_TRUE(mPlayer->pause().ok());
    EXPECT_EQ(mPlayer->state(), State::PAUSED);
    EXPECT_TRUE(mPlayer->resume().ok());
    EXPECT_TRUE(watch(5));

    const auto figures = mPlayer->figures();
    EXPECT_EQ(figures.pid, mPlayer->servicePid());
    EXPECT_GT(figures.framesTimed, 30U);
    EXPECT_GT(figures.audioFrames, 0U);
    EXPECT_GT(mPlayer->tuner().signal().packets, 0U);
    const int file = memfd_create("dump", MFD_CLOEXEC);
    EXPECT_TRUE(mPlayer->dump(file).ok());
    EXPECT_GT(lseek(file, 0, SEEK_END), 100);
    close(file);

    EXPECT_TRUE(mPlayer->stop().ok());
    EXPECT_EQ(mPlayer->state(), State::OPEN);
    EXPECT_TRUE(mPlayer->close().ok());
    EXPECT_EQ(mPlayer->state(), State::IDLE);
    EXPECT_TRUE(mPlayer->stop().ok());
    const pid_t service = mPlayer->servicePid();
    mPlayer = nullptr;
    EXPECT_EQ(kill(service, 0), -1) << "it is gone with the player";
    EXPECT_EQ(mEnds + mErrors, 0);
    EXPECT_TRUE(lost().empty());
}

// A recording is imported, found, played by its number, paused, sought in, and removed.
TEST_F(ServiceTest, Recordings) {
    const std::string home = testing::TempDir() + "orv-client-" + std::to_string(getpid());
    setenv("XDG_DATA_HOME", home.c_str(), 1);
    create();
    unsetenv("XDG_DATA_HOME");
    orvclient::Recordings& recordings = mPlayer->recordings();
    orvhost::RecordingDetails imported;
    const auto progress = [](int64_t done, int64_t total) { return done <= total; };
    EXPECT_FALSE(recordings.importFile("/no/such.ts", {}, progress, &imported).ok());
    const auto result =
        recordings.importFile(ORV_SAMPLES_DIR "/small.ts", {"", "All", 0}, progress, &imported);
    ASSERT_TRUE(result.ok()) << result.message;
    EXPECT_EQ(imported.programmeName, "All");
    EXPECT_EQ(recordings.list().recordings.size(), 1U);

    EXPECT_EQ(mPlayer->openRecording(imported.number + 1).code, Status::REFUSED);
    const Status opened = mPlayer->openRecording(imported.number);
    ASSERT_TRUE(opened.ok()) << opened.message;
    EXPECT_EQ(mPlayer->duration(), milliseconds(imported.durationMs));
    ASSERT_TRUE(mPlayer->start().ok());
    EXPECT_TRUE(watch(10));
    EXPECT_EQ(mSteps, 10);
    EXPECT_TRUE(mPlayer->seek(seconds(6)).ok());
    EXPECT_GE(mPlayer->elapsed(), seconds(6));
    EXPECT_TRUE(watch(10));
    EXPECT_TRUE(mPlayer->pause().ok());
    EXPECT_TRUE(mPlayer->seek(seconds(2)).ok());
    EXPECT_EQ(mPlayer->state(), State::PAUSED);
    EXPECT_TRUE(mPlayer->resume().ok());
    EXPECT_TRUE(await([this] { return mPlayer->elapsed() >= seconds(3); }, BOUND));
    EXPECT_EQ(mEnds, 0);
    mPlayer->seek(std::chrono::hours(1));
    EXPECT_TRUE(await([this] { return mEnds == 1; }, BOUND));
    EXPECT_TRUE(mPlayer->close().ok());
    EXPECT_TRUE(recordings.remove(imported.number).ok());
    EXPECT_TRUE(recordings.list().recordings.empty());
    mPlayer = nullptr;
    std::filesystem::remove_all(home);
}

size_t entriesOf(pid_t process, const std::string& what) {
    const std::filesystem::directory_iterator list("/proc/" + std::to_string(process) + "/" + what);
    return static_cast<size_t>(std::distance(begin(list), end(list)));
}

size_t residentKb(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stoul(line.substr(6));
        }
    }
    return 0;
}

// Stopped at once or after the first pictures, a hundred times leave nothing on either side; or as
// many as ORV_CYCLES says.
TEST_F(ServiceTest, CyclesLeaveNothingBehind) {
    const char* const asked = getenv("ORV_CYCLES");
    const int cycles = asked != nullptr ? atoi(asked) : SANITIZED ? 20 : 100;
    const int settled = cycles / 2;  // what lives as long as the processes is there by then
    constexpr size_t SLACK_KB = 4096;
    create();
    tune();
    const pid_t service = mPlayer->servicePid();
    size_t threads = 0;
    size_t descriptors = 0;
    size_t memoryKb = 0;
    size_t heap = 0;
    ProcessUsage own;
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        play();
        if (cycle == 1 || cycle == settled || cycle == cycles) {
            EXPECT_TRUE(watch(5)) << cycle;
        }
        ASSERT_TRUE(mPlayer->stop().ok());
        ASSERT_TRUE(mPlayer->close().ok());
        if (cycle == settled) {
            own = ProcessUsage::now();
            heap = mallinfo2().uordblks;
            threads = entriesOf(service, "task");
            descriptors = entriesOf(service, "fd");
            memoryKb = residentKb(service);
        }
    }
    EXPECT_TRUE(await([&] { return entriesOf(service, "task") <= threads; }));
    EXPECT_TRUE(await([&] { return entriesOf(service, "fd") <= descriptors; }));
    EXPECT_TRUE(await([&] { return ProcessUsage::now().threads <= own.threads; }));
    EXPECT_TRUE(await([&] { return ProcessUsage::now().descriptors <= own.descriptors; }));
    if (!SANITIZED) {
        EXPECT_LT(residentKb(service), memoryKb + SLACK_KB);
        EXPECT_LT(mallinfo2().uordblks, heap + SLACK_KB * 1024 / 16);
    }
}

TEST_F(ServiceTest, AKilledServiceIsToldOnceAndReplaced) {
    mOptions.restart = true;
    create();
    tune();
    play();
    EXPECT_TRUE(watch(3));
    kill(mPlayer->servicePid(), SIGKILL);
    EXPECT_TRUE(await([this] { return !lost().empty(); }, BOUND));
    EXPECT_EQ(lost(),
              std::vector<std::string>{"the player service was ended by signal 9 (Killed)"});
    tune();
    play();
    EXPECT_TRUE(watch(3));
    EXPECT_EQ(lost().size(), 1U);
}

// A signal takes its time to reach each thread.
bool isStopped(pid_t process) {
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream file(task.path() / "stat");
        std::string stat;
        std::getline(file, stat);
        if (stat.find(") T ") == std::string::npos) {
            return false;
        }
    }
    return true;
}

TEST_F(ServiceTest, AStoppedServiceCostsNoMoreThanTheTimeout) {
    mOptions.commandTimeout = seconds(1);
    create();
    kill(mPlayer->servicePid(), SIGSTOP);
    ASSERT_TRUE(await([this] { return isStopped(mPlayer->servicePid()); }));
    EXPECT_EQ(mPlayer->setAudioEnabled(false).code, Status::TIMEOUT);
    EXPECT_FALSE(mPlayer->tuner().tune(ORV_SAMPLES_DIR "/small.ts", {.timeoutMs = 0}).ok());
    kill(mPlayer->servicePid(), SIGCONT);
    EXPECT_TRUE(await([this] { return mPlayer->setAudioEnabled(true).ok(); }, BOUND));
}

// One player plays, another looks on; the service outlives the first, and its end is told.
TEST_F(ServiceTest, AServiceOnABus) {
    PrivateBus bus;
    ASSERT_FALSE(bus.address().empty());
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    auto service = std::make_unique<ChildProcess>(
        std::vector<std::string>{ORV_DAEMON, "--bus-address", bus.address()});
    mOptions.service = Player::Service::SESSION_BUS;
    Player::Options lookingOn = mOptions;
    lookingOn.registerForEvents = false;
    std::string error;
    std::unique_ptr<Player> other;
    ASSERT_TRUE(await(
        [&] {
            other = Player::create(lookingOn, {}, &error);
            return other != nullptr;
        },
        BOUND))
        << error;
    create();
    EXPECT_EQ(mPlayer->servicePid(), other->figures().pid);
    tune();
    play();
    EXPECT_TRUE(watch(3));
    EXPECT_EQ(other->state(), State::PLAYING);
    EXPECT_TRUE(other->setAudioEnabled(false).ok());
    EXPECT_TRUE(watch(3)) << "its callbacks and its surface are still its own";
    mPlayer = nullptr;
    EXPECT_EQ(other->state(), State::IDLE);
    service = nullptr;
    EXPECT_TRUE(await([&] { return other->setAudioEnabled(true).code == Status::LOST; }));
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

// The service ends itself with status 0 when it finds itself broken: for a client that is failure.
TEST_F(ServiceTest, TheInternalFaultIsALoss) {
    std::string error;
    orvclient::CallbackQueue queue(nullptr);
    std::atomic<bool> isGone{false};
    const auto session = orvclient::Session::start(mOptions, &error);
    ASSERT_NE(session, nullptr) << error;
    session->listen(new orvclient::ClientEvents(std::make_shared<orvclient::Callbacks>(), queue,
                                                session->player().binder()),
                    [&] { isGone = true; });
    EXPECT_EQ(session->player().stop(), android::DEAD_OBJECT);
    EXPECT_TRUE(await([&] { return isGone.load(); }, BOUND));
    EXPECT_EQ(session->reasonOfEnd(), "the player service ended by itself (status 0)");
}

}  // namespace
}  // namespace orvtest
