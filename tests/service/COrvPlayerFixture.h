#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ClientBinder.h"
#include "ScriptedController.h"
#include "support/FakeAudio.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace orvtest {

// A service object between a client that takes down what it is told and a scripted controller.
class COrvPlayerTest : public testing::Test {
protected:
    using State = OrvPlayer::COrvPlayer::State;

    static constexpr char LIVE[] = "MTV://tuner/live?videoPid=273;";
    static constexpr int URI = OrvPlayer::ICOrvPlayer::OPEN_URI_SOURCE;

    void SetUp() override {
        OneSegPGL_InitializeDebug();
        FakeAudio::instance().reset();
        renew();
    }

    void renew() {
        mPlayer = new ScriptedPlayer;
        mClient = new ClientBinder;
        registerClient();
    }
    void registerClient() {
        mPlayer->registerClient(OrvPlayer::ICOrvPlayerClient::asInterface(mClient));
    }

    // As if by the commands that lead there.
    void reach(int state) {
        if (state >= State::ORVPLAYER_STATE_OPEN) {
            mPlayer->openUri(LIVE, URI);
        }
        if (state >= State::ORVPLAYER_STATE_PLAY) {
            mPlayer->start();
        }
        if (state == State::ORVPLAYER_STATE_PAUSE) {
            mPlayer->pause();
        }
        ASSERT_EQ(mPlayer->getState(), state);
        forget();
    }
    void forget() {
        mClient->take();
        mPlayer->script.take();
        mTrace.take();
    }

    bool isTraced(const std::string& wanted) {
        const std::vector<std::string> lines = mTrace.take();
        return std::find(lines.begin(), lines.end(), wanted) != lines.end();
    }

    TraceCapture mTrace;
    android::sp<ScriptedPlayer> mPlayer;
    android::sp<ClientBinder> mClient;
};

}  // namespace orvtest
