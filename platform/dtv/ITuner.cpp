#include <dtv/ITuner.h>

#include <algorithm>

#include "dtv/TunerParcel.h"

namespace orvhost {

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;

TuneResult failure(status_t status) {
    switch (status) {
        case android::DEAD_OBJECT:
            return {TuneStatus::ServiceLost, "the player service is gone; start it again"};
        case android::TIMED_OUT:
            return {TuneStatus::ServiceLost, "the player service does not answer"};
        case android::PERMISSION_DENIED:
            return {TuneStatus::ServiceLost,
                    "the player service refuses this user; run it as the same one"};
        default:
            return {TuneStatus::ServiceLost, "the tuner gave no answer that makes sense (" +
                                                 std::to_string(status) +
                                                 "); program and service must be of one version"};
    }
}

class BpTuner : public android::BpInterface<ITuner> {
public:
    explicit BpTuner(const sp<IBinder>& remote)
        : BpInterface<ITuner>(remote), mOwner(new android::BBinder) {}

    TuneResult tune(int fd, const std::string& displayName, const TuneOptions& options,
                    const sp<IBinder>& owner) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeStrongBinder(owner != nullptr ? owner : mOwner);
        status_t status = data.writeFileDescriptor(fd);
        writeText(&data, displayName);
        writeTuneOptions(&data, options);
        Parcel reply;
        status = status == android::OK ? remote()->transact(TUNE, data, &reply) : status;
        TuneResult result;
        return status != android::OK            ? failure(status)
               : readTuneResult(reply, &result) ? result
                                                : failure(android::BAD_VALUE);
    }

    TuneResult tuneUri(const std::string& uri, const TuneOptions& options,
                       const sp<IBinder>& owner) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeStrongBinder(owner != nullptr ? owner : mOwner);
        writeText(&data, uri);
        writeTuneOptions(&data, options);
        Parcel reply;
        const status_t status = remote()->transact(TUNE_URI, data, &reply);
        TuneResult result;
        return status != android::OK            ? failure(status)
               : readTuneResult(reply, &result) ? result
                                                : failure(android::BAD_VALUE);
    }

    void untune() override {
        Parcel reply;
        call(UNTUNE, &reply);
    }

    ServiceList services(int timeoutMs) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeInt32(timeoutMs);
        Parcel reply;
        const status_t status = remote()->transact(SERVICES, data, &reply);
        ServiceList list;
        if (status != android::OK || !readServiceList(reply, &list)) {
            list = {};
            list.result = failure(status != android::OK ? status : android::BAD_VALUE);
        }
        return list;
    }

    TunerSignal signal() override {
        Parcel reply;
        TunerSignal signal;
        return call(SIGNAL, &reply) == android::OK && readTunerSignal(reply, &signal)
                   ? signal
                   : TunerSignal();
    }

    BroadcastInformation information(int timeoutMs) override {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeInt32(timeoutMs);
        Parcel reply;
        const status_t status = remote()->transact(INFORMATION, data, &reply);
        BroadcastInformation information;
        if (status != android::OK || !readBroadcastInformation(reply, &information)) {
            information = {};
            information.result = failure(status != android::OK ? status : android::BAD_VALUE);
        }
        return information;
    }

    std::vector<SourceFault> takeFaults() override {
        Parcel reply;
        std::vector<SourceFault> faults;
        return call(FAULTS, &reply) == android::OK && readSourceFaults(reply, &faults)
                   ? faults
                   : std::vector<SourceFault>();
    }

private:
    status_t call(uint32_t code, Parcel* reply) {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        return remote()->transact(code, data, reply);
    }

    const sp<IBinder> mOwner;  // what the service watches this process by
};

}  // namespace

// Never destroyed: threads may look at it while the process ends.
const android::String16& ITuner::descriptor = *new android::String16(SERVICE_NAME);

sp<ITuner> ITuner::asInterface(const sp<IBinder>& binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    const sp<android::IInterface> local = binder->queryLocalInterface(descriptor);
    return local != nullptr ? sp<ITuner>(static_cast<ITuner*>(local.get())) : new BpTuner(binder);
}

status_t BnTuner::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (code < TUNE || code > FAULTS) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.checkInterface(this)) {
        return android::PERMISSION_DENIED;
    }
    Parcel unasked;  // of a one-way call
    Parcel* const answer = reply != nullptr ? reply : &unasked;
    switch (code) {
        case TUNE: {
            const sp<IBinder> owner = data.readStrongBinder();
            const int fd = data.readFileDescriptor();
            std::string name;
            TuneOptions options;
            if (owner == nullptr || fd < 0 || !readText(data, &name) ||
                !readTuneOptions(data, &options)) {
                return android::BAD_VALUE;
            }
            writeTuneResult(answer, tune(fd, name, options, owner));
            return android::OK;
        }
        case UNTUNE:
            untune();
            return android::OK;
        case SERVICES: {
            int32_t timeoutMs = 0;
            if (data.readInt32(&timeoutMs) != android::OK) {
                return android::BAD_VALUE;
            }
            writeServiceList(answer, services(std::clamp(timeoutMs, 0, MAX_TIMEOUT_MS)));
            return android::OK;
        }
        case INFORMATION: {
            int32_t timeoutMs = 0;
            if (data.readInt32(&timeoutMs) != android::OK) {
                return android::BAD_VALUE;
            }
            writeBroadcastInformation(answer,
                                      information(std::clamp(timeoutMs, 0, MAX_TIMEOUT_MS)));
            return android::OK;
        }
        case FAULTS:
            writeSourceFaults(answer, takeFaults());
            return android::OK;
        case TUNE_URI: {
            const sp<IBinder> owner = data.readStrongBinder();
            std::string uri;
            TuneOptions options;
            if (owner == nullptr || !readText(data, &uri) || !readTuneOptions(data, &options)) {
                return android::BAD_VALUE;
            }
            writeTuneResult(answer, tuneUri(uri, options, owner));
            return android::OK;
        }
        default:
            writeTunerSignal(answer, signal());
            return android::OK;
    }
}

}  // namespace orvhost
