#pragma once

#include <utils/RefBase.h>

#include <string>

#include "DaemonOptions.h"
#include "Signals.h"
#include "binder/BinderConnection.h"

namespace orvplayerd {

// The service process from its start to its end: the player, the tuner and the monitor on one
// connection, until a signal or the end of the connection.
//
//   Daemon(options).run()
//
// Readiness is told when applications can reach all three: one line on standard error, and on a bus
// the supervisor's READY=1. However the process ends, it is gone half a second after it began to.
// What other threads may use is never destroyed: the player ends the process from any of them when
// it finds itself broken.
class Daemon {
public:
    explicit Daemon(const Options& options);
    ~Daemon();
    Daemon(const Daemon&) = delete;  // callbacks know us by address
    Daemon& operator=(const Daemon&) = delete;

    // Returns what the process ends with. One line on standard error tells each failure.
    int run();

private:
    bool isPeer() const { return mOptions.peerFd >= 0; }
    bool connect();
    bool claimNames();
    void announce() const;
    int serve();
    int shutDown(int code, const std::string& message = {});
    static void closePlayer();

    const Options mOptions;
    Signals mSignals;
    int mLostFd = -1;  // readable when the connection has ended
    android::sp<orvhost::BinderConnection> mConnection;
};

}  // namespace orvplayerd
