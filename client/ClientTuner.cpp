#include "ClientTuner.h"

#include <unistd.h>

#include <algorithm>

#include "binder/CallTimeout.h"
#include "dtv/SourceFile.h"
#include "dtv/SourceUri.h"
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
    return tuner != nullptr ? tuner->tuneUri(address, options)
                            : TuneResult{TuneStatus::ServiceLost, error};
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
