// tssender: a transport stream over UDP or RTP, at the pace of its PCR. See --help.

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>

#include "dtv/network/NetworkUri.h"
#include "sender/DatagramMaker.h"
#include "sender/FileFeed.h"
#include "sender/UdpSender.h"

namespace {

using orvhost::NetworkUri;

constexpr auto STEP = std::chrono::milliseconds(2);
constexpr double NS = 1e9;

struct Options {
    std::string file;
    std::string target;
    bool loop = false;
    int hops = 1;
    double durationS = 0.0;
    double ppm = 0.0;
    double dropPercent = 0.0;
    double duplicatePercent = 0.0;
    double reorderPercent = 0.0;
    uint64_t seed = 1;
    double restartS = -1.0;
    std::pair<double, double> stall{-1.0, 0.0};
    std::pair<double, double> outage{-1.0, 0.0};
};

volatile std::sig_atomic_t gStopped = 0;

void addOptions(CLI::App& app, Options& o) {
    const auto percent = CLI::Range(0.0, 100.0);
    app.add_option("FILE", o.file, "A transport stream file")->required();
    app.add_option("TO", o.target, "udp://[INTERFACE@]ADDRESS:PORT, or rtp://... for RTP")
        ->required();
    app.add_flag("--loop", o.loop, "Begin again at the end");
    app.add_option("--hops", o.hops, "Routers that multicast may pass; 0: stay on this machine")
        ->check(CLI::Range(0, 255));
    app.add_option("--duration", o.durationS, "Seconds to send, without end otherwise");
    app.add_option("--ppm", o.ppm, "How much the sender's clock is fast")
        ->check(CLI::Range(-100'000.0, 100'000.0));
    app.add_option("--drop", o.dropPercent, "Datagrams lost, in percent")->check(percent);
    app.add_option("--duplicate", o.duplicatePercent, "Datagrams sent twice")->check(percent);
    app.add_option("--reorder", o.reorderPercent, "Datagrams that come late")->check(percent);
    app.add_option("--seed", o.seed, "Of the random numbers");
    app.add_option("--restart", o.restartS, "From this second on another SSRC and numbers")
        ->type_name("AT");
    app.add_option("--stall", o.stall, "The sender stands still from a second on, for so long")
        ->delimiter(':')
        ->type_name("AT:SECONDS");
    app.add_option("--outage", o.outage, "The way is cut from a second on, for so long")
        ->delimiter(':')
        ->type_name("AT:SECONDS");
}

int fail(const std::string& message) {
    std::fprintf(stderr, "tssender: %s\n", message.c_str());
    return 1;
}

// One run; what happens at which second of it.
class Run {
public:
    Run(const Options& options, bool isRtp, orvtest::FileFeed& feed, orvtest::UdpSender& sender)
        : mOptions(options),
          mFeed(feed),
          mMaker(isRtp,
                 {options.dropPercent / 100, options.duplicatePercent / 100,
                  options.reorderPercent / 100, options.seed},
                 [this, &sender](const orvtest::DatagramMaker::Bytes& datagram) {
                     mFailed += sender.send(datagram) != 0 ? 1 : 0;
                     ++mSent;
                 }) {}

    void go() {
        const auto begin = std::chrono::steady_clock::now();
        auto next = begin;
        bool more = true;
        while (more && gStopped == 0) {
            const double elapsedS =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
            if (mOptions.durationS > 0.0 && elapsedS >= mOptions.durationS) {
                break;
            }
            if (!isStalled(elapsedS)) {
                more = step(elapsedS);
            }
            next += STEP;
            std::this_thread::sleep_until(next);
        }
        mMaker.flush();
    }

    void printFigures() const {
        std::printf(
            "{\"datagrams\":%llu,\"sent\":%llu,\"dropped\":%llu,\"duplicated\":%llu,"
            "\"reordered\":%llu,\"failed\":%llu}\n",
            static_cast<unsigned long long>(mMaker.made()), static_cast<unsigned long long>(mSent),
            static_cast<unsigned long long>(mMaker.dropped()),
            static_cast<unsigned long long>(mMaker.duplicated()),
            static_cast<unsigned long long>(mMaker.reordered()),
            static_cast<unsigned long long>(mFailed));
    }

private:
    static bool isWithin(double atS, const std::pair<double, double>& span) {
        return span.first >= 0.0 && atS >= span.first && atS < span.first + span.second;
    }

    bool isStalled(double elapsedS) {
        if (!isWithin(elapsedS, mOptions.stall)) {
            return false;
        }
        if (!std::exchange(mHasStalled, true)) {
            mFeed.pause(static_cast<int64_t>(mOptions.stall.second * NS));
        }
        return true;
    }

    bool step(double elapsedS) {
        if (mOptions.restartS >= 0.0 && elapsedS >= mOptions.restartS &&
            !std::exchange(mHasRestarted, true)) {
            mMaker.restart();
        }
        mMaker.setOutage(isWithin(elapsedS, mOptions.outage));
        const double streamS = elapsedS * (1.0 + mOptions.ppm * 1e-6);
        const auto time90k = static_cast<uint32_t>(static_cast<uint64_t>(streamS * 90'000));
        return mFeed.feed(static_cast<int64_t>(streamS * NS),
                          [this, time90k](const uint8_t* p) { mMaker.add(p, time90k); });
    }

    const Options& mOptions;
    orvtest::FileFeed& mFeed;
    orvtest::DatagramMaker mMaker;
    bool mHasStalled = false;
    bool mHasRestarted = false;
    uint64_t mSent = 0;
    uint64_t mFailed = 0;
};

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Sends a transport stream over UDP or RTP at the pace of its PCR, with faults that "
        "are the same every time. Prints what it sent.");
    Options options;
    addOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    std::string error;
    const std::string target = orvhost::withAddress(options.target, &error);
    const auto uri = target.empty() ? std::nullopt : NetworkUri::parse(target, &error);
    if (!uri) {
        return fail(error);
    }
    const auto sender = orvtest::UdpSender::open(*uri, options.hops, {}, &error);
    if (sender == nullptr) {
        return fail(error);
    }
    const auto feed = orvtest::FileFeed::open(options.file, options.loop, &error);
    if (feed == nullptr) {
        return fail(error);
    }
    std::signal(SIGINT, [](int) { gStopped = 1; });
    std::signal(SIGTERM, [](int) { gStopped = 1; });
    Run run(options, uri->scheme == "rtp", *feed, *sender);
    run.go();
    run.printFigures();
    return 0;
}
