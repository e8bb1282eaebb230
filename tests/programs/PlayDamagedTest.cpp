// Whole runs on damaged and unusual copies of a sample: the program goes on, shows what is whole,
// and ends by itself.

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "damage/PesHits.h"
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
    // Damage: what is whole is shown.
    {"lost packets 1e-4", [](TsDamage& s) { s.losePackets(1e-4); }, 45},
    {"lost packets 1e-2", [](TsDamage& s) { s.losePackets(1e-2); }, 10},
    {"lost packets 5e-2", [](TsDamage& s) { s.losePackets(5e-2); }, 0},
    {"bit errors 1e-6", [](TsDamage& s) { s.flipBits(1e-6); }, 45},
    {"bit errors 1e-4", [](TsDamage& s) { s.flipBits(1e-4); }, 10},
    {"bit errors 1e-3", [](TsDamage& s) { s.flipBits(1e-3); }, 0},
    {"packets marked bad", [](TsDamage& s) { s.setTransportErrors(1e-3); }, 45},
    {"scrambling bits", [](TsDamage& s) { s.setScramblingBits(1e-3); }, 45},
    {"swapped packets", [](TsDamage& s) { s.swapNeighbours(1e-3); }, 45},
    {"packets sent twice", [](TsDamage& s) { s.duplicatePackets(1e-3); }, 45},
};

std::vector<uint8_t> smallSample() {
    std::ifstream file(ORV_SAMPLES_DIR "/small.ts", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Lets so many runs at a time go.
class Turnstile {
public:
    explicit Turnstile(size_t atOnce) : mAtOnce(atOnce) {}

    void enter() {
        std::unique_lock<std::mutex> guard(mLock);
        mLeft.wait(guard, [this] { return mInside < mAtOnce; });
        ++mInside;
    }
    void leave() {
        std::lock_guard<std::mutex> guard(mLock);
        --mInside;
        mLeft.notify_one();
    }

private:
    const size_t mAtOnce;
    std::mutex mLock;
    std::condition_variable mLeft;
    size_t mInside = 0;
};

ProgramResult play(const std::vector<uint8_t>& bytes, const std::string& seconds,
                   Turnstile& turnstile) {
    const TempFile file(bytes);
    turnstile.enter();
    const ProgramResult result =
        runProgram({"play", file.path(), "--headless", "--json", "--duration", seconds}, 60);
    turnstile.leave();
    return result;
}

TEST(PlayDamagedTest, GoesOnAndShowsWhatIsWhole) {
    const std::vector<uint8_t> sample = smallSample();
    ASSERT_FALSE(sample.empty());
    Turnstile turnstile(AT_ONCE);
    std::vector<std::future<ProgramResult>> runs;
    for (const Case& test : CASES) {
        runs.push_back(std::async(std::launch::async, [&test, &sample, &turnstile] {
            TsDamage stream(sample);
            test.damage(stream);
            return play(stream.take(), "3", turnstile);
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

// ---- one hole
//
// A part of the sample is damaged, the rest is clean: how long does the last picture before it
// stand? Until the first picture that can be decoded again is due, and 0.1 s; 1.1 s where 25 frame
// periods or more are missing. Where the time base jumps, what the player holds is lost as well.

constexpr double FRAME_MS = 1001.0 / 30;
constexpr size_t LONG_HOLE_FRAMES = 25;
constexpr double LIVE_DELAY_MS = 1'500 + 700;  // behind the PCR, and the sample's lead
constexpr double PLAYED_S = 5;
constexpr size_t HOLES_AT_ONCE = 3;
constexpr double NOISE_MS = 250;  // of a busy machine

struct Hole {
    const char* name;
    std::function<void(TsDamage&)> damage;
    bool jumps = false;
};

// Three seconds after the start.
void jumpPcrEarly(TsDamage& stream) {
    stream.cutHead(3200);
    stream.jumpPcr(-HOUR_27M);
}

// The sample lasts ten seconds.
const std::vector<Hole> HOLES = {
    {"short hole", [](TsDamage& s) { s.losePart(0.2, 0.22); }},
    {"long hole", [](TsDamage& s) { s.losePart(0.1, 0.25); }},
    {"bit errors", [](TsDamage& s) { s.corruptPart(0.2, 0.22, 1e-3); }},
    {"slip", [](TsDamage& s) { s.slip(0.20160, 100); }},
    {"no sound", [](TsDamage& s) { s.losePart(0.1, 0.25, AUDIO_PID); }},
    {"PCR jumps an hour back", jumpPcrEarly, true},
};

// From the first picture that is hit to the next one that starts a group, if any is hit.
size_t framesWithout(const std::vector<uint8_t>& sound, const std::vector<uint8_t>& damaged,
                     const std::vector<TsDamage::Remnant>& remnants) {
    constexpr size_t GROUP = 15;
    const PesHits hits = pesHits(sound, damaged, remnants, VIDEO_PID);
    size_t first = hits.hit.size();
    size_t last = 0;
    for (size_t picture = 0; picture < hits.hit.size(); ++picture) {
        if (hits.hit[picture] || hits.besides[picture]) {
            first = std::min(first, picture);
            last = picture;
        }
    }
    return first > last ? 0 : (last / GROUP + 1) * GROUP - first;
}

TEST(PlayDamagedTest, ComesBackInTime) {
    const std::vector<uint8_t> sample = smallSample();
    ASSERT_FALSE(sample.empty());
    Turnstile turnstile(HOLES_AT_ONCE);
    std::vector<std::future<ProgramResult>> runs;
    std::vector<size_t> without;
    for (const Hole& hole : HOLES) {
        TsDamage stream(sample);
        hole.damage(stream);
        const std::vector<TsDamage::Remnant> remnants = stream.remnants();
        std::vector<uint8_t> bytes = stream.take();
        without.push_back(framesWithout(sample, bytes, remnants));
        runs.push_back(std::async(std::launch::async, [bytes = std::move(bytes), &turnstile] {
            return play(bytes, std::to_string(PLAYED_S), turnstile);
        }));
    }
    for (size_t i = 0; i < HOLES.size(); ++i) {
        const ProgramResult result = runs[i].get();
        const nlohmann::json summary = result.summary();
        SCOPED_TRACE(HOLES[i].name + (": " + summary.dump()));
        EXPECT_EQ(result.exitCode, 0) << result.err.substr(0, 1000);
        ASSERT_TRUE(summary.contains("frameNumbers"));
        double gapMs = static_cast<double>(without[i] + 1) * FRAME_MS + NOISE_MS +
                       (without[i] >= LONG_HOLE_FRAMES ? 1'100 : 100);
        gapMs = HOLES[i].jumps ? LIVE_DELAY_MS + 1'100 : gapMs;
        if (!SANITIZED) {
            EXPECT_LE(summary["longestGapMs"], gapMs);
            const double shownMs = summary["framesRendered"].get<double>() * FRAME_MS;
            EXPECT_GE(shownMs, PLAYED_S * 1000 - gapMs - NOISE_MS);
            // There is a mark every second: some of those behind the hole are seen and heard.
            EXPECT_GE(summary["avSkewMs"]["count"], 2);
            EXPECT_LT(summary["avSkewMs"]["p99"], HOLES[i].jumps ? 150 : 80);
        }
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
