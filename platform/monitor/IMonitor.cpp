#include <binder/Parcel.h>
#include <orv/IMonitor.h>

#include <algorithm>
#include <bit>

namespace orvhost {

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;

// Every figure but the list passes through here, in one order for both directions.
template <typename Figures, typename Visit>
void forEachNumber(Figures& f, Visit visit) {
    visit(f.framesTimed);
    visit(f.lastFrameTimedNs);
    visit(f.picturesReleasedUnseen);
    visit(f.picturesDroppedAtWindow);
    visit(f.firstIdrQueuedUs);
    visit(f.firstIdrReadyUs);
    visit(f.firstPcrUs);
    visit(f.firstSoundUs);
    visit(f.audioFrames);
    visit(f.heard);
    visit(f.outputLatencyMs);
    visit(f.audioEarlyMs);
    visit(f.audioEarlyCount);
    visit(f.mediaDurationMs);
    visit(f.indexPercent);
    visit(f.cpuSeconds);
    visit(f.voluntarySwitches);
    visit(f.maxRssKb);
    visit(f.pid);
}

// Numbers cross as 64 bits, those with a fraction as they stand in memory.
void writeFigures(Parcel* parcel, const PlaybackFigures& figures) {
    forEachNumber(figures, [parcel](const auto& number) {
        if constexpr (std::is_same_v<std::decay_t<decltype(number)>, double>) {
            parcel->writeInt64(std::bit_cast<int64_t>(number));
        } else {
            parcel->writeInt64(static_cast<int64_t>(number));
        }
    });
    const size_t count = std::min(figures.beepsNs.size(), PlaybackFigures::MAX_BEEPS);
    parcel->writeInt32(static_cast<int32_t>(count));
    for (size_t i = figures.beepsNs.size() - count; i < figures.beepsNs.size(); ++i) {
        parcel->writeInt64(figures.beepsNs[i]);
    }
}

bool readFigures(const Parcel& parcel, PlaybackFigures* figures) {
    bool complete = true;
    forEachNumber(*figures, [&](auto& number) {
        using Number = std::decay_t<decltype(number)>;
        int64_t value = 0;
        complete = complete && parcel.readInt64(&value) == android::OK;
        if constexpr (std::is_same_v<Number, double>) {
            number = std::bit_cast<double>(value);
        } else {
            number = static_cast<Number>(value);
        }
    });
    int32_t count = 0;
    complete = complete && parcel.readInt32(&count) == android::OK && count >= 0 &&
               static_cast<size_t>(count) <= PlaybackFigures::MAX_BEEPS;
    for (int32_t i = 0; complete && i < count; ++i) {
        complete = parcel.readInt64(&figures->beepsNs.emplace_back()) == android::OK;
    }
    return complete;
}

class BpMonitor : public android::BpInterface<IMonitor> {
public:
    using android::BpInterface<IMonitor>::BpInterface;

    status_t figures(PlaybackFigures* figures) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        Parcel reply;
        const status_t status = remote()->transact(FIGURES, data, &reply);
        if (status != android::OK) {
            return status;
        }
        PlaybackFigures read;
        if (!readFigures(reply, &read)) {
            return android::BAD_VALUE;
        }
        *figures = std::move(read);
        return android::OK;
    }

    status_t setVolume(int32_t percent, bool isMuted) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeInt32(percent);
        data.writeInt32(isMuted ? 1 : 0);
        Parcel reply;
        return remote()->transact(SET_VOLUME, data, &reply);
    }
};

}  // namespace

// Never destroyed: threads may look at it while the process ends.
const android::String16& IMonitor::descriptor = *new android::String16(SERVICE_NAME);

sp<IMonitor> IMonitor::asInterface(const sp<IBinder>& binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    const sp<android::IInterface> local = binder->queryLocalInterface(descriptor);
    return local != nullptr ? sp<IMonitor>(static_cast<IMonitor*>(local.get()))
                            : new BpMonitor(binder);
}

status_t BnMonitor::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (code != FIGURES && code != SET_VOLUME) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.checkInterface(this)) {
        return android::PERMISSION_DENIED;
    }
    if (code == SET_VOLUME) {
        int32_t percent = 0;
        int32_t isMuted = 0;
        const bool isWhole =
            data.readInt32(&percent) == android::OK && data.readInt32(&isMuted) == android::OK;
        return isWhole ? setVolume(percent, isMuted != 0) : android::BAD_VALUE;
    }
    PlaybackFigures counted;
    const status_t status = figures(&counted);
    if (status == android::OK && reply != nullptr) {
        writeFigures(reply, counted);
    }
    return status;
}

}  // namespace orvhost
