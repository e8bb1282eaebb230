#pragma once

#include <orvclient/Tuner.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "Session.h"

namespace orvclient {

// The tuner of whichever service there is at the time of a call.
class ClientTuner : public Tuner {
public:
    // `session` answers null, and one line, when there is none.
    using FindSession = std::function<std::shared_ptr<Session>(std::string* error)>;

    // Calls answer ServiceLost when they last longer than they were told to by `patience`.
    ClientTuner(FindSession session, std::chrono::milliseconds patience)
        : mSession(std::move(session)), mPatience(patience) {}

    orvhost::TuneResult tune(const std::string& source,
                             const orvhost::TuneOptions& options) override;
    // The same for an open descriptor, which stays the caller's.
    orvhost::TuneResult tune(int fd, const std::string& name, const orvhost::TuneOptions& options);
    void untune() override;
    orvhost::ServiceList services(int timeoutMs) override;
    orvhost::TunerSignal signal() override;
    orvhost::BroadcastInformation information(int timeoutMs) override;
    std::vector<orvhost::SourceFault> takeFaults() override;

private:
    orvhost::TuneResult tuneUri(const std::string& uri, const orvhost::TuneOptions& options);
    static orvhost::TuneResult tuneSocket(orvhost::ITuner& tuner, const std::string& uri,
                                          const orvhost::TuneOptions& options);
    android::sp<orvhost::ITuner> find(std::string* error);

    const FindSession mSession;
    const std::chrono::milliseconds mPatience;
};

}  // namespace orvclient
