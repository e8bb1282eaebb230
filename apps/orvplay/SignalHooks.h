#pragma once

#include <orvclient/Player.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "Messages.h"

namespace orvplay {

// Commands of the user that are run when the signal is lost, and when it is back: by /bin/sh -c,
// with standard input from /dev/null, output to standard error, no other descriptor, in a process
// group of their own, and beside the player's environment
//     ORV_EVENT       signal-lost or signal-back
//     ORV_CHANNEL     what plays, by its name
//     ORV_SERVICE     its number
//     ORV_SOURCE      what it comes from
//     ORV_PLAYER_PID  the player's process number
// Nothing waits for them. Each has one process at most: what happens meanwhile runs nothing. The
// destructor ends those that still run.
//
// Signals come on any thread, the rest is called on one.
class SignalHooks {
public:
    struct Commands {
        std::string onLost;  // empty: nothing is run
        std::string onBack;
    };
    struct About {
        std::string channel;
        std::string service;
        std::string source;
    };

    // The messages outlive it.
    SignalHooks(Commands commands, Messages& messages);
    ~SignalHooks();
    SignalHooks(const SignalHooks&) = delete;  // owns processes
    SignalHooks& operator=(const SignalHooks&) = delete;

    // Listens besides who listens already; it must outlive whoever calls.
    void subscribe(orvclient::Callbacks* callbacks);

    // Playback began anew, where the signal is good until something else is told.
    void onBegin() { onSignal(static_cast<unsigned int>(orvclient::Signal::GOOD)); }

    // To be called often: runs what is due, and looks after what runs. Where another service plays,
    // that began anew.
    void look(const About& about);
    bool isRunning() const { return mLost.process != 0 || mBack.process != 0; }

private:
    struct Hook {
        const char* event;
        std::string command = {};
        std::atomic<int> due{0};
        pid_t process = 0;  // and process group; 0: none runs
        int64_t beginNs = 0;
        bool isLongTold = false;
        bool isSkipTold = false;
    };

    void onSignal(unsigned int current);
    void run(Hook& hook, const About& about);
    void watch(Hook& hook);
    void end();

    Messages& mMessages;
    Hook mLost{.event = "signal-lost"};
    Hook mBack{.event = "signal-back"};
    std::atomic<bool> mIsLost{false};  // was told, and not that it is back
    std::string mPlayed;               // the service, at the last look
};

}  // namespace orvplay
