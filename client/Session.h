#pragma once

#include <binder/IBinder.h>
#include <dtv/ITuner.h>
#include <orv/IMonitor.h>
#include <orvclient/Player.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "BpCOrvPlayer.h"
#include "ChildProcess.h"
#include "ClientEvents.h"
#include "binder/BinderConnection.h"
#include "recording/IRecordings.h"

namespace orvclient {

// One service process as long as it lives: the connection, the process itself where it is ours, and
// the objects in it. Any thread, but end() and the destructor from none of the connection's own.
class Session {
public:
    // Starts or finds the service. Null, and one line in *error, when that cannot be.
    static std::shared_ptr<Session> start(const Player::Options& options, std::string* error);
    // Over a connection that is there; `child` may be null.
    static std::shared_ptr<Session> over(android::sp<orvhost::BinderConnection> connection,
                                         std::unique_ptr<ChildProcess> child, std::string* error);
    ~Session();                        // end()
    Session(const Session&) = delete;  // owns a process
    Session& operator=(const Session&) = delete;

    // Sets what hears the service: `onGone` is called once, on some thread, when it ends before
    // end() did it. Once, before any command.
    void listen(const android::sp<ClientEvents>& events, std::function<void()> onGone);
    ClientEvents& events() const { return *mEvents; }
    const android::sp<ClientEvents>& client() const { return mEvents; }

    BpCOrvPlayer& player() { return mPlayer; }
    // Null, and one line, when the service has none.
    android::sp<orvhost::ITuner> tuner(std::string* error);
    android::sp<orvhost::IMonitor> monitor(std::string* error);
    android::sp<orvhost::IRecordings> recordings(std::string* error);

    bool isAlive() const { return mConnection->isConnected() && !mEvents->isEnded(); }
    int servicePid() const;
    // One line on a service that is gone.
    std::string reasonOfEnd();

    // Ends the connection and, where it is ours, the process. Nothing is told after that.
    void end();

private:
    class DeathWatch;

    Session(android::sp<orvhost::BinderConnection> connection, std::unique_ptr<ChildProcess> child,
            const android::sp<android::IBinder>& player);

    const android::sp<orvhost::BinderConnection> mConnection;
    const std::unique_ptr<ChildProcess> mChild;
    BpCOrvPlayer mPlayer;
    android::sp<ClientEvents> mEvents;  // fixed by listen()
    android::sp<DeathWatch> mDeathWatch;

    std::mutex mLock;
    android::sp<orvhost::ITuner> mTuner;  // one object: the service knows us by what it passes
    android::sp<orvhost::IMonitor> mMonitor;
    android::sp<orvhost::IRecordings> mRecordings;
};

}  // namespace orvclient
