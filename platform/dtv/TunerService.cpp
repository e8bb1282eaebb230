#include "dtv/TunerService.h"

#include "dtv/SourceUri.h"
#include "trace/HostLog.h"

namespace orvhost {

namespace {

// So many may wait for tables at once; more would take the threads that other calls need.
constexpr int MAX_WAITING = 2;

}  // namespace

class TunerService::OwnerDeath : public android::IBinder::DeathRecipient {
public:
    explicit OwnerDeath(TunerService* service) : mService(service) {}

    void binderDied(const android::wp<android::IBinder>& who) override {
        if (const android::sp<TunerService> service = mService.promote()) {
            service->onOwnerDied(who);
        }
    }

private:
    const android::wp<TunerService> mService;
};

TunerService::TunerService(Tuner& tuner) : mTuner(tuner), mDeath(new OwnerDeath(this)) {}

TuneResult TunerService::tune(int fd, const std::string& displayName, const TuneOptions& options,
                              const android::sp<android::IBinder>& owner) {
    return tuneFor(owner, [&] { return mTuner.tune(fd, options, displayName); });
}

// Nothing else: a client that names a file opens it itself, with its own rights.
TuneResult TunerService::tuneUri(const std::string& uri, const TuneOptions& options,
                                 const android::sp<android::IBinder>& owner) {
    if (!SourceUri::isUri(uri)) {
        return {TuneStatus::BadUri, SourceUri::shown(uri) + ": not the name of a live source"};
    }
    return tuneFor(owner, [&] { return mTuner.tuneForClient(uri, options); });
}

TuneResult TunerService::tuneFor(const android::sp<android::IBinder>& owner,
                                 const std::function<TuneResult()>& tune) {
    if (!takeOwnership(owner)) {
        return {TuneStatus::Cancelled, "the program that tuned has ended"};
    }
    const TuneResult result = tune();
    std::lock_guard lock(mOwnerMutex);
    if (result.ok() && mOwner == nullptr) {
        // The owner died, or left the source, before there was one to leave.
        mTuner.untune();
        return {TuneStatus::Cancelled, "untuned meanwhile"};
    }
    return result;
}

bool TunerService::takeOwnership(const android::sp<android::IBinder>& owner) {
    std::lock_guard lock(mOwnerMutex);
    if (mOwner == owner) {
        return owner != nullptr;
    }
    setOwner(nullptr);
    return owner != nullptr && (setOwner(owner), mOwner != nullptr);
}

// With the lock. An owner that cannot be watched because it is dead is none.
void TunerService::setOwner(const android::sp<android::IBinder>& owner) {
    if (mOwner != nullptr && mOwner->localBinder() == nullptr) {
        mOwner->unlinkToDeath(mDeath);
    }
    mOwner = owner;
    if (owner != nullptr && owner->linkToDeath(mDeath) == android::DEAD_OBJECT) {
        mOwner = nullptr;
    }
}

void TunerService::onOwnerDied(const android::wp<android::IBinder>& who) {
    std::lock_guard lock(mOwnerMutex);
    if (mOwner != nullptr && who == mOwner) {
        HOST_LOGI("%s: the client that tuned has died\n", __func__);
        mOwner = nullptr;
        mTuner.untune();
    }
}

void TunerService::untune() {
    std::lock_guard lock(mOwnerMutex);
    setOwner(nullptr);
    mTuner.untune();
}

ServiceList TunerService::services(int timeoutMs) {
    ServiceList list;
    if (mWaiting.fetch_add(1) < MAX_WAITING) {
        list = mTuner.services(timeoutMs);
    } else {
        list.result = {TuneStatus::Busy, "others wait for the services already; try again"};
    }
    --mWaiting;
    return list;
}

BroadcastInformation TunerService::information(int timeoutMs) {
    BroadcastInformation information;
    if (mWaiting.fetch_add(1) < MAX_WAITING) {
        information = mTuner.information(timeoutMs);
    } else {
        information.result = {TuneStatus::Busy, "others wait for the tables already; try again"};
    }
    --mWaiting;
    return information;
}

TunerSignal TunerService::signal() {
    const TunerStatistics all = mTuner.statistics();
    TunerSignal signal;
    signal.tuned = mTuner.isTuned();
    signal.atEnd = mTuner.atEnd();
    signal.packets = all.packets;
    signal.bytes = all.bytes;
    signal.syncLosses = all.syncLosses;
    signal.skippedBytes = all.skippedBytes;
    signal.droppedPackets = all.droppedPackets;
    signal.network = all.network;
    signal.frontend = all.frontend;
    for (const PidStatistics& pid : all.pids) {
        signal.continuityErrors += pid.continuityErrors;
        signal.transportErrors += pid.transportErrors;
        signal.scrambled += pid.scrambled;
    }
    return signal;
}

}  // namespace orvhost
