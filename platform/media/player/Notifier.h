#pragma once

#include <media/mediaplayer.h>
#include <utils/StrongPointer.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace orvhost {

// Tells a listener what happened, in order, on a thread of its own: however long the listener
// takes, nobody here waits for it. The listener may call the player, and drop it.
class Notifier {
public:
    Notifier();
    ~Notifier();  // waits for a notification in progress, unless called by it
    Notifier(const Notifier&) = delete;  // its thread shares its state
    Notifier& operator=(const Notifier&) = delete;

    void setListener(const android::sp<android::MediaPlayerListener>& listener);

    // One that replaces what was told under the same message and is not delivered yet, with
    // `replaces`, costs no room: what comes often needs it.
    void post(int msg, int ext1, int ext2, bool replaces = false);

    // Forgets what is not delivered yet.
    void clear();

private:
    struct Message {
        int msg;
        int ext1;
        int ext2;
    };
    struct State {
        std::mutex lock;
        std::condition_variable changed;
        android::sp<android::MediaPlayerListener> listener;
        std::deque<Message> messages;
        bool exit = false;
    };

    static void run(State& state);

    const std::shared_ptr<State> mState;
    std::thread mThread;
};

}  // namespace orvhost
