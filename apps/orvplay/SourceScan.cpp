#include "SourceScan.h"

#include <chrono>
#include <thread>

#include "Interrupt.h"
#include "MonotonicTime.h"
#include "channels/ScannedChannels.h"
#include "dtv/Tuner.h"

using orvhost::Tuner;
using orvhost::TuneResult;
using orvhost::TuneStatus;

namespace orvplay {

namespace {

constexpr int STEP_MS = 100;          // how soon an interruption counts
constexpr int TABLES_MS = 10'000;     // for the services
constexpr int INFORMATION_MS = 4000;  // for the rest, behind them

// Ends the tuner's waits when the user interrupts the program.
class InterruptWatch {
public:
    InterruptWatch()
        : mThread([](const std::stop_token& stop) {
              // Again and again: what is just being opened is tuned a moment later.
              while (!stop.stop_requested()) {
                  std::this_thread::sleep_for(std::chrono::milliseconds(STEP_MS / 4));
                  if (Interrupt::requested()) {
                      Tuner::instance().untune();
                  }
              }
          }) {}

private:
    std::jthread mThread;
};

// Asks in steps, until the answer is whole, the source has ended or the time is over.
template <typename Ask, typename IsWhole>
auto askPatiently(int timeoutMs, Ask ask, IsWhole isWhole) {
    const int64_t endNs = monotonicNs() + timeoutMs * int64_t{1'000'000};
    for (;;) {
        const bool wasAtEnd = Tuner::instance().atEnd();
        const int64_t askedNs = monotonicNs();
        auto answer = ask(STEP_MS);
        if (isWhole(answer) || wasAtEnd || Interrupt::requested() || monotonicNs() >= endNs) {
            return answer;
        }
        // An answer may come at once when there is nothing to wait for.
        const int64_t leftNs = askedNs + STEP_MS * int64_t{1'000'000} - monotonicNs();
        std::this_thread::sleep_for(std::chrono::nanoseconds(leftNs > 0 ? leftNs : 0));
    }
}

}  // namespace

TuneResult SourceScan::run(const std::string& source, std::vector<Channel>* channels) {
    Tuner& tuner = Tuner::instance();
    const InterruptWatch watch;
    orvhost::TuneOptions tuning;
    tuning.paced = false;
    tuning.freeRunning = true;
    tuning.timeoutMs = mTimeoutMs;
    if (TuneResult tuned = tuner.tune(source, tuning); !tuned.ok()) {
        return tuned;
    }
    const auto list = askPatiently(
        TABLES_MS, [&](int ms) { return tuner.services(ms); },
        [](const orvhost::ServiceList& answer) { return !answer.services.empty(); });
    const auto information = askPatiently(
        INFORMATION_MS, [&](int ms) { return tuner.information(ms); },
        [&](const orvhost::BroadcastInformation& answer) {
            return answer.clock.utcS >= 0 && answer.networkId >= 0;
        });
    // By then the last tables have come.
    const orvhost::ServiceList whole = tuner.services(0);
    tuner.untune();
    if (Interrupt::requested()) {
        return {TuneStatus::Cancelled, source + ": given up"};  // names and numbers may be missing
    }
    *channels =
        scannedChannels(whole.services.empty() ? list.services : whole.services, information);
    if (channels->empty() && list.result.ok()) {
        return {TuneStatus::NoTables, source + ": no service with picture or sound"};
    }
    return list.result;
}

}  // namespace orvplay
