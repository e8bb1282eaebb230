#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "service/ICOrvPlayerClient.h"

namespace orvtest {

// The application's callback object as the wire sees it: takes down the bytes of every call.
//
// Calls arrive one-way, in their order; fence() passes through the same queue, so that what was
// sent before it has arrived when it returns.
class ClientBinder : public android::BBinder {
public:
    struct Call {
        uint32_t code = 0;
        std::vector<uint8_t> bytes;  // of the whole parcel
        size_t objects = 0;
        uint32_t flags = 0;
    };

    void fence() { fence(*this); }
    // The same on the way that `self`, a binder of this object, takes.
    void fence(android::IBinder& self) {
        int number = 0;
        {
            const std::lock_guard<std::mutex> guard(mLock);
            number = ++mFencesSent;
        }
        android::Parcel data;
        EXPECT_EQ(self.transact(FENCE, data, nullptr, FLAG_ONEWAY), android::OK);
        std::unique_lock<std::mutex> lock(mLock);
        EXPECT_TRUE(
            mArrived.wait_for(lock, std::chrono::seconds(10), [&] { return mFences >= number; }));
    }

    size_t count() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mCalls.size();
    }
    std::vector<Call> takeCalls() {
        const std::lock_guard<std::mutex> guard(mLock);
        return std::exchange(mCalls, {});
    }

    // The calls since the last time, after a fence: "startComplete(0) onError(7)".
    std::string take() {
        fence();
        std::string all;
        for (const Call& call : takeCalls()) {
            all += (all.empty() ? "" : " ") + describe(call);
        }
        return all;
    }

    // Looks at the descriptor of a still while it is there. Before the first call.
    std::function<void(int fd)> onDescriptor;

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override {
        if (code >= FIRST_CALL_TRANSACTION && code < FENCE) {
            take(code, data, flags);
        } else if (code == FENCE) {
            const std::lock_guard<std::mutex> guard(mLock);
            ++mFences;
            mArrived.notify_all();
        } else {
            return BBinder::onTransact(code, data, reply, flags);
        }
        return android::OK;
    }

private:
    static constexpr uint32_t FENCE = 1000;
    static constexpr size_t TOKEN_BYTES = 8 + 4 + 32;  // with "OrvPlayerClient"
    static constexpr size_t OBJECT_BYTES = 24;         // behind the numbers

    void take(uint32_t code, const android::Parcel& data, uint32_t flags) {
        if (onDescriptor != nullptr && data.objectsCount() > 0) {
            data.setDataPosition(TOKEN_BYTES + 12);
            onDescriptor(data.readFileDescriptor());
        }
        const std::lock_guard<std::mutex> guard(mLock);
        mCalls.push_back(
            {code, {data.data(), data.data() + data.dataSize()}, data.objectsCount(), flags});
    }

    static std::string describe(const Call& call) {
        static const char* const NAMES[] = {"?",
                                            "openUriComplete",
                                            "startComplete",
                                            "closedCaptionText",
                                            "onCaptureFrame",
                                            "onSignalStatusChanged",
                                            "onStopComplete",
                                            "onError",
                                            "onBufferingBegin",
                                            "onBufferingEnd",
                                            "onBuffering",
                                            "onAudioSessionId",
                                            "onStartVideoTask",
                                            "onTimeUpdate",
                                            "onEndOfContent",
                                            "onRecorderStarted",
                                            "onRecorderStopped",
                                            "onPaused",
                                            "onResumed",
                                            "onSeeked"};
        std::string text = call.code < std::size(NAMES) ? NAMES[call.code] : "?";
        text += '(';
        const bool isCaption = call.code == OrvPlayer::ICOrvPlayerClient::CLOSED_CAPTION_TEXT;
        const size_t end = call.bytes.size() - OBJECT_BYTES * call.objects;
        for (size_t at = TOKEN_BYTES; at + 4 <= end; at += 4) {
            int32_t number = 0;
            memcpy(&number, &call.bytes[at], 4);
            if (isCaption && at >= TOKEN_BYTES + 8) {
                text += "," + std::string(&call.bytes[at], &call.bytes[at] + 4);
            } else {
                text += (at > TOKEN_BYTES ? "," : "") + std::to_string(number);
            }
        }
        return text + ')';
    }

    std::mutex mLock;
    std::condition_variable mArrived;
    std::vector<Call> mCalls;
    int mFencesSent = 0;
    int mFences = 0;
};

}  // namespace orvtest
