// Whole runs on damaged and unusual copies of a sample: the program goes on, shows what is whole,
// and ends by itself.

#include <gtest/gtest.h>

#include <condition_variable>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "damage/TsDamage.h"
#include "programs/Program.h"
#include "support/TempFile.h"

namespace orvtest {
namespace {

constexpr uint16_t VIDEO_PID = 273;
constexpr uint16_t AUDIO_PID = 274;
constexpr int64_t HOUR_27M = int64_t{3600} * 27'000'000;

constexpr size_t AT_ONCE = SANITIZED ? 5 : 10;

struct Case {
    const char* name;
    std::function<void(TsDamage&)> damage;
    uint64_t pictures;  // of about 90 in the time played
};

const std::vector<Case> CASES = {
    // Legal or common, if unusual: nothing is lost.
    {"starts in the middle of a GOP", [](TsDamage& s) { s.cutHead(1234); }, 75},
    {"garbage before the first packet", [](TsDamage& s) { s.prependGarbage(5000); }, 80},
    {"packets of 192 bytes", [](TsDamage& s) { s.toTimestampedPackets(); }, 80},
    {"sound in private stream 1", [](TsDamage& s) { s.setStreamId(AUDIO_PID, 0xBD); }, 80},
    {"PES lengths that lie", [](TsDamage& s) { s.lieAboutPesLengths(VIDEO_PID); }, 80},
    {"two pictures in a PES packet", [](TsDamage& s) { s.mergePesPackets(VIDEO_PID); }, 80},
    {"PCR jumps an hour ahead", [](TsDamage& s) { s.jumpPcr(HOUR_27M); }, 45},
    {"PCR jumps an hour back", [](TsDamage& s) { s.jumpPcr(-HOUR_27M); }, 45},
    // Damage: what is whole is shown.
    {"lost packets 1e-4", [](TsDamage& s) { s.losePackets(1e-4); }, 45},
    {"lost packets 1e-2", [](TsDamage& s) { s.losePackets(1e-2); }, 10},
    {"lost packets 5e-2", [](TsDamage& s) { s.losePackets(5e-2); }, 0},
    {"holes of 100 packets", [](TsDamage& s) { s.loseBursts(100, 4); }, 45},
    {"bit errors 1e-6", [](TsDamage& s) { s.flipBits(1e-6); }, 45},
    {"bit errors 1e-4", [](TsDamage& s) { s.flipBits(1e-4); }, 10},
    {"bit errors 1e-3", [](TsDamage& s) { s.flipBits(1e-3); }, 0},
    {"packets marked bad", [](TsDamage& s) { s.setTransportErrors(1e-3); }, 45},
    {"scrambling bits", [](TsDamage& s) { s.setScramblingBits(1e-3); }, 45},
    {"swapped packets", [](TsDamage& s) { s.swapNeighbours(1e-3); }, 45},
    {"packets sent twice", [](TsDamage& s) { s.duplicatePackets(1e-3); }, 45},
    {"slipped bytes", [](TsDamage& s) { s.slipBytes(3); }, 45},
};

std::vector<uint8_t> smallSample() {
    std::ifstream file(ORV_SAMPLES_DIR "/small.ts", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Lets so many runs at a time go.
class Turnstile {
public:
    void enter() {
        std::unique_lock<std::mutex> guard(mLock);
        mLeft.wait(guard, [this] { return mInside < AT_ONCE; });
        ++mInside;
    }
    void leave() {
        std::lock_guard<std::mutex> guard(mLock);
        --mInside;
        mLeft.notify_one();
    }

private:
    std::mutex mLock;
    std::condition_variable mLeft;
    size_t mInside = 0;
};

ProgramResult play(const Case& test, const std::vector<uint8_t>& sample, Turnstile& turnstile) {
    TsDamage stream(sample);
    test.damage(stream);
    const TempFile file(stream.take());
    turnstile.enter();
    const ProgramResult result =
        runProgram({"play", file.path(), "--headless", "--json", "--duration", "3"}, 60);
    turnstile.leave();
    return result;
}

TEST(PlayDamagedTest, GoesOnAndShowsWhatIsWhole) {
    const std::vector<uint8_t> sample = smallSample();
    ASSERT_FALSE(sample.empty());
    Turnstile turnstile;
    std::vector<std::future<ProgramResult>> runs;
    for (const Case& test : CASES) {
        runs.push_back(std::async(std::launch::async, [&test, &sample, &turnstile] {
            return play(test, sample, turnstile);
        }));
    }
    for (size_t i = 0; i < CASES.size(); ++i) {
        SCOPED_TRACE(CASES[i].name);
        const ProgramResult result = runs[i].get();
        const nlohmann::json summary = result.summary();
        ASSERT_TRUE(summary.contains("framesRendered")) << result.out << result.err;
        SCOPED_TRACE(summary.dump() + "\n" + result.err.substr(0, 1000));
        EXPECT_FALSE(result.timedOut);
        // Where all key pictures are hit nothing can be shown, which is the code 5.
        const bool nothing = CASES[i].pictures == 0 && summary["framesRendered"] == 0;
        EXPECT_EQ(result.exitCode, nothing ? 5 : 0);
        EXPECT_GE(summary["framesRendered"], SANITIZED ? CASES[i].pictures / 4 : CASES[i].pictures);
    }
}

// What can never be shown is said in one line, and is no success.
TEST(PlayDamagedTest, SaysWhatIsMissing) {
    struct {
        std::function<void(TsDamage&)> damage;
        std::vector<std::string> options;
        int exitCode;
        const char* message;
    } const cases[] = {
        {[](TsDamage& s) { s.emptyPmts(); }, {}, 8, "nothing to play"},
        {[](TsDamage& s) { s.removePid(AUDIO_PID); },
         {},
         5,
         "no sound can be decoded from PID 274"},
        {[](TsDamage& s) { s.removePid(VIDEO_PID); },
         {},
         5,
         "no picture can be decoded from PID 273"},
        {[](TsDamage&) {}, {"--audio-pid", "0"}, 5, "the service has no sound"},
        {[](TsDamage&) {}, {"--video-pid", "0"}, 5, "the service has no picture"},
        {[](TsDamage& s) { s.setScramblingBits(1); },
         {"--video-pid", "273", "--pcr-pid", "511"},
         6,
         "scrambled"},
    };
    std::vector<std::unique_ptr<TempFile>> files;
    std::vector<std::future<ProgramResult>> runs;
    for (const auto& test : cases) {
        std::vector<uint8_t> bytes = smallSample();
        bytes.resize(bytes.size() / 3);
        TsDamage stream(bytes);
        test.damage(stream);
        files.push_back(std::make_unique<TempFile>(stream.take()));
        std::vector<std::string> arguments = {"play", files.back()->path(), "--headless"};
        arguments.insert(arguments.end(), test.options.begin(), test.options.end());
        runs.push_back(
            std::async(std::launch::async, [arguments] { return runProgram(arguments, 60); }));
    }
    for (size_t i = 0; i < runs.size(); ++i) {
        const ProgramResult result = runs[i].get();
        SCOPED_TRACE(cases[i].message);
        EXPECT_EQ(result.exitCode, cases[i].exitCode) << result.err;
        EXPECT_NE(result.err.find(cases[i].message), std::string::npos) << result.err;
    }
}

}  // namespace
}  // namespace orvtest
