#pragma once

#include <dtv/ITuner.h>

#include <atomic>
#include <functional>
#include <mutex>

#include "dtv/Tuner.h"

namespace orvhost {

// The tuner of this process for other processes. Any thread; tune(), services() and
// information() wait on the thread that calls.
class TunerService : public BnTuner {
public:
    explicit TunerService(Tuner& tuner);

    TuneResult tune(int fd, const std::string& displayName, const TuneOptions& options,
                    const android::sp<android::IBinder>& owner) override;
    TuneResult tuneUri(const std::string& uri, const TuneOptions& options,
                       const android::sp<android::IBinder>& owner) override;
    void untune() override;
    ServiceList services(int timeoutMs) override;
    TunerSignal signal() override;
    BroadcastInformation information(int timeoutMs) override;
    std::vector<SourceFault> takeFaults() override { return mTuner.takeFaults(); }

private:
    class OwnerDeath;

    TuneResult tuneFor(const android::sp<android::IBinder>& owner,
                       const std::function<TuneResult()>& tune);
    bool takeOwnership(const android::sp<android::IBinder>& owner);
    void setOwner(const android::sp<android::IBinder>& owner);
    void onOwnerDied(const android::wp<android::IBinder>& who);

    Tuner& mTuner;
    const android::sp<android::IBinder::DeathRecipient> mDeath;
    std::atomic<int> mWaiting{0};  // in services() and information()
    // Guards the owner, and is held while the source of a dead owner is left: the next owner
    // tunes after that.
    std::mutex mOwnerMutex;
    android::sp<android::IBinder> mOwner;
};

}  // namespace orvhost
