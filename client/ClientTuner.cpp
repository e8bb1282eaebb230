#include "ClientTuner.h"

#include <unistd.h>

#include <algorithm>

#include "binder/CallTimeout.h"
#include "dtv/SourceFile.h"
#include "dtv/SourceUri.h"
#include "dtv/network/DatagramSocket.h"
#include "dtv/network/NetworkUri.h"

using android::sp;
using orvhost::CallTimeout;
using orvhost::ITuner;
using orvhost::TuneResult;
using orvhost::TuneStatus;

namespace orvclient {

namespace {

std::chrono::milliseconds waitOf(int timeoutMs) {
    return std::chrono::milliseconds(std::clamp(timeoutMs, 0, ITuner::MAX_TIMEOUT_MS));
}

}  // namespace

// Looks for the service while the thread's time is bounded already.
sp<ITuner> ClientTuner::find(std::string* error) {
    const std::shared_ptr<Session> session = mSession(error);
    return session != nullptr ? session->tuner(error) : nullptr;
}

TuneResult ClientTuner::tune(const std::string& source, const orvhost::TuneOptions& options) {
    if (orvhost::SourceUri::isUri(source)) {
        return tuneUri(source, options);
    }
    TuneResult opened;
    const int fd = orvhost::openSourceFile(source, opened);
    if (fd < 0) {
        return opened;
    }
    const TuneResult result = tune(fd, orvhost::sourceNameOf(source), options);
    close(fd);
    return result;
}

// A name is looked up here, where only this program waits for the answer.
TuneResult ClientTuner::tuneUri(const std::string& uri, const orvhost::TuneOptions& options) {
    std::string error;
    const std::string address = orvhost::withAddress(uri, &error);
    if (address.empty()) {
        return {TuneStatus::CannotOpen, error};
    }
    const CallTimeout bound(waitOf(options.timeoutMs) + mPatience);
    const sp<ITuner> tuner = find(&error);
    if (tuner == nullptr) {
        return {TuneStatus::ServiceLost, error};
    }
    const TuneResult result = tuner->tuneUri(address, options);
    return result.status == TuneStatus::NeedsSocket ? tuneSocket(*tuner, address, options) : result;
}

// The service may be confined to sockets of this machine: those of a network are opened here.
TuneResult ClientTuner::tuneSocket(ITuner& tuner, const std::string& uri,
                                   const orvhost::TuneOptions& options) {
    TuneResult failure{TuneStatus::BadUri, {}};
    const auto parsed = orvhost::NetworkUri::parse(uri, &failure.message);
    const auto socket = parsed ? orvhost::DatagramSocket::open(*parsed, failure) : nullptr;
    return socket != nullptr ? tuner.tune(socket->descriptor(), uri, options) : failure;
}

TuneResult ClientTuner::tune(int fd, const std::string& name, const orvhost::TuneOptions& options) {
    const CallTimeout bound(waitOf(options.timeoutMs) + mPatience);
    std::string error;
    const sp<ITuner> tuner = find(&error);
    return tuner != nullptr ? tuner->tune(fd, name, options)
                            : TuneResult{TuneStatus::ServiceLost, error};
}

void ClientTuner::untune() {
    const CallTimeout bound(mPatience);
    std::string error;
    if (const sp<ITuner> tuner = find(&error); tuner != nullptr) {
        tuner->untune();
    }
}

orvhost::ServiceList ClientTuner::services(int timeoutMs) {
    const CallTimeout bound(waitOf(timeoutMs) + mPatience);
    std::string error;
    const sp<ITuner> tuner = find(&error);
    if (tuner == nullptr) {
        orvhost::ServiceList none;
        none.result = {TuneStatus::ServiceLost, error};
        return none;
    }
    return tuner->services(timeoutMs);
}

orvhost::TunerSignal ClientTuner::signal() {
    const CallTimeout bound(mPatience);
    std::string error;
    const sp<ITuner> tuner = find(&error);
    return tuner != nullptr ? tuner->signal() : orvhost::TunerSignal();
}

std::vector<orvhost::SourceFault> ClientTuner::takeFaults() {
    const CallTimeout bound(mPatience);
    std::string error;
    const sp<ITuner> tuner = find(&error);
    return tuner != nullptr ? tuner->takeFaults() : std::vector<orvhost::SourceFault>();
}

orvhost::BroadcastInformation ClientTuner::information(int timeoutMs) {
    const CallTimeout bound(waitOf(timeoutMs) + mPatience);
    std::string error;
    const sp<ITuner> tuner = find(&error);
    if (tuner == nullptr) {
        orvhost::BroadcastInformation none;
        none.result = {TuneStatus::ServiceLost, error};
        return none;
    }
    return tuner->information(timeoutMs);
}

}  // namespace orvclient
