// orv_loss: what the player loses of damaged copies of a transport stream. See --help.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "loss/LossTable.h"

namespace {

constexpr char EXPLANATION[] =
    "One row a damage: the packets, the PES packets and the units (pictures, audio frames) that it "
    "hits, and what the receiver, the parsers and the extractors lose. A row holds when nothing is "
    "lost but what was hit, or stood beside a hole: a PES packet is known to be whole only when "
    "the next one starts, and the start right behind a hole is recognised but not kept. Pictures "
    "before the first SPS that comes (no SPS) are nobody's to decode. Exit code 1 when a row does "
    "not hold.";

void print(const orvtest::LossRow& row) {
    std::printf("%-22s %8zu %7zu %7zu %9zu %7zu %9zu %7zu %7zu %9zu  %s\n", row.damage.c_str(),
                row.packetsHit, row.pesHit, row.pesBesides, row.pesDelivered, row.pesLost,
                row.unitsDelivered, row.unitsLost, row.unitsWaited, row.restamped,
                row.verdict().c_str());
    std::fflush(stdout);
}

int fail(const std::string& message) {
    std::fprintf(stderr, "orv_loss: %s\n", message.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(EXPLANATION);
    std::string path;
    size_t seeds = 3;
    app.add_option("SAMPLE", path, "A sound transport stream file")->required();
    app.add_option("--seeds", seeds, "How often random damage is done")->check(CLI::Range(1, 1000));
    CLI11_PARSE(app, argc, argv);

    setenv("ORV_TRACE", "off", 0);  // every damage has its message
    std::ifstream in(path, std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                     std::istreambuf_iterator<char>()};
    orvplay::StreamSelection selection;
    std::string error = path + " cannot be read";
    if (bytes.empty() || !orvtest::selectFirstService(bytes, &selection, &error)) {
        return fail(error);
    }
    orvtest::LossTable table(bytes, selection, seeds);
    if (!table.usable()) {
        return fail("picture and sound are needed, and " + path + " has not both");
    }
    std::printf("%-22s %8s %7s %7s %9s %7s %9s %7s %7s %9s  %s\n", "damage", "packets", "PES",
                "beside", "PES come", "lost", "units", "lost", "no SPS", "restamped", "verdict");
    const std::vector<orvtest::LossRow> rows = table.measure(print);
    const bool holds = std::all_of(rows.begin(), rows.end(),
                                   [](const orvtest::LossRow& row) { return row.holds(); });
    return holds ? 0 : 1;
}
