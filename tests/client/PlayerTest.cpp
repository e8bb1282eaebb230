// How commands end, and what the service's ways are turned into.

#include <future>
#include <thread>

#include "PlayerFixture.h"

namespace orvtest {
namespace {

using android::Parcel;
using orvclient::Player;
using orvclient::State;
using orvclient::Status;
using std::chrono::milliseconds;
using Strings = std::vector<std::string>;

class PlayerTest : public PlayerFixture {
protected:
    // The service answers a command with this callback alone.
    void answer(uint32_t command, uint32_t callback, int32_t number) {
        service().script(command, [this, callback, number](const Parcel&, Parcel*) {
            service().tellNumber(callback, number);
        });
    }
    static Strings withoutResults(Strings told) {
        std::erase_if(told, [](const std::string& line) { return line.find("ed 0") != line.npos; });
        return told;
    }
};

TEST_F(PlayerTest, ResultsAreThoseOfTheService) {
    create();
    EXPECT_TRUE(mPlayer->open({}).ok());
    EXPECT_EQ(mPlayer->state(), State::OPEN);
    EXPECT_TRUE(mPlayer->start().ok());
    EXPECT_EQ(mPlayer->state(), State::PLAYING);
    EXPECT_TRUE(mPlayer->pause().ok());
    EXPECT_TRUE(mPlayer->resume().ok());
    EXPECT_TRUE(mPlayer->stop().ok());
    EXPECT_TRUE(mPlayer->close().ok());
    EXPECT_EQ(mPlayer->state(), State::IDLE);
    answer(7, 1, 65'537);
    answer(2, 2, 17);
    answer(4, 17, 1);
    answer(5, 18, 1);
    EXPECT_EQ(mPlayer->open({}).code, 65'537);
    EXPECT_EQ(mPlayer->start().code, 17);
    service().setState(3);
    EXPECT_EQ(mPlayer->pause().code, 1);
    service().setState(4);
    EXPECT_EQ(mPlayer->resume().code, 1);
    EXPECT_EQ(mPlayer->streamTime90k(), 900'000);
}

// Idle, the service takes stop for a fault and ends.
TEST_F(PlayerTest, StopReachesTheServiceOnlyWhereItMay) {
    create();
    EXPECT_TRUE(mPlayer->stop().ok());
    EXPECT_EQ(service().count(3), 0U);
    for (const int state : {2, 3, 4}) {
        service().setState(state);
        EXPECT_TRUE(mPlayer->stop().ok());
    }
    EXPECT_EQ(service().count(3), 3U);
    for (const int noState : {0, 5, -1}) {
        service().setState(noState);
        mPlayer->stop();
    }
    EXPECT_EQ(service().count(3), 3U);
}

TEST_F(PlayerTest, NamesThatWouldBreakTheUriAreRefused) {
    create();
    const size_t before = service().requests().size();
    for (const std::string path : {"a;b.ts", "a#b.ts", "a?b.ts", "", "\xFF.ts"}) {
        const Status status = mPlayer->openRecording(path, {});
        EXPECT_EQ(status.code, Status::REFUSED) << path;
        EXPECT_FALSE(status.message.empty());
    }
    EXPECT_EQ(mPlayer->openRecording(std::string("a\0b", 3), {}).code, Status::REFUSED);
    EXPECT_EQ(mPlayer->openFile("").code, Status::REFUSED);
    EXPECT_EQ(mPlayer->startRecording({"a;b", ""}).code, Status::REFUSED);
    EXPECT_NE(mPlayer->startRecording({"", "#1"}).message.find("'#'"), std::string::npos);
    EXPECT_EQ(mPlayer->requestStills(0, {}).code, Status::REFUSED);
    EXPECT_EQ(service().requests().size(), before);
}

// Asked for what is so already, or cannot be, the service is not asked.
TEST_F(PlayerTest, PauseResumeAndSeekGoByTheState) {
    struct Row {
        int state;
        bool pauses, resumes, seeks;  // without a failure
        size_t asked;                 // the service, by the three
    };
    create();
    size_t before = 0;
    for (const Row& row : {Row{1, false, false, false, 0}, Row{2, false, false, false, 0},
                           Row{3, true, true, true, 2}, Row{4, true, true, true, 2}}) {
        service().setState(row.state);
        EXPECT_EQ(mPlayer->seek(milliseconds(12'500)).ok(), row.seeks) << row.state;
        EXPECT_EQ(mPlayer->pause().ok(), row.pauses) << row.state;
        service().setState(row.state);
        EXPECT_EQ(mPlayer->resume().ok(), row.resumes) << row.state;
        const size_t asked = service().count(4) + service().count(5) + service().count(6);
        EXPECT_EQ(asked - before, row.asked) << row.state;
        before = asked;
    }
    EXPECT_EQ(mPlayer->elapsed(), milliseconds(12'500));
    service().tellNumber(13, 14);
    toldAll();
    EXPECT_EQ(mPlayer->elapsed(), milliseconds(14'000));
}

// The call is answered before the recorder is: what became of it comes as an event.
TEST_F(PlayerTest, ARecordingHasBegunWhenItsEventSaysSo) {
    create();
    int number = 0;
    EXPECT_EQ(mPlayer->stopRecording(true).code, Status::REFUSED);
    EXPECT_TRUE(mPlayer->startRecording({"TV 1", ""}, &number).ok());
    EXPECT_EQ(number, 7);
    EXPECT_TRUE(mPlayer->isRecording());
    EXPECT_TRUE(mPlayer->stopRecording(true).ok());
    EXPECT_FALSE(mPlayer->isRecording());
    const auto fails = [this](int32_t answer, int32_t event) {
        service().script(13, [this, answer, event](const Parcel&, Parcel* reply) {
            if (event != 0) {
                service().tellNumber(7, event);
            }
            reply->writeInt32(answer);
        });
        return mPlayer->startRecording({}).code;
    };
    EXPECT_EQ(fails(393'219, 0), 393'219);
    EXPECT_EQ(fails(0, 0x60003), Status::REFUSED);
    EXPECT_FALSE(mPlayer->isRecording());
    EXPECT_EQ(toldAll(), (Strings{"recording 7", "recorded", "error 393219", "not recorded 0"}));
}

// The service throws away what is recorded when playback ends.
TEST_F(PlayerTest, WhateverEndsPlaybackKeepsTheRecording) {
    create();
    const std::function<void()> ends[] = {
        [this] { mPlayer->open({}); },
        [this] { mPlayer->stop(); },
        [this] { mPlayer->close(); },
        [this] { mPlayer = nullptr; },
    };
    const auto seen = mService->player;
    for (size_t i = 0; i < std::size(ends); ++i) {
        ASSERT_TRUE(mPlayer->startRecording({}).ok());
        ends[i]();
        ASSERT_EQ(seen->count(14), i + 1);
    }
    for (const auto& request : seen->requests()) {
        if (request.code == 14) {
            EXPECT_EQ(request.bytes, Bytes::request("OrvPlayer").i32(1).get());
        }
    }
}

// The service tells a refused seek and the end of the content by the same callback.
TEST_F(PlayerTest, ARefusedSeekIsNoEnd) {
    struct Row {
        const char* name;
        std::vector<uint32_t> told;  // 14: end of content, 19: done
        int code;
        Strings events;
    };
    const Row rows[] = {
        {"done", {19}, 0, {}},
        {"refused", {14}, Status::REFUSED, {}},
        {"refused at the end", {14, 14}, Status::REFUSED, {"end"}},
        {"refused after the end", {14, 14}, Status::REFUSED, {}},
        {"done at the end", {19, 14}, 0, {"end"}},
    };
    create();
    service().setState(3);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        service().script(6, [&](const Parcel&, Parcel*) {
            for (const uint32_t callback : row.told) {
                service().tellNumber(callback, 1000);
            }
        });
        EXPECT_EQ(mPlayer->seek(milliseconds(1000)).code, row.code);
        EXPECT_EQ(toldAll(), row.events);
    }
    // The end right before a seek that is done: whatever the seek answers, the end is told, once.
    service().script(6, [&](const Parcel&, Parcel*) {
        service().tellNumber(14, 0);
        service().tellNumber(19, 1000);
    });
    mPlayer->seek(milliseconds(1000));
    EXPECT_EQ(toldAll(), Strings{"end"});
}

// A service that hangs, and one that forgets to answer.
TEST_F(PlayerTest, CommandsTakeNoLongerThanTheyMay) {
    std::promise<void> wake;
    const std::shared_future<void> woken = wake.get_future().share();
    mOptions.commandTimeout = std::chrono::seconds(1);
    create();
    const auto hang = [woken](const Parcel&, Parcel*) { woken.wait(); };
    service().script(7, [&](const Parcel& request, Parcel* reply) {
        hang(request, reply);
        service().tellNumber(1, 33);  // nobody waits for this any more
    });
    service().script(8, hang);
    EXPECT_EQ(mPlayer->open({}).code, Status::TIMEOUT);
    EXPECT_EQ(mPlayer->close().code, Status::TIMEOUT);
    EXPECT_EQ(mPlayer->state(), State::IDLE) << "other calls go on";
    service().script(7, [&](const Parcel&, Parcel*) {
        wake.set_value();
        EXPECT_TRUE(await([&] { return told() == Strings{"opened 33"}; }));
        service().tellNumber(1, 44);
    });
    mPlayer->setAudioPid(1);
    EXPECT_EQ(mPlayer->open({}).code, 44) << "not the result of the first one";
    service().script(2, [](const Parcel&, Parcel*) {});
    EXPECT_EQ(mPlayer->start().message, "the player service does not answer");
}

TEST_F(PlayerTest, TheEndOfTheServiceIsToldOnce) {
    create();
    mPlayer->open({});
    toldAll();
    std::promise<void> asked;
    std::thread leaving([&] {
        asked.get_future().wait();
        mService->service->disconnect();
    });
    service().script(2, [&](const Parcel&, Parcel*) {
        service().tellNumber(10, 50);
        asked.set_value();
    });
    EXPECT_EQ(mPlayer->start().code, Status::LOST);
    leaving.join();
    EXPECT_TRUE(await([this] { return !told().empty() && told().back().starts_with("lost: "); }));
    for (int i = 0; i < 2; ++i) {
        const Status status = mPlayer->start();
        EXPECT_EQ(status.code, Status::LOST);
        EXPECT_EQ("lost: " + status.message, told().back());
    }
    EXPECT_EQ(mPlayer->state(), State::IDLE);
    EXPECT_EQ(mPlayer->frameRate(), -1);
    mPlayer = nullptr;
    const auto lines = told();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.starts_with("lost"); }),
              1);
}

TEST_F(PlayerTest, ANewServiceHasTheOldSettings) {
    mOptions.restart = true;
    orvclient::PictureQueue queue;
    create();
    EXPECT_TRUE(mPlayer->setSurface(&queue).ok());
    EXPECT_TRUE(mPlayer->setAudioEnabled(false).ok());
    EXPECT_TRUE(mPlayer->setAvOffset(milliseconds::min()).ok());
    mService->service->disconnect();
    EXPECT_TRUE(await([this] { return !told().empty(); }));
    EXPECT_TRUE(mPlayer->open({}).ok());
    const auto requests = service().requests();
    std::vector<uint32_t> codes;
    for (const auto& request : requests) {
        codes.push_back(request.code);
    }
    EXPECT_EQ(codes, (std::vector<uint32_t>{1, 9, 20, 17, 7}));
    EXPECT_NE(requests[1].binder, nullptr);
    constexpr int WEEK_MS = 7 * 24 * 3600 * 1000;  // the longest offset there is
    EXPECT_EQ(requests[3].bytes, Bytes::request("OrvPlayer").i32(-WEEK_MS + 200).get());
    EXPECT_EQ(toldAll().back(), "opened 0");
}

// A player that looks on takes no events from the one that plays.
TEST_F(PlayerTest, LookingOnRegistersNothing) {
    mOptions.registerForEvents = false;
    create();
    service().setState(3);
    EXPECT_EQ(mPlayer->state(), State::PLAYING);
    EXPECT_EQ(mPlayer->open({}).code, Status::REFUSED);
    EXPECT_EQ(mPlayer->pause().code, Status::REFUSED);
    EXPECT_EQ(mPlayer->requestStills(1, {}).code, Status::REFUSED);
    EXPECT_TRUE(mPlayer->setAudioEnabled(false).ok());
    const auto seen = mService->player;
    mPlayer = nullptr;
    EXPECT_EQ(seen->count(1) + seen->count(4) + seen->count(7) + seen->count(8), 0U);
}

TEST_F(PlayerTest, LeavingClosesWhatIsOpen) {
    create();
    mPlayer->open({});
    const auto seen = mService->player;
    mPlayer = nullptr;
    EXPECT_EQ(seen->count(8), 1U);
}

// Callbacks may command; an executor may keep them for the thread that commands.
TEST_F(PlayerTest, CommandsAndCallbacksDoNotWaitForEachOther) {
    std::vector<std::function<void()>> kept;
    std::mutex lock;
    mOptions.executor = [&](std::function<void()> callback) {
        std::lock_guard<std::mutex> guard(lock);
        kept.push_back(std::move(callback));
    };
    create();
    EXPECT_TRUE(mPlayer->open({}).ok());
    EXPECT_TRUE(mPlayer->start().ok());
    EXPECT_TRUE(told().empty());
    for (const std::string line : {"opened 0", "started 0"}) {
        EXPECT_TRUE(await([&] {
            std::lock_guard<std::mutex> guard(lock);
            return kept.size() == 1;
        })) << "one at a time";
        std::function<void()> callback;
        {
            std::lock_guard<std::mutex> guard(lock);
            callback = std::move(kept.front());
            kept.clear();
        }
        callback();
        callback();  // the second time it does nothing
        EXPECT_EQ(told().back(), line);
    }
    service().tellNumber(10, 1);
    EXPECT_TRUE(await([&] {
        std::lock_guard<std::mutex> guard(lock);
        return kept.size() == 1;
    }));
    mPlayer = nullptr;
    kept.front()();  // later than the player
    EXPECT_EQ(told().size(), 2U);
}

TEST_F(PlayerTest, CallbacksMayCommand) {
    std::promise<Status> started;
    std::promise<void> ending;
    Status late;
    orvclient::Callbacks callbacks;
    callbacks.onOpened = [&](int) { started.set_value(mPlayer->start()); };
    callbacks.onTime = [&, player = &mPlayer](int) {
        Player* const used = player->get();
        ending.set_value();
        EXPECT_TRUE(await([&] {
            late = used->setAudioPid(1);
            return !late.ok();
        }));
    };
    ScriptedService scripted;
    mPlayer = std::make_unique<Player>(
        std::make_unique<Player::Impl>(mOptions, callbacks, [&](std::string* error) {
            return orvclient::Session::over(scripted.application, nullptr, error);
        }));
    EXPECT_TRUE(mPlayer->open({}).ok());
    EXPECT_TRUE(started.get_future().get().ok());
    scripted.player->tellNumber(13, 1);
    ending.get_future().wait();
    mPlayer = nullptr;  // while a callback commands
    EXPECT_EQ(late.code, Status::LOST);
}

TEST_F(PlayerTest, CaptionsComeAsMuchLaterAsWanted) {
    create();
    const auto caption = [this](char32_t text) {
        service().tell(3, [text](Parcel& data) {
            data.writeInt32(4), data.writeInt32(4), data.write(&text, 4);
        });
    };
    mPlayer->setCaptionDelay(milliseconds(300));
    const auto begin = std::chrono::steady_clock::now();
    caption(U'a');
    EXPECT_EQ(toldAll(), Strings{}) << "nothing else waits for it";
    mPlayer->setCaptionDelay(milliseconds(-5));
    caption(U'b');
    EXPECT_TRUE(await([this] {
        return told() == Strings{"caption a 900000", "caption b 900000"};
    }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(300));
    toldAll();
    mPlayer->setCaptionDelay(std::chrono::hours(1));
    caption(U'c');
    toldAll();
    mPlayer->stop();
    mPlayer->setCaptionDelay(milliseconds(0));
    caption(U'd');
    EXPECT_EQ(toldAll(), Strings{"caption d 900000"}) << "stopped: what was to come is gone";
}

}  // namespace
}  // namespace orvtest
