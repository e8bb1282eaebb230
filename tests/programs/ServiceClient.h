#pragma once

#include <binder/IBinder.h>
#include <dtv/ITuner.h>
#include <orv/IMonitor.h>

#include <string>

#include "binder/BinderConnection.h"

namespace orvtest {

// An application in the least: it finds the three services on a connection and plays the first
// service of a file by calls as they stand on the wire.
class ServiceClient {
public:
    explicit ServiceClient(const android::sp<orvhost::BinderConnection>& connection);
    ~ServiceClient();
    ServiceClient(const ServiceClient&) = delete;  // owns the connection
    ServiceClient& operator=(const ServiceClient&) = delete;

    static android::sp<orvhost::BinderConnection> onSocket(int fd);
    static android::sp<orvhost::BinderConnection> onBus(const std::string& address);

    bool isComplete() const {
        return mPlayer != nullptr && mTuner != nullptr && mMonitor != nullptr;
    }
    orvhost::ITuner& tuner() { return *mTuner; }
    orvhost::IMonitor& monitor() { return *mMonitor; }
    android::sp<android::IBinder> player() { return mPlayer; }
    android::sp<android::IBinder> service(const char* name);

    // Tunes and opens; 0, or the step that failed.
    int openFile(const std::string& file);
    // And starts.
    int play(const std::string& file);
    // Whether pictures and sound go on within so many seconds.
    bool plays(double seconds = 15);
    orvhost::PlaybackFigures figures();
    // A call without arguments: the number it answers, -1 for none.
    int call(uint32_t code);

private:
    const android::sp<orvhost::BinderConnection> mConnection;
    const android::sp<android::IBinder> mPlayer;
    const android::sp<orvhost::ITuner> mTuner;
    const android::sp<orvhost::IMonitor> mMonitor;
};

}  // namespace orvtest
