#include "dtv/TunerParcel.h"

#include <dtv/ITuner.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

namespace orvhost {

namespace {

using android::Parcel;

constexpr size_t MAX_LIST_BYTES = 512 * 1024;
// A PAT may name more, a PMT of one section cannot.
constexpr int32_t MAX_SERVICES = 256;
constexpr int32_t MAX_STREAMS = 256;
constexpr int32_t MAX_DESCRIPTORS = 512;
constexpr size_t MAX_DESCRIPTOR_BYTES = 255;
constexpr int32_t MAX_EVENTS = 2 * MAX_SERVICES;
// What 16 bits of days and two digits of hours come to, and a zone.
constexpr int64_t LONG_AGO_S = -86'400;
constexpr int64_t FAR_AHEAD_S = 65'536LL * 86'400;
constexpr int32_t MAX_OFFSET_MINUTES = 256 * 60;

constexpr int32_t LAST_STATUS = static_cast<int32_t>(TuneStatus::NeedsSocket);
constexpr int32_t LAST_KIND = static_cast<int32_t>(StreamKind::Caption);

enum OptionFlag : int32_t {
    PACED = 1 << 0,
    KEEP_GAPS = 1 << 1,
    LOOP = 1 << 2,
    FOLLOW = 1 << 3,
    FREE_RUNNING = 1 << 4,
    RECORDED = 1 << 5,
    AS_LIVE = 1 << 6,
    ALL_FLAGS = (1 << 7) - 1,
};

template <typename Signal, typename Count>
std::array<Count*, 16> countsOf(Signal& s) {
    auto& n = s.network;
    return {
        &s.packets,    &s.bytes,        &s.continuityErrors, &s.transportErrors, &s.scrambled,
        &s.syncLosses, &s.skippedBytes, &s.droppedPackets,   &n.datagrams,       &n.badDatagrams,
        &n.lost,       &n.reordered,    &n.duplicates,       &n.kernelDrops,     &n.restarts,
        &n.jitterUs};
}

constexpr size_t NETWORK_COUNTS_FROM = 8;

// The next number, when it lies in [low, high].
template <typename T>
bool readIn(const Parcel& parcel, int32_t low, int32_t high, T* value) {
    int32_t number = 0;
    if (parcel.readInt32(&number) != android::OK || number < low || number > high) {
        return false;
    }
    *value = static_cast<T>(number);
    return true;
}

template <typename Bytes>
void writeBytes(Parcel* parcel, const Bytes& bytes, size_t most) {
    const size_t size = std::min(bytes.size(), most);
    parcel->writeInt32(static_cast<int32_t>(size));
    parcel->write(bytes.data(), size);
}

template <typename Bytes>
bool readBytes(const Parcel& parcel, size_t most, Bytes* bytes) {
    int32_t size = 0;
    if (!readIn(parcel, 0, static_cast<int32_t>(most), &size)) {
        return false;
    }
    bytes->resize(0);
    if (size == 0) {
        return true;
    }
    const auto* from = static_cast<const uint8_t*>(parcel.readInplace(static_cast<size_t>(size)));
    if (from == nullptr) {
        return false;
    }
    bytes->assign(from, from + size);
    return true;
}

template <typename T>
void writeList(Parcel* parcel, const std::vector<T>& list, int32_t most,
               void (*write)(Parcel*, const T&)) {
    const size_t count = std::min(list.size(), static_cast<size_t>(most));
    parcel->writeInt32(static_cast<int32_t>(count));
    for (size_t i = 0; i < count; ++i) {
        write(parcel, list[i]);
    }
}

// The list grows with what is really there: a count alone costs nothing.
template <typename T>
bool readList(const Parcel& parcel, int32_t most, std::vector<T>* list,
              bool (*read)(const Parcel&, T*)) {
    int32_t count = 0;
    if (!readIn(parcel, 0, most, &count)) {
        return false;
    }
    list->clear();
    for (int32_t i = 0; i < count; ++i) {
        if (!read(parcel, &list->emplace_back())) {
            return false;
        }
    }
    return true;
}

bool readTime(const Parcel& parcel, int64_t* seconds) {
    return parcel.readInt64(seconds) == android::OK && *seconds >= LONG_AGO_S &&
           *seconds <= FAR_AHEAD_S;
}

void writeDescriptor(Parcel* parcel, const Descriptor& d) {
    parcel->writeInt32(d.tag);
    writeBytes(parcel, d.data, MAX_DESCRIPTOR_BYTES);
}

bool readDescriptor(const Parcel& parcel, Descriptor* d) {
    return readIn(parcel, 0, UINT8_MAX, &d->tag) &&
           readBytes(parcel, MAX_DESCRIPTOR_BYTES, &d->data);
}

void writeStream(Parcel* parcel, const ElementaryStream& stream) {
    parcel->writeInt32(stream.pid);
    parcel->writeInt32(stream.streamType);
    parcel->writeInt32(static_cast<int32_t>(stream.kind));
    writeText(parcel, stream.language);
    parcel->writeInt32(stream.componentTag);
    writeList(parcel, stream.descriptors, MAX_DESCRIPTORS, writeDescriptor);
}

bool readStream(const Parcel& parcel, ElementaryStream* stream) {
    return readIn(parcel, 0, PID_NONE, &stream->pid) &&
           readIn(parcel, 0, UINT8_MAX, &stream->streamType) &&
           readIn(parcel, 0, LAST_KIND, &stream->kind) && readText(parcel, &stream->language) &&
           readIn(parcel, -1, UINT8_MAX, &stream->componentTag) &&
           readList(parcel, MAX_DESCRIPTORS, &stream->descriptors, readDescriptor);
}

void writeService(Parcel* parcel, const Service& service) {
    parcel->writeInt32(service.serviceId);
    parcel->writeInt32(service.pmtPid);
    parcel->writeInt32(service.pcrPid);
    parcel->writeInt32(service.serviceType);
    writeBytes(parcel, service.rawName, MAX_DESCRIPTOR_BYTES);
    writeText(parcel, service.name);
    writeText(parcel, service.provider);
    writeList(parcel, service.streams, MAX_STREAMS, writeStream);
}

bool readService(const Parcel& parcel, Service* service) {
    return readIn(parcel, 0, UINT16_MAX, &service->serviceId) &&
           readIn(parcel, 0, PID_NONE, &service->pmtPid) &&
           readIn(parcel, 0, PID_NONE, &service->pcrPid) &&
           readIn(parcel, 0, UINT8_MAX, &service->serviceType) &&
           readBytes(parcel, MAX_DESCRIPTOR_BYTES, &service->rawName) &&
           readText(parcel, &service->name) && readText(parcel, &service->provider) &&
           readList(parcel, MAX_STREAMS, &service->streams, readStream);
}

void writeNumber(Parcel* parcel, const uint16_t& number) {
    parcel->writeInt32(number);
}

bool readNumber(const Parcel& parcel, uint16_t* number) {
    return readIn(parcel, 0, UINT16_MAX, number);
}

void writeEvent(Parcel* parcel, const BroadcastEvent& event) {
    parcel->writeInt32(event.serviceId);
    parcel->writeInt32(event.following ? 1 : 0);
    parcel->writeInt32(event.eventId);
    parcel->writeInt64(event.startUtcS);
    parcel->writeInt32(event.durationS);
    writeText(parcel, event.language);
    writeBytes(parcel, event.rawName, MAX_DESCRIPTOR_BYTES);
    writeBytes(parcel, event.rawText, MAX_DESCRIPTOR_BYTES);
}

bool readEvent(const Parcel& parcel, BroadcastEvent* event) {
    return readIn(parcel, 0, UINT16_MAX, &event->serviceId) &&
           readIn(parcel, 0, 1, &event->following) &&
           readIn(parcel, 0, UINT16_MAX, &event->eventId) && readTime(parcel, &event->startUtcS) &&
           readIn(parcel, -1, INT32_MAX, &event->durationS) && readText(parcel, &event->language) &&
           readBytes(parcel, MAX_DESCRIPTOR_BYTES, &event->rawName) &&
           readBytes(parcel, MAX_DESCRIPTOR_BYTES, &event->rawText);
}

void writeClock(Parcel* parcel, const BroadcastClock& clock) {
    parcel->writeInt64(clock.utcS);
    parcel->writeInt32(clock.ageMs);
    parcel->writeInt32(clock.localOffsetMinutes);
    writeText(parcel, clock.country);
}

bool readClock(const Parcel& parcel, BroadcastClock* clock) {
    return readTime(parcel, &clock->utcS) && readIn(parcel, 0, INT32_MAX, &clock->ageMs) &&
           readIn(parcel, -MAX_OFFSET_MINUTES, MAX_OFFSET_MINUTES, &clock->localOffsetMinutes) &&
           readText(parcel, &clock->country);
}

void writeSourceFault(Parcel* parcel, const SourceFault& fault) {
    parcel->writeInt64(fault.timeNs);
    parcel->writeInt64(fault.lengthMs);
    writeText(parcel, fault.text);
}

bool readSourceFault(const Parcel& parcel, SourceFault* fault) {
    return parcel.readInt64(&fault->timeNs) == android::OK &&
           parcel.readInt64(&fault->lengthMs) == android::OK && readText(parcel, &fault->text);
}

}  // namespace

void writeText(Parcel* parcel, const std::string& text) {
    writeBytes(parcel, text, MAX_TUNER_TEXT);
}

bool readText(const Parcel& parcel, std::string* text) {
    return readBytes(parcel, MAX_TUNER_TEXT, text);
}

void writeTuneOptions(Parcel* parcel, const TuneOptions& options) {
    const int32_t flags = (options.paced ? PACED : 0) | (options.keepGaps ? KEEP_GAPS : 0) |
                          (options.loop ? LOOP : 0) | (options.follow ? FOLLOW : 0) |
                          (options.freeRunning ? FREE_RUNNING : 0) |
                          (options.recorded ? RECORDED : 0) | (options.asLive ? AS_LIVE : 0);
    parcel->writeInt32(flags);
    parcel->writeInt32(options.serviceId);
    parcel->writeInt32(options.pcrPid);
    parcel->writeInt32(options.timeoutMs);
    if (options.asLive) {
        writeBytes(parcel, options.faults, MAX_FAULT_SCRIPT);
    }
}

bool readTuneOptions(const Parcel& parcel, TuneOptions* options) {
    int32_t flags = 0;
    if (!readIn(parcel, 0, ALL_FLAGS, &flags) ||
        !readIn(parcel, 0, UINT16_MAX, &options->serviceId) ||
        !readIn(parcel, 0, PID_NONE, &options->pcrPid) ||
        !readIn(parcel, 0, INT32_MAX, &options->timeoutMs)) {
        return false;
    }
    options->paced = (flags & PACED) != 0;
    options->keepGaps = (flags & KEEP_GAPS) != 0;
    options->loop = (flags & LOOP) != 0;
    options->follow = (flags & FOLLOW) != 0;
    options->freeRunning = (flags & FREE_RUNNING) != 0;
    options->recorded = (flags & RECORDED) != 0;
    options->asLive = (flags & AS_LIVE) != 0;
    options->timeoutMs = std::min(options->timeoutMs, ITuner::MAX_TIMEOUT_MS);
    return !options->asLive || readBytes(parcel, MAX_FAULT_SCRIPT, &options->faults);
}

void writeTuneResult(Parcel* parcel, const TuneResult& result) {
    parcel->writeInt32(static_cast<int32_t>(result.status));
    writeText(parcel, result.message);
}

bool readTuneResult(const Parcel& parcel, TuneResult* result) {
    return readIn(parcel, 0, LAST_STATUS, &result->status) && readText(parcel, &result->message);
}

void writeServiceList(Parcel* parcel, const ServiceList& list) {
    writeTuneResult(parcel, list.result);
    writeText(parcel, list.networkName);
    std::vector<Service> fitting = list.services;
    const size_t start = parcel->dataPosition();
    while (true) {
        writeList(parcel, fitting, MAX_SERVICES, writeService);
        if (parcel->dataSize() <= MAX_LIST_BYTES || fitting.empty()) {
            return;
        }
        parcel->setDataSize(start);
        parcel->setDataPosition(start);
        fitting.resize(fitting.size() / 2);
    }
}

bool readServiceList(const Parcel& parcel, ServiceList* list) {
    return readTuneResult(parcel, &list->result) && readText(parcel, &list->networkName) &&
           readList(parcel, MAX_SERVICES, &list->services, readService);
}

void writeBroadcastInformation(Parcel* parcel, const BroadcastInformation& information) {
    writeTuneResult(parcel, information.result);
    parcel->writeInt32(information.networkId);
    parcel->writeInt32(information.originalNetworkId);
    parcel->writeInt32(information.transportStreamId);
    parcel->writeInt32(information.remoteControlKey);
    writeBytes(parcel, information.rawNetworkName, MAX_DESCRIPTOR_BYTES);
    writeBytes(parcel, information.rawStreamName, MAX_DESCRIPTOR_BYTES);
    writeList(parcel, information.oneSegment, MAX_SERVICES, writeNumber);
    writeClock(parcel, information.clock);
    writeList(parcel, information.events, MAX_EVENTS, writeEvent);
}

bool readBroadcastInformation(const Parcel& parcel, BroadcastInformation* information) {
    return readTuneResult(parcel, &information->result) &&
           readIn(parcel, -1, UINT16_MAX, &information->networkId) &&
           readIn(parcel, -1, UINT16_MAX, &information->originalNetworkId) &&
           readIn(parcel, -1, UINT16_MAX, &information->transportStreamId) &&
           readIn(parcel, -1, UINT8_MAX, &information->remoteControlKey) &&
           readBytes(parcel, MAX_DESCRIPTOR_BYTES, &information->rawNetworkName) &&
           readBytes(parcel, MAX_DESCRIPTOR_BYTES, &information->rawStreamName) &&
           readList(parcel, MAX_SERVICES, &information->oneSegment, readNumber) &&
           readClock(parcel, &information->clock) &&
           readList(parcel, MAX_EVENTS, &information->events, readEvent);
}

namespace {

void writeDouble(Parcel* parcel, double value) {
    parcel->writeInt64(std::bit_cast<int64_t>(value));
}

bool readDouble(const Parcel& parcel, double* value) {
    int64_t bits = 0;
    if (parcel.readInt64(&bits) != android::OK) {
        return false;
    }
    *value = std::bit_cast<double>(bits);
    return std::isfinite(*value);
}

void writeFigure(Parcel* parcel, const DvbFigure& figure) {
    parcel->writeInt32(static_cast<int32_t>(figure.scale));
    writeDouble(parcel, figure.value);
}

bool readFigure(const Parcel& parcel, DvbFigure* figure) {
    constexpr auto LAST_SCALE = static_cast<int32_t>(DvbFigure::Scale::PERCENT);
    return readIn(parcel, 0, LAST_SCALE, &figure->scale) && readDouble(parcel, &figure->value);
}

void writeFrontend(Parcel* parcel, const FrontendStatistics& frontend) {
    const DvbSignal& signal = frontend.signal;
    parcel->writeInt32(signal.carrier ? 1 : 0);
    parcel->writeInt32(signal.lock ? 1 : 0);
    writeFigure(parcel, signal.strength);
    writeFigure(parcel, signal.carrierToNoise);
    writeDouble(parcel, signal.bitErrorRate);
    writeDouble(parcel, signal.packetErrorRate);
    parcel->writeInt64(static_cast<int64_t>(frontend.overflows));
}

bool readFrontend(const Parcel& parcel, FrontendStatistics* frontend) {
    DvbSignal& signal = frontend->signal;
    int64_t overflows = 0;
    frontend->present =
        readIn(parcel, 0, 1, &signal.carrier) && readIn(parcel, 0, 1, &signal.lock) &&
        readFigure(parcel, &signal.strength) && readFigure(parcel, &signal.carrierToNoise) &&
        readDouble(parcel, &signal.bitErrorRate) && readDouble(parcel, &signal.packetErrorRate) &&
        parcel.readInt64(&overflows) == android::OK;
    frontend->overflows = static_cast<uint64_t>(overflows);
    return frontend->present;
}

}  // namespace

void writeSourceFaults(Parcel* parcel, const std::vector<SourceFault>& faults) {
    writeList(parcel, faults, MAX_SOURCE_FAULTS, writeSourceFault);
}

bool readSourceFaults(const Parcel& parcel, std::vector<SourceFault>* faults) {
    return readList(parcel, MAX_SOURCE_FAULTS, faults, readSourceFault);
}

void writeTunerSignal(Parcel* parcel, const TunerSignal& signal) {
    parcel->writeInt32(signal.tuned ? 1 : 0);
    parcel->writeInt32(signal.atEnd ? 1 : 0);
    for (const uint64_t* count : countsOf<const TunerSignal, const uint64_t>(signal)) {
        parcel->writeInt64(static_cast<int64_t>(*count));
    }
    if (signal.frontend.present) {
        writeFrontend(parcel, signal.frontend);
    }
}

bool readTunerSignal(const Parcel& parcel, TunerSignal* signal) {
    if (!readIn(parcel, 0, 1, &signal->tuned) || !readIn(parcel, 0, 1, &signal->atEnd)) {
        return false;
    }
    const auto counts = countsOf<TunerSignal, uint64_t>(*signal);
    for (size_t i = 0; i < counts.size(); ++i) {
        if (i == NETWORK_COUNTS_FROM && parcel.dataAvail() == 0) {
            return true;
        }
        int64_t value = 0;
        if (parcel.readInt64(&value) != android::OK) {
            return false;
        }
        *counts[i] = static_cast<uint64_t>(value);
    }
    return parcel.dataAvail() == 0 || readFrontend(parcel, &signal->frontend);
}

}  // namespace orvhost
