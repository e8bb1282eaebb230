#pragma once

#include <dtv/RecPlayerBinder.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace orvhost {

// Tells one listener of events, one at a time and in order, on a thread of its own ("RecEvents").
//
// A listener that silence() or listen() ended is not called any more once these have returned: they
// wait for a call that runs. Not when they come from that call, and not for ever: a call that
// itself waits for who is waiting here goes on after MAX_WAIT_MS.
class PlaybackEvents {
public:
    static constexpr int MAX_WAIT_MS = 400;

    PlaybackEvents() = default;
    ~PlaybackEvents();
    PlaybackEvents(const PlaybackEvents&) = delete;  // the thread knows us by address
    PlaybackEvents& operator=(const PlaybackEvents&) = delete;

    // From here on events go there; null: nowhere.
    void listen(RecPlayerBinder_EventCallback callback, void* userData);
    void silence() { listen(nullptr, nullptr); }

    // Never waits. Without a listener the event is nobody's.
    void post(int event);

private:
    void run();

    std::mutex mMutex;
    std::condition_variable mPosted;
    std::condition_variable mDone;
    RecPlayerBinder_EventCallback mCallback = nullptr;
    void* mUserData = nullptr;
    std::deque<int> mEvents;
    bool mCalling = false;
    bool mEnding = false;
    std::thread mThread;  // from the first listener on
};

}  // namespace orvhost
