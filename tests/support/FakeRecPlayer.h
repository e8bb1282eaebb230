#pragma once

#include <dtv/RecPlayerBinder.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// A recorder service that takes down what it is asked for, answers what the test wants, and sends
// events when the test says so; link FakeRecPlayer.cpp instead of the real one. One for the whole
// program: reset() it in every test's set-up.

namespace orvtest {

class FakeRecPlayer {
public:
    static FakeRecPlayer& instance();

    // Every function succeeds, there are no recordings, nobody is told events.
    void reset();

    // What a function of this name answers, without "RecPlayerBinder_"; 1 otherwise.
    void answer(const std::string& function, unsigned char result);
    // The recording under way, and the duration of every recording that is played.
    void setCurrent(const recDetails& details);
    void setClip(uint32_t durationMs);

    // The calls since the last time, with blanks between.
    std::string take();
    // The details that were set last; the names are those of then.
    struct Labels {
        recDetails details;
        std::string stationName;
        std::string prgName;
    };
    std::optional<Labels> labels();
    std::vector<unsigned long> takeAudioTimes();

    // Calls whoever registered last, or nobody.
    void recorderEvent(int event);
    void playerEvent(int event);
    const void* playerUserData();

    // What the functions do: takes the call down and gives the answer.
    unsigned char called(const std::string& function, const std::string& call);

    struct Registration {
        RecPlayerBinder_EventCallback callback = nullptr;
        void* userData = nullptr;
    };
    struct State {
        std::map<std::string, unsigned char> answers;
        std::optional<recDetails> current;
        std::optional<uint32_t> clipMs;
        std::string calls;
        std::optional<Labels> labels;
        std::vector<unsigned long> audioTimes;
        Registration recorder;
        Registration player;
    };
    // With the state locked.
    template <typename Access>
    auto with(Access access) {
        std::lock_guard<std::mutex> guard(mLock);
        return access(mState);
    }

private:
    std::mutex mLock;
    State mState;
};

}  // namespace orvtest
