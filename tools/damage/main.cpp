// tsdamage: a damaged or unusual copy of a transport stream. See --help.

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "damage/TsDamage.h"

namespace {

struct Options {
    std::string in;
    std::string out;
    uint64_t seed = 1;
    double bitErrors = 0.0;
    double loss = 0.0;
    double transportErrors = 0.0;
    double scrambling = 0.0;
    double swaps = 0.0;
    double duplicates = 0.0;
    size_t burst = 0;
    size_t slips = 0;
    size_t cutHead = 0;
    size_t garbage = 0;
    std::vector<std::pair<double, double>> gaps;      // from and length, in seconds
    std::vector<std::pair<double, double>> pcrJumps;  // from and step
    std::vector<uint16_t> removed;
    std::vector<uint16_t> lying;
    std::vector<uint16_t> privateId;
    std::vector<uint16_t> merged;
    std::vector<uint16_t> withoutDelimiters;
    bool emptyPmt = false;
    bool timestamped = false;
};

void addOptions(CLI::App& app, Options& o) {
    app.add_option("IN", o.in, "A transport stream file")->required();
    app.add_option("OUT", o.out, "Where to write")->required();
    app.add_option("--seed", o.seed, "Of the random numbers");
    app.add_option("--bit-errors", o.bitErrors, "Flipped bits, a bit");
    app.add_option("--loss", o.loss, "Lost packets, a packet");
    app.add_option("--burst", o.burst, "Four holes of so many packets");
    app.add_option("--transport-errors", o.transportErrors, "Packets marked bad, a packet");
    app.add_option("--scrambling", o.scrambling, "Packets marked scrambled, a packet");
    app.add_option("--swap", o.swaps, "Packets behind their successor, a packet");
    app.add_option("--duplicate", o.duplicates, "Packets sent twice, a packet");
    app.add_option("--slips", o.slips, "How often to take out 1 to 187 bytes");
    app.add_option("--cut-head", o.cutHead, "Packets to leave out at the beginning");
    app.add_option("--garbage", o.garbage, "Bytes of garbage before the first packet");
    app.add_option("--gap", o.gaps,
                   "Nothing is received from a second of the stream on, for so long")
        ->delimiter(':')
        ->type_name("AT:SECONDS");
    app.add_option("--pcr-jump", o.pcrJumps,
                   "PCRs are so much later from a second of the stream on")
        ->delimiter(':')
        ->type_name("AT:SECONDS");
    app.add_option("--remove-pid", o.removed, "PIDs to leave out");
    app.add_option("--wrong-pes-length", o.lying, "PIDs whose PES lengths lie");
    app.add_option("--private-stream-id", o.privateId, "PIDs that get the stream id 0xBD");
    app.add_option("--merge-pes", o.merged, "PIDs with two units in a PES packet");
    app.add_option("--no-delimiters", o.withoutDelimiters, "PIDs of H.264 without delimiters");
    app.add_flag("--empty-pmt", o.emptyPmt, "PMTs without streams");
    app.add_flag("--192", o.timestamped, "Packets of 192 bytes");
}

std::vector<uint8_t> damaged(const Options& o, std::vector<uint8_t> bytes) {
    constexpr uint8_t PRIVATE_STREAM_1 = 0xBD;
    constexpr size_t BURSTS = 4;
    orvtest::TsDamage stream(std::move(bytes), o.seed);
    stream.cutHead(o.cutHead);
    for (const uint16_t pid : o.removed) {
        stream.removePid(pid);
    }
    for (const uint16_t pid : o.lying) {
        stream.lieAboutPesLengths(pid);
    }
    for (const uint16_t pid : o.privateId) {
        stream.setStreamId(pid, PRIVATE_STREAM_1);
    }
    for (const uint16_t pid : o.merged) {
        stream.mergePesPackets(pid);
    }
    for (const uint16_t pid : o.withoutDelimiters) {
        stream.hideAccessUnitDelimiters(pid);
    }
    if (o.emptyPmt) {
        stream.emptyPmts();
    }
    for (const auto& [fromS, stepS] : o.pcrJumps) {
        stream.jumpPcr(std::llround(stepS * 27e6), fromS);
    }
    for (const auto& [fromS, lengthS] : o.gaps) {
        stream.loseSpan(fromS, lengthS);
    }
    stream.duplicatePackets(o.duplicates);
    stream.swapNeighbours(o.swaps);
    stream.losePackets(o.loss);
    if (o.burst > 0) {
        stream.loseBursts(o.burst, BURSTS);
    }
    stream.setTransportErrors(o.transportErrors);
    stream.setScramblingBits(o.scrambling);
    stream.flipBits(o.bitErrors);
    if (o.timestamped) {
        stream.toTimestampedPackets();
    }
    stream.slipBytes(o.slips);
    stream.prependGarbage(o.garbage);
    return stream.take();
}

int fail(const std::string& path) {
    std::fprintf(stderr, "tsdamage: %s: %s\n", path.c_str(), std::strerror(errno));
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Makes a damaged or unusual copy of a transport stream, the same every time.");
    Options options;
    addOptions(app, options);
    app.set_config("--faults", "", "Options from a file: a line \"gap=10:6\" for each");
    CLI11_PARSE(app, argc, argv);
    std::ifstream in(options.in, std::ios::binary);
    if (!in) {
        return fail(options.in);
    }
    const std::vector<uint8_t> bytes =
        damaged(options, {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()});
    std::ofstream out(options.out, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.close();
    return out ? 0 : fail(options.out);
}
