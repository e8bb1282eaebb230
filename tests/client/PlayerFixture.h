#pragma once

#include <gtest/gtest.h>
#include <orvclient/Player.h>

#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedPlayer.h"
#include "client/PlayerImpl.h"
#include "support/Await.h"

namespace orvtest {

// Whether the memory at an address may be written, by the kernel's list.
inline std::string protectionAt(const void* address) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::istringstream fields(line);
        uintptr_t begin = 0;
        uintptr_t end = 0;
        char dash = 0;
        std::string protection;
        fields >> std::hex >> begin >> dash >> end >> protection;
        const auto at = reinterpret_cast<uintptr_t>(address);
        if (at >= begin && at < end) {
            return protection;
        }
    }
    return "none";
}

// A player on a scripted service, and everything it tells as one line each.
class PlayerFixture : public testing::Test {
protected:
    void SetUp() override { mOptions.commandTimeout = std::chrono::seconds(20); }
    void TearDown() override { mPlayer = nullptr; }

    // Connects; another service takes the place of the last one.
    void create() {
        mPlayer = std::make_unique<orvclient::Player>(std::make_unique<orvclient::Player::Impl>(
            mOptions, callbacks(), [this](std::string* error) {
                mService = std::make_unique<ScriptedService>();
                return orvclient::Session::over(mService->application, nullptr, error);
            }));
        EXPECT_EQ(mPlayer->setAudioPid(1).message, "");
    }
    ScriptedPlayer& service() { return *mService->player; }

    orvclient::Callbacks callbacks() {
        orvclient::Callbacks callbacks;
        callbacks.onOpened = [this](int result) { note("opened " + std::to_string(result)); };
        callbacks.onStarted = [this](int result) { note("started " + std::to_string(result)); };
        callbacks.onBufferingBegin = [this] { note("buffering"); };
        callbacks.onBuffering = [this](int percent) { note(std::to_string(percent) + " %"); };
        callbacks.onBufferingEnd = [this] { note("buffered"); };
        callbacks.onStartVideo = [this](int width, int height) {
            note("video " + std::to_string(width) + "x" + std::to_string(height));
        };
        callbacks.onSignal = [this](unsigned previous, unsigned current) {
            note("signal " + std::to_string(previous) + " " + std::to_string(current));
        };
        callbacks.onCaption = [this](const std::string& text, int64_t pcr90k) {
            note("caption " + text + " " + std::to_string(pcr90k));
        };
        callbacks.onStill = [this](const orvclient::StillView& still) {
            const size_t bytes = size_t{still.width} * still.height * still.bytesPerPixel;
            mStillPixels = still.pixels;
            mStillProtection = protectionAt(still.pixels);
            note("still " + std::to_string(bytes) + " " + std::to_string(still.pixels[bytes - 1]));
        };
        callbacks.onAudioSession = [this](int id) { note("session " + std::to_string(id)); };
        callbacks.onTime = [this](int seconds) { note("time " + std::to_string(seconds)); };
        callbacks.onEnd = [this] { note("end"); };
        callbacks.onRecordingStarted = [this](int number) {
            note("recording " + std::to_string(number));
        };
        callbacks.onRecordingStopped = [this](bool cleanly) {
            note(cleanly ? "recorded" : "recorded badly");
        };
        callbacks.onRecordingFailed = [this](orvclient::RecordingFailure failure) {
            note("not recorded " + std::to_string(static_cast<int>(failure)));
        };
        callbacks.onError = [this](int code) { note("error " + std::to_string(code)); };
        callbacks.onLost = [this](const std::string& reason) { note("lost: " + reason); };
        return callbacks;
    }

    void note(std::string line) {
        std::lock_guard<std::mutex> guard(mLock);
        mTold.push_back(std::move(line));
    }
    std::vector<std::string> told() {
        std::lock_guard<std::mutex> guard(mLock);
        return mTold;
    }
    // Everything up to that many lines, and nothing behind a line that is told last of all.
    std::vector<std::string> toldAll() {
        service().tellNumber(11, 4711);
        EXPECT_TRUE(await([this] {
            const auto lines = told();
            return !lines.empty() && lines.back() == "session 4711";
        }));
        std::lock_guard<std::mutex> guard(mLock);
        auto lines = std::exchange(mTold, {});
        lines.pop_back();
        return lines;
    }

    orvclient::Player::Options mOptions;
    std::unique_ptr<ScriptedService> mService;
    std::unique_ptr<orvclient::Player> mPlayer;
    const uint8_t* mStillPixels = nullptr;
    std::string mStillProtection;

private:
    std::mutex mLock;
    std::vector<std::string> mTold;
};

}  // namespace orvtest
