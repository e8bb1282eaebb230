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

constexpr int64_t MAX_TIME = (int64_t{1} << 33) - 1;  // of 33 bits

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

// Every field of an event as one number.
template <typename Event, typename Visit>
void forEachField(Event& e, Visit visit) {
    visit(e.timeNs, INT64_MIN, INT64_MAX);
    visit(e.pts90k, 0, MAX_TIME);
    visit(e.clock90k, PresentationEvent::NO_TIME, MAX_TIME);
    visit(e.waitMs, INT32_MIN, INT32_MAX);
    visit(e.frames, 0, UINT32_MAX);
    visit(e.kind, 0, static_cast<int64_t>(PresentationEvent::Kind::CLOCK));
    visit(e.outcome, 0, static_cast<int64_t>(PresentationEvent::Outcome::NO_WINDOW));
}

void writeReport(Parcel* parcel, const PresentationReport& report) {
    const size_t events = std::min(report.events.size(), PresentationReport::MAX_EVENTS);
    parcel->writeInt64(static_cast<int64_t>(report.missed + report.events.size() - events));
    parcel->writeInt64(std::bit_cast<int64_t>(report.outputLatencyMs));
    parcel->writeInt32(static_cast<int32_t>(events));
    for (size_t i = 0; i < events; ++i) {
        forEachField(report.events[i], [parcel](const auto& field, int64_t, int64_t) {
            parcel->writeInt64(static_cast<int64_t>(field));
        });
    }
    const size_t fills = std::min(report.fills.size(), PresentationReport::MAX_FILLS);
    parcel->writeInt32(static_cast<int32_t>(fills));
    for (size_t i = 0; i < fills; ++i) {
        const std::string name = report.fills[i].name.substr(0, PresentationReport::MAX_NAME);
        parcel->writeInt32(static_cast<int32_t>(name.size()));
        parcel->write(name.data(), name.size());
        parcel->writeInt64(report.fills[i].usedBytes);
        parcel->writeInt64(report.fills[i].sizeBytes);
    }
}

bool readWithin(const Parcel& parcel, int64_t low, int64_t high, int64_t* value) {
    return parcel.readInt64(value) == android::OK && *value >= low && *value <= high;
}

bool readCount(const Parcel& parcel, size_t most, int32_t* count) {
    return parcel.readInt32(count) == android::OK && *count >= 0 &&
           static_cast<size_t>(*count) <= most;
}

bool readEvent(const Parcel& parcel, PresentationEvent* event) {
    bool complete = true;
    forEachField(*event, [&](auto& field, int64_t low, int64_t high) {
        int64_t value = 0;
        complete = complete && readWithin(parcel, low, high, &value);
        field = static_cast<std::decay_t<decltype(field)>>(complete ? value : 0);
    });
    return complete;
}

bool readFill(const Parcel& parcel, BufferFill* fill) {
    int32_t length = 0;
    const void* const name = readCount(parcel, PresentationReport::MAX_NAME, &length)
                                 ? parcel.readInplace(static_cast<size_t>(length))
                                 : nullptr;
    int64_t used = 0;
    int64_t size = 0;
    if (name == nullptr || !readWithin(parcel, 0, UINT32_MAX, &used) ||
        !readWithin(parcel, 1, UINT32_MAX, &size)) {
        return false;
    }
    *fill = {std::string(static_cast<const char*>(name), static_cast<size_t>(length)),
             static_cast<uint32_t>(used), static_cast<uint32_t>(size)};
    return true;
}

bool readReport(const Parcel& parcel, PresentationReport* report) {
    int64_t missed = 0;
    int64_t latency = 0;
    int32_t count = 0;
    if (!readWithin(parcel, 0, INT64_MAX, &missed) || parcel.readInt64(&latency) != android::OK ||
        !readCount(parcel, PresentationReport::MAX_EVENTS, &count)) {
        return false;
    }
    report->missed = static_cast<uint64_t>(missed);
    report->outputLatencyMs = std::bit_cast<double>(latency);
    for (int32_t i = 0; i < count; ++i) {
        if (!readEvent(parcel, &report->events.emplace_back())) {
            return false;
        }
    }
    if (!readCount(parcel, PresentationReport::MAX_FILLS, &count)) {
        return false;
    }
    for (int32_t i = 0; i < count; ++i) {
        if (!readFill(parcel, &report->fills.emplace_back())) {
            return false;
        }
    }
    return true;
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

    status_t presentation(PresentationReport* report) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        Parcel reply;
        const status_t status = remote()->transact(PRESENTATION, data, &reply);
        if (status != android::OK) {
            return status;
        }
        PresentationReport read;
        if (!readReport(reply, &read)) {
            return android::BAD_VALUE;
        }
        *report = std::move(read);
        return android::OK;
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
    if (code < FIGURES || code > PRESENTATION) {
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
    if (code == PRESENTATION) {
        PresentationReport report;
        const status_t status = presentation(&report);
        if (status == android::OK && reply != nullptr) {
            writeReport(reply, report);
        }
        return status;
    }
    PlaybackFigures counted;
    const status_t status = figures(&counted);
    if (status == android::OK && reply != nullptr) {
        writeFigures(reply, counted);
    }
    return status;
}

}  // namespace orvhost
