#include "recorder/Recorder.h"

#include <gtest/gtest.h>
#include <trace/OneSegPGL.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/FakeRecPlayer.h"
#include "support/RecordingsLog.h"
#include "support/TraceCapture.h"

namespace {

using namespace OrvPlayer;
using orvtest::FakeRecPlayer;
using Lines = std::vector<std::string>;

constexpr int NUMBER = 4711;

// A record without two equal bytes but for its names and the number, which are given by offset.
std::vector<uint8_t> pattern() {
    std::vector<uint8_t> bytes(sizeof(recDetails));
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(0xFF - i);
    }
    std::fill(bytes.begin() + 8, bytes.begin() + 24, 0);
    return bytes;
}

void put32(std::vector<uint8_t>* bytes, size_t offset, int32_t value) {
    memcpy(bytes->data() + offset, &value, sizeof value);
}

recDetails recordOf(std::vector<uint8_t> bytes) {
    put32(&bytes, 80, NUMBER);
    recDetails details;
    memcpy(&details, bytes.data(), sizeof details);
    return details;
}

class RecorderTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();
        mService.reset();
        mService.setCurrent(recordOf(pattern()));
        mRecorder->setListener(&mTold);
    }
    void TearDown() override { mRecorder = nullptr; }

    void start(const char* uri = "MTV://a/b") {
        const std::unique_ptr<Uri> target(Uri::parse(uri));
        mTrace.take();
        mRecorder->start(target.get(), 273, 274, 305, 2);
    }
    // How often this line was traced since the last start() or traced().
    long traced(const std::string& line) {
        const Lines lines = mTrace.take();
        return std::count(lines.begin(), lines.end(), line);
    }

    FakeRecPlayer& mService = FakeRecPlayer::instance();
    orvtest::TraceCapture mTrace;
    orvtest::RecordingsLog mTold;
    android::sp<Recorder> mRecorder = new Recorder;
};

// Byte for byte: what the service keeps for itself comes back as it was.
TEST_F(RecorderTest, LabelsTheRecording) {
    const struct {
        const char* uri;
        int storageType;
        std::string station;
        std::string programme;
    } cases[] = {
        {"MTV://a/b", 0, "", ""},
        {"MTV://a/b?channelName=X;programName=;", 0, "X", ""},
        {"MTV://a/b?storageType=12;programName=Jornal = hoje;channelName=TV Ação;", 12, "TV Ação",
         "Jornal = hoje"},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.uri);
        start(wanted.uri);
        EXPECT_EQ(mService.take(), "create(0," + std::to_string(wanted.storageType) +
                                       ",273,274,2) more start get set");
        EXPECT_EQ(mTold.take(), "started:4711");
        std::vector<uint8_t> expected = pattern();
        put32(&expected, 24, static_cast<int32_t>(wanted.station.size()));
        put32(&expected, 28, static_cast<int32_t>(wanted.programme.size()));
        put32(&expected, 44, 0);
        put32(&expected, 48, wanted.storageType);
        put32(&expected, 52, 1);
        put32(&expected, 56, 0);
        put32(&expected, 68, 273);
        put32(&expected, 72, 274);
        put32(&expected, 76, 2);
        put32(&expected, 80, NUMBER);
        FakeRecPlayer::Labels labels = mService.labels().value();
        const auto withEnd = [](const std::string& name) {
            return name.empty() ? name : name + '\0';
        };
        EXPECT_EQ(labels.stationName, withEnd(wanted.station));
        EXPECT_EQ(labels.prgName, withEnd(wanted.programme));
        EXPECT_EQ(labels.details.stationName == nullptr, wanted.station.empty());
        EXPECT_EQ(labels.details.prgName == nullptr, wanted.programme.empty());
        labels.details.stationName = labels.details.prgName = nullptr;
        std::vector<uint8_t> set(sizeof(recDetails));
        memcpy(set.data(), &labels.details, set.size());
        EXPECT_EQ(set, expected);
    }
}

TEST_F(RecorderTest, TracesWhatItFindsAndSets) {
    char station[] = "TV";
    char programme[] = "News at 9";
    recDetails found = {};
    found.stationName = station;
    found.prgName = programme;
    found.stationNameLength = 2;
    found.prgNameLength = 9;
    found.creationTime = 0xFFFFFFF0;
    found.durationOfRec = 33;
    found.sizeOfRec = 34;
    found.recMode = found.recLocation = 35;
    found.playbackDuration = 36;
    found.recStartTime = 37;
    found.recEndTime = 38;
    found.fileNumName = NUMBER;
    mService.setCurrent(found);
    start("MTV://a/b?storageType=1;channelName=X;");
    EXPECT_EQ(mTrace.takeWithLevels(), (Lines{
                                           "I start RecPlayerBinder_CreateTSRecorder succeeded!",
                                           "I start RecPlayerBinder_AnyMoreRecordings succeeded!",
                                           "I start RecPlayerBinder_StartTSRecorder succeeded!",
                                           "V start recDetails->fileNumName: 4711",
                                           "V start recDetails->stationName: TV",
                                           "V start recDetails->prgName: News at 9",
                                           "V start recDetails->stationNameLength: 2",
                                           "V start recDetails->prgNameLength: 9",
                                           "V start recDetails->creationTime: 4294967280",
                                           "V start recDetails->durationOfRec: 33",
                                           "V start recDetails->sizeOfRec: 34",
                                           "V start recDetails->recMode: 0",
                                           "V start recDetails->recLocation: 1",
                                           "V start recDetails->bCanPlay: 1",
                                           "V start recDetails->playbackDuration: 0",
                                           "V start recDetails->recStartTime: 37",
                                           "V start recDetails->recEndTime: 38",
                                           "V start recDetails->iV_PID: 273",
                                           "V start recDetails->iA_PID: 274",
                                           "V start recDetails->isLATM: 2",
                                           "I start RecPlayerBinder_SetCurrTSRecDetails succeeded!",
                                       }));
}

TEST_F(RecorderTest, StartsAsFarAsTheServiceDoes) {
    const struct {
        const char* fails;
        const char* calls;
        const char* told;
    } cases[] = {
        {"CreateTSRecorder", "more start get set", "started:4711"},
        {"AnyMoreRecordings", "more start get set", "started:4711"},
        {"StartTSRecorder", "more start delete", "error:393219"},
        {"SetCurrTSRecDetails", "more start get set", "started:4711"},
    };
    for (const auto& wanted : cases) {
        for (const unsigned char failure : {0, 2}) {
            SCOPED_TRACE(wanted.fails);
            mService.answer(wanted.fails, failure);
            start();
            EXPECT_EQ(mService.take(), std::string("create(0,0,273,274,2) ") + wanted.calls);
            EXPECT_EQ(mTold.take(), wanted.told);
            const Lines lines = mTrace.takeWithLevels();
            EXPECT_EQ(
                std::count(lines.begin(), lines.end(),
                           std::string("E start RecPlayerBinder_") + wanted.fails + " failed"),
                1);
            // Deliberate: not a word of the delete.
            EXPECT_EQ(
                std::count_if(lines.begin(), lines.end(),
                              [](const auto& line) { return line.find("Delete") != line.npos; }),
                0);
        }
        mService.answer(wanted.fails, 1);
    }
    mService.reset();  // and without details
    start();
    EXPECT_EQ(mService.take(), "create(0,0,273,274,2) more start get");
    EXPECT_EQ(mTold.take(), "started:0");
    EXPECT_EQ(traced("start: recDetails == null!"), 1);
}

TEST_F(RecorderTest, GoesOnWithoutAListener) {
    mRecorder->setListener(nullptr);
    mService.answer("StartTSRecorder", 0);
    start();
    EXPECT_EQ(mService.take(), "create(0,0,273,274,2) more start delete get set");
    EXPECT_EQ(traced("start: no IRecorderListener set!"), 1);
    mRecorder->stop(1);
    mService.recorderEvent(2);
    const Lines lines = mTrace.take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "stop: no IRecorderListener set!"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "recorderCallback: no IRecorderListener set!"),
              1);
}

TEST_F(RecorderTest, StopsAsTheServiceDoes) {
    const auto outcome = [](const char* function, unsigned char answer) {
        return (answer == 1 ? "I stop RecPlayerBinder_" : "E stop RecPlayerBinder_") +
               std::string(function) + (answer == 1 ? " succeeded!" : " failed");
    };
    const struct {
        int save;
        const char* function;
        unsigned char ended;
        unsigned char deleted;
        const char* calls;
        const char* told;
    } cases[] = {
        {1, "StopTSRecorder", 1, 1, "stop delete", "stopped:1"},
        {7, "StopTSRecorder", 1, 0, "stop delete", "stopped:0"},
        {1, "StopTSRecorder", 2, 3, "stop delete", "stopped:3"},
        {1, "StopTSRecorder", 0, 1, "stop", "stopped:0"},
        {0, "CancelTSRecorder", 1, 1, "cancel delete", "stopped:1"},
        {-1, "CancelTSRecorder", 0, 1, "cancel", "stopped:0"},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.calls);
        mService.answer(wanted.function, wanted.ended);
        mService.answer("DeleteTSRecorder", wanted.deleted);
        mTrace.take();
        mRecorder->stop(wanted.save);
        EXPECT_EQ(mService.take(), wanted.calls);
        EXPECT_EQ(mTold.take(), wanted.told);
        Lines lines{outcome(wanted.function, wanted.ended)};
        if (wanted.ended != 0) {
            lines.push_back(outcome("DeleteTSRecorder", wanted.deleted));
        }
        EXPECT_EQ(mTrace.takeWithLevels(), lines);
    }
}

TEST_F(RecorderTest, TellsEventsAsErrors) {
    start();
    mTold.take();
    const std::map<int, const char*> cases = {{0, "error:393219"},
                                              {1, "error:393218"},
                                              {2, "error:393217"},
                                              {3, "error:393220"},
                                              {4, ""},
                                              {7, ""},
                                              {-1, ""}};
    for (const auto& [event, told] : cases) {
        mTrace.take();
        mService.recorderEvent(event);
        EXPECT_EQ(mTold.take(), told) << event;
        EXPECT_EQ(traced("recorderCallback event received: " + std::to_string(event)), 1);
    }
    Recorder::recorderCallback(0, nullptr);
    EXPECT_EQ(traced("recorderCallback: userData is null!"), 1);
}

// Once the listener is taken away, or the recorder, a late event finds nobody.
TEST_F(RecorderTest, OutlivedByItsService) {
    std::atomic<bool> done{false};
    std::thread service([&] {
        while (!done) {
            mService.recorderEvent(1);
        }
    });
    for (int i = 0; i < 50; ++i) {
        {
            orvtest::RecordingsLog listener;
            mRecorder->setListener(&listener);
            start();
            mRecorder->setListener(nullptr);
        }
        mRecorder = new Recorder;
    }
    done = true;
    service.join();
    mRecorder = nullptr;
    mTrace.take();
    mService.recorderEvent(1);
    EXPECT_EQ(traced("recorderCallback: no IRecorderListener set!"), 1);
}

}  // namespace
