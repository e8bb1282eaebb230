#include "dtv/Tuner.h"

#include <utility>

#include "dtv/ByteSource.h"
#include "dtv/LiveSource.h"
#include "dtv/SourceUri.h"
#include "dtv/TunerSession.h"
#include "dtv/aslive/AsLiveSource.h"
#include "dtv/network/DatagramSocket.h"

namespace orvhost {

Tuner& Tuner::instance() {
    // Never destroyed: its thread may run until the process is gone.
    static Tuner* tuner = new Tuner;
    return *tuner;
}

Tuner::Tuner(HostClock& clock) : mClock(clock) {
    mDemultiplexer.setFilterCallback([this] {
        if (const auto present = session()) {
            present->wake();
        }
        PlaybackListener* const listener = mPlaybackListener;
        if (listener != nullptr && mDemultiplexer.filterCount() == 0) {
            listener->onFiltersStopped();
        }
    });
    mDemultiplexer.setPump([this](int timeoutMs) {
        const auto present = session();
        return present != nullptr && present->pump(timeoutMs);
    });
}

Tuner::~Tuner() {
    untune();
}

std::shared_ptr<TunerSession> Tuner::session() const {
    std::lock_guard lock(mMutex);
    return mSession;
}

std::shared_ptr<TunerSession> Tuner::replaceSession(std::shared_ptr<TunerSession> next) {
    std::lock_guard lock(mMutex);
    return std::exchange(mSession, std::move(next));
}

TuneResult Tuner::tune(const std::string& source, const TuneOptions& options) {
    if (SourceUri::isUri(source)) {
        return tuneUri(source, options, Sockets::OPENED_HERE);
    }
    untune();
    TuneResult result;
    const std::string shown = source == "-" ? "standard input" : source;
    auto opened = asAsked(openByteSource(source, result), shown, options, result);
    return opened == nullptr ? result : begin(std::move(opened), shown, options);
}

// A file as live, where that was asked for. Null, with the reason in `result`, for what cannot be.
std::unique_ptr<ByteSource> Tuner::asAsked(std::unique_ptr<ByteSource> source,
                                           const std::string& name, const TuneOptions& options,
                                           TuneResult& result) {
    if (source == nullptr || !options.asLive) {
        return source;
    }
    return AsLiveSource::open(std::move(source), name, options.faults, mClock, result);
}

TuneResult Tuner::tuneForClient(const std::string& uri, const TuneOptions& options) {
    return tuneUri(uri, options, Sockets::FROM_CLIENT);
}

TuneResult Tuner::tuneUri(const std::string& uri, const TuneOptions& options, Sockets sockets) {
    TuneResult result;
    const std::string key = liveSourceKey(uri, result);
    const auto present = session();
    if (present != nullptr && present->isLiveFor(key, options)) {
        return settled(present->waitForMore(options.timeoutMs), present);
    }
    untune();
    if (sockets == Sockets::FROM_CLIENT && !key.empty() && isOnNetwork(key)) {
        return {TuneStatus::NeedsSocket, key + ": its socket is the client's to open"};
    }
    auto opened = key.empty() ? nullptr : openLiveSource(key, mClock, result);
    return opened == nullptr ? result : begin(std::move(opened), key, options);
}

TuneResult Tuner::tune(int descriptor, const TuneOptions& options, const std::string& name) {
    untune();
    const std::string shown = name.empty() ? "descriptor " + std::to_string(descriptor) : name;
    TuneResult result;
    if (DatagramSocket::isOne(descriptor)) {
        const std::string key = liveSourceKey(name, result);
        auto source = key.empty() ? nullptr : adoptLiveSource(descriptor, key, mClock, result);
        return source == nullptr ? result : begin(std::move(source), key, options);
    }
    auto opened = asAsked(adoptByteSource(descriptor, shown, result), shown, options, result);
    return opened == nullptr ? result : begin(std::move(opened), shown, options);
}

TuneResult Tuner::begin(std::unique_ptr<ByteSource> source, const std::string& name,
                        const TuneOptions& options) {
    std::shared_ptr<TunerSession> mine;
    {
        std::lock_guard changing(mChangeMutex);
        std::function<void()> endCallback;
        {
            std::lock_guard lock(mMutex);
            endCallback = mEndCallback;
        }
        const auto tell = [this](int event) {
            if (PlaybackListener* const listener = mPlaybackListener; listener != nullptr) {
                listener->onPlaybackEvent(event);
            }
        };
        mine = std::make_shared<TunerSession>(mClock, mDemultiplexer, std::move(source), name,
                                              options, std::move(endCallback), tell, ++mTunings);
        if (const auto old = replaceSession(mine)) {
            old->close();  // two never feed at once
            mDemultiplexer.leaveSource();
        }
        mine->start();
    }
    return settled(mine->waitForPackets(), mine);
}

// Leaves a source that failed.
TuneResult Tuner::settled(const TuneResult& result, const std::shared_ptr<TunerSession>& mine) {
    if (!result.ok()) {
        std::lock_guard changing(mChangeMutex);
        if (session() == mine) {
            replaceSession(nullptr);
        }
        mine->close();
        mDemultiplexer.leaveSource();
    }
    return result;
}

void Tuner::untune() {
    std::lock_guard changing(mChangeMutex);
    if (const auto old = replaceSession(nullptr)) {
        old->close();
        mDemultiplexer.leaveSource();
    }
}

bool Tuner::rewind() {
    const auto present = session();
    return present != nullptr && present->rewind();
}

ServiceList Tuner::services(int timeoutMs) {
    const auto present = session();
    if (present == nullptr) {
        ServiceList none;
        none.result = {TuneStatus::NotTuned, "nothing is tuned; tune to a source first"};
        return none;
    }
    return present->services(timeoutMs);
}

BroadcastInformation Tuner::information(int timeoutMs) {
    const auto present = session();
    if (present == nullptr) {
        BroadcastInformation none;
        none.result = {TuneStatus::NotTuned, "nothing is tuned; tune to a source first"};
        return none;
    }
    return present->information(timeoutMs);
}

std::optional<TunedProgramme> Tuner::findProgramme(int videoPid, int audioPid) const {
    const auto present = session();
    return present == nullptr ? std::nullopt : present->findProgramme(videoPid, audioPid);
}

std::optional<RecordedSource> Tuner::recording() const {
    const auto present = session();
    if (present == nullptr || !present->isRecorded()) {
        return std::nullopt;
    }
    return RecordedSource{present->number(), present->name(), present->options(),
                          present->wasFed()};
}

int Tuner::duplicateSource() const {
    const auto present = session();
    return present == nullptr ? -1 : present->duplicateSource();
}

bool Tuner::setPaused(bool paused) {
    const auto present = session();
    return present != nullptr && present->setPaused(paused);
}

bool Tuner::reposition(uint64_t tuning, uint64_t offset) {
    const auto present = session();
    return present != nullptr && present->number() == tuning && present->reposition(offset);
}

TunerStatistics Tuner::statistics() const {
    const auto present = session();
    return present == nullptr ? TunerStatistics() : present->statistics();
}

std::vector<SourceFault> Tuner::takeFaults() {
    const auto present = session();
    return present == nullptr ? std::vector<SourceFault>() : present->takeFaults();
}

bool Tuner::atEnd() const {
    const auto present = session();
    return present != nullptr && present->atEnd();
}

void Tuner::setEndCallback(std::function<void()> callback) {
    std::lock_guard lock(mMutex);
    mEndCallback = std::move(callback);
}

}  // namespace orvhost
