#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "common/IPlayerListener.h"
#include "common/IRecorderListener.h"

namespace orvtest {

// Takes down what a player and a recorder have to say, as "what:value" with blanks between.
class RecordingsLog : public IPlayerListener, public IRecorderListener {
public:
    void onTimeUpdate(int seconds) override { add("time", seconds); }
    void onEndOfContent() override { add("end", 0); }
    void onRecorderStarted(int result) override { add("started", result); }
    void onRecorderStopped(int result) override { add("stopped", result); }
    void onError(int code) override { add("error", code); }

    // What came since the last call.
    std::string take() {
        std::lock_guard<std::mutex> guard(mLock);
        return std::exchange(mText, "");
    }

private:
    void add(const char* what, int value) {
        std::lock_guard<std::mutex> guard(mLock);
        mText += (mText.empty() ? "" : " ") + (what + (":" + std::to_string(value)));
    }

    std::mutex mLock;
    std::string mText;
};

}  // namespace orvtest
