#pragma once

#include <binder/IInterface.h>
#include <dtv/BroadcastTypes.h>
#include <dtv/TunerTypes.h>

#include <string>

namespace orvhost {

// The tuner as a binder service, "OrvTuner": what the player's demultiplexer is fed with is chosen
// here. Any thread.
//
// The source belongs to the client that tuned. When that client's process ends, the tuner is
// untuned; when another client tunes, the source is that one's.
//
//   code  operation  request after the token                     reply
//   1     tune       owner binder, descriptor, name, options     result
//   2     untune     -                                           -
//   3     services   int32 milliseconds                          services
//   4     signal     -                                           signal
//   5     information  int32 milliseconds                        information
//   6     tuneUri    owner binder, URI, options                  result
//   7     faults     -                                           faults
//
// TunerParcel.h of the host tells how structures stand in a parcel.
class ITuner : public android::IInterface {
public:
    static const android::String16& descriptor;
    static android::sp<ITuner> asInterface(const android::sp<android::IBinder>& binder);

    static constexpr char SERVICE_NAME[] = "OrvTuner";

    // Longest wait that a caller may ask for; more is cut to it.
    static constexpr int MAX_TIMEOUT_MS = 30'000;

    enum Code : uint32_t {
        TUNE = android::IBinder::FIRST_CALL_TRANSACTION,
        UNTUNE,
        SERVICES,
        SIGNAL,
        INFORMATION,
        TUNE_URI,
        FAULTS,
    };

    // See Tuner::tune(). The descriptor is a file's, or a socket's that was opened for the URI in
    // `displayName`. It stays the caller's and may be closed after the call, which
    // waits for packets up to options.timeoutMs. `owner` is an object of the client that tunes:
    // the service watches its process. Null from a client means the proxy's own.
    virtual TuneResult tune(int fd, const std::string& displayName, const TuneOptions& options,
                            const android::sp<android::IBinder>& owner = nullptr) = 0;
    // The same for a source that is no file: "dvb://0?frequency=473142857". What comes over a
    // network goes on where it is tuned already; else the answer is NeedsSocket, with nothing
    // tuned: the client, whose rights they are, opens the socket (DatagramSocket) and calls tune().
    // Names of hosts are looked up by the client beforehand (withAddress()).
    virtual TuneResult tuneUri(const std::string& uri, const TuneOptions& options,
                               const android::sp<android::IBinder>& owner = nullptr) = 0;
    // Ends tune() and services() that wait in other threads.
    virtual void untune() = 0;
    // See Tuner::services().
    virtual ServiceList services(int timeoutMs) = 0;
    virtual TunerSignal signal() = 0;
    // See Tuner::information().
    virtual BroadcastInformation information(int timeoutMs) = 0;
    // See Tuner::takeFaults(): one caller gets each of them.
    virtual std::vector<SourceFault> takeFaults() = 0;
};

// The side that implements takes parcels apart here; whatever a hostile parcel holds, an operation
// is called with values in their ranges, or not at all (BAD_VALUE).
class BnTuner : public android::BnInterface<ITuner> {
public:
    bool isBrief(uint32_t code) const override { return code == SIGNAL || code == FAULTS; }

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;
};

}  // namespace orvhost
