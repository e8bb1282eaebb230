// What a hostile process asks of the tuner and the monitor, and what it answers when asked.
//
//   byte 0   code of the request
//   byte 1   bit 0: with the interface's token, 1: with a binder, 2: with a descriptor
//   rest     the bytes of the parcel behind them, and of every answer

#include <binder/Parcel.h>
#include <dtv/ITuner.h>
#include <fcntl.h>
#include <orv/IMonitor.h>
#include <unistd.h>

#include <cstdlib>

#include "dtv/TunerParcel.h"

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;

void check(bool holds) {
    if (!holds) {
        abort();
    }
}

// Gets values in their ranges or is not called.
class StrictTuner : public orvhost::BnTuner {
public:
    orvhost::TuneResult tune(int fd, const std::string& name, const orvhost::TuneOptions& options,
                             const sp<IBinder>& owner) override {
        check(fcntl(fd, F_GETFD) >= 0 && owner != nullptr);
        check(name.size() <= orvhost::MAX_TUNER_TEXT && options.pcrPid <= orvhost::PID_NONE);
        check(options.timeoutMs >= 0 && options.timeoutMs <= MAX_TIMEOUT_MS);
        check(options.faults.size() <= orvhost::MAX_FAULT_SCRIPT);
        return {orvhost::TuneStatus::NoData, name};
    }
    orvhost::TuneResult tuneUri(const std::string& uri, const orvhost::TuneOptions& options,
                                const sp<IBinder>& owner) override {
        check(owner != nullptr && uri.size() <= orvhost::MAX_TUNER_TEXT);
        check(options.timeoutMs >= 0 && options.timeoutMs <= MAX_TIMEOUT_MS);
        return {orvhost::TuneStatus::NoData, uri};
    }
    void untune() override {}
    orvhost::ServiceList services(int timeoutMs) override {
        check(timeoutMs >= 0 && timeoutMs <= MAX_TIMEOUT_MS);
        return {};
    }
    orvhost::TunerSignal signal() override { return {}; }
    std::vector<orvhost::SourceFault> takeFaults() override { return {}; }
    orvhost::BroadcastInformation information(int timeoutMs) override {
        check(timeoutMs >= 0 && timeoutMs <= MAX_TIMEOUT_MS);
        return {};
    }
};

// Answers everything with the same bytes.
class Echo : public android::BBinder {
public:
    Echo(const uint8_t* bytes, size_t size) : mBytes(bytes), mSize(size) {}

protected:
    status_t onTransact(uint32_t, const Parcel&, Parcel* reply, uint32_t) override {
        return reply->setData(mBytes, mSize);
    }

private:
    const uint8_t* const mBytes;
    const size_t mSize;
};

// A list that was understood crosses once more as it is, unless it was too long for a call.
void checkAgain(const orvhost::ServiceList& list) {
    Parcel parcel;
    orvhost::writeServiceList(&parcel, list);
    parcel.setDataPosition(0);
    orvhost::ServiceList again;
    check(orvhost::readServiceList(parcel, &again));
    check(again.services.size() <= list.services.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    static const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const uint8_t* const bytes = data + 2;
    size -= 2;
    const sp<StrictTuner> tuner(new StrictTuner);
    Parcel request;
    if ((data[1] & 1) != 0) {
        request.writeInterfaceToken(orvhost::ITuner::descriptor);
    }
    if ((data[1] & 2) != 0) {
        request.writeStrongBinder(tuner);
    }
    if ((data[1] & 4) != 0) {
        request.writeFileDescriptor(fd);
    }
    request.write(bytes, size);
    Parcel reply;
    tuner->transact(data[0], request, &reply);

    const sp<IBinder> hostile(new Echo(bytes, size));
    const sp<orvhost::ITuner> remote = orvhost::ITuner::asInterface(hostile);
    const orvhost::ServiceList list = remote->services(0);
    check(list.result.status == orvhost::TuneStatus::ServiceLost || list.services.size() <= 256);
    checkAgain(list);
    remote->tune(fd, "news", {});
    remote->tuneUri("udp://239.255.1.1:5000", {});
    remote->signal();
    const orvhost::BroadcastInformation information = remote->information(0);
    check(information.events.size() <= 512 && information.clock.ageMs >= 0);
    check(remote->takeFaults().size() <= orvhost::MAX_SOURCE_FAULTS);
    orvhost::PlaybackFigures figures;
    orvhost::IMonitor::asInterface(hostile)->figures(&figures);
    check(figures.beepsNs.size() <= orvhost::PlaybackFigures::MAX_BEEPS);
    orvhost::PresentationReport report;
    orvhost::IMonitor::asInterface(hostile)->presentation(&report);
    check(report.events.size() <= orvhost::PresentationReport::MAX_EVENTS);
    for (const orvhost::BufferFill& fill : report.fills) {
        check(fill.sizeBytes > 0 && fill.name.size() <= orvhost::PresentationReport::MAX_NAME);
    }
    return 0;
}
