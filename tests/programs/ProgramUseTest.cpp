// Right and wrong use of the program, and how it ends.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "programs/Program.h"
#include "support/PngFile.h"
#include "support/TempFile.h"

namespace orvtest {
namespace {

const std::string SMALL = ORV_SAMPLES_DIR "/small.ts";
constexpr double PATIENCE_S = 20;

// Garbage without a sync byte.
std::vector<uint8_t> garbage() {
    return std::vector<uint8_t>(100'000, 0x55);
}

TEST(ProgramUseTest, WrongUseIsToldInOneLineAtOnce) {
    const TempFile empty({});
    const TempFile noise(garbage());
    struct {
        std::vector<std::string> arguments;
        int exitCode;
        const char* message;
    } const cases[] = {
        {{}, 2, "subcommand"},
        {{"play"}, 2, "SOURCE"},
        {{"watch"}, 2, ""},
        {{"play", SMALL, "--video-pid", "99999"}, 2, "--video-pid"},
        {{"play", SMALL, "--duration", "-1"}, 2, "--duration"},
        {{"play", SMALL, "--connect=tv"}, 2, "session or system"},
        {{"play", SMALL, "--connect", "--restart"}, 2, "--restart"},
        {{"play", SMALL, "--captions-out", "a.ass"}, 2, ".srt"},
        {{"play", SMALL, "--captions-out", "/no/such/a.srt"}, 1, "/no/such/a.srt"},
        {{"play", "/no/such.ts"}, 4, "/no/such.ts"},
        {{"play", "/tmp"}, 4, "directory"},
        {{"play", empty.path()}, 4, "empty"},
        {{"play", SMALL, "--service", "9"}, 8, "51200 \"ORV HD\", 51224 \"ORV 1SEG\""},
        {{"play", SMALL, "--video-pid", "77"}, 8, "273, 274"},
        {{"units", "/no/such.ts"}, 4, "/no/such.ts"},
        {{"units", SMALL, "--stage", "frames"}, 2, "--stage"},
        {{"units", SMALL, "--video-pid", "0"}, 8, "probe"},
        {{"units", SMALL, "--stream", "audio", "--out", "/no/such/place"}, 1, "/no/such/place"},
        {{"captions", "/no/such.ts"}, 4, "/no/such.ts"},
        {{"captions", SMALL, "--format", "ass"}, 2, "--format"},
        {{"captions", SMALL, "--service", "51224"}, 8, "no captions in service 51224"},
        {{"captions", SMALL, "--caption-pid", "77"}, 8, "273, 274"},
        {{"captions", SMALL, "--out", "/no/such/place"}, 1, "/no/such/place"},
        {{"captions", SMALL, "--out", "/dev/full"}, 1, "/dev/full"},
        {{"snapshot"}, 2, "SOURCE"},
        {{"snapshot", SMALL, "-n", "0"}, 2, "--count"},
        {{"snapshot", SMALL, "--every", "soon"}, 2, "--every"},
        {{"snapshot", SMALL, "-n", "2", "-o", "-"}, 2, "-n 1"},
        {{"snapshot", "/no/such.ts"}, 4, "/no/such.ts"},
        {{"snapshot", SMALL, "--service", "9"}, 8, "51200 \"ORV HD\""},
        {{"snapshot", SMALL, "--video-pid", "0"}, 8, "no picture"},
        {{"snapshot", SMALL, "-o", "/no/such/still.png"}, 1, "/no/such/still.png"},
        {{"probe", "/no/such.ts"}, 4, "/no/such.ts"},
        {{"probe", noise.path()}, 5, "not an MPEG transport stream"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.message);
        std::vector<std::string> arguments = test.arguments;
        if (!arguments.empty() && arguments[0] == "play" && arguments.size() > 1) {
            arguments.emplace_back("--headless");
        }
        // Neither the user's channels nor what played last.
        const ProgramResult result =
            Program(arguments, -1,
                    {"ORV_TRACE=off", "XDG_STATE_HOME=/no/such", "XDG_CONFIG_HOME=/no/such"})
                .finish(PATIENCE_S);
        EXPECT_EQ(result.exitCode, test.exitCode) << result.err;
        EXPECT_NE(result.err.find(test.message), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_LT(result.seconds, 5);
        if (test.exitCode != 2) {
            EXPECT_EQ(result.errLines(), 1U) << result.err;
        }
    }
}

TEST(ProgramUseTest, SourcesWithoutDataEndAfterFiveSeconds) {
    const std::string fifo = testing::TempDir() + "orv-" + std::to_string(getpid()) + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int silent[2];
    ASSERT_EQ(pipe2(silent, O_CLOEXEC), 0);
    Program nobodyWrites({"play", fifo, "--headless"});
    Program nothingComes({"play", "-", "--headless"}, silent[0]);
    for (Program* program : {&nobodyWrites, &nothingComes}) {
        const ProgramResult result = program->finish(PATIENCE_S);
        EXPECT_EQ(result.exitCode, 5);
        EXPECT_NE(result.err.find("no data came"), std::string::npos) << result.err;
        EXPECT_NEAR(result.seconds, 5, SANITIZED ? 5 : 1.5);
    }
    close(silent[0]);
    close(silent[1]);
    unlink(fifo.c_str());
}

TEST(ProgramUseTest, PlaysFromAPipe) {
    const int file = open(SMALL.c_str(), O_RDONLY | O_CLOEXEC);
    int pipeEnds[2];
    ASSERT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
    std::thread cat([file, writeEnd = pipeEnds[1]] {
        char bytes[4096];
        for (ssize_t got = 0; (got = read(file, bytes, sizeof bytes)) > 0;) {
            if (write(writeEnd, bytes, static_cast<size_t>(got)) != got) {
                break;
            }
        }
        close(writeEnd);
    });
    ::signal(SIGPIPE, SIG_IGN);
    Program program({"play", "-", "--headless", "--json", "--duration", "2"}, pipeEnds[0]);
    close(pipeEnds[0]);
    const ProgramResult result = program.finish(PATIENCE_S);
    cat.join();
    close(file);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_GT(result.summary().value("framesRendered", 0), SANITIZED ? 10 : 50);
}

// An interrupted run still has its summary; so has one that is interrupted before the first
// picture.
TEST(ProgramUseTest, AnInterruptEndsItWithASummary) {
    for (const char* moment : {"startComplete", "onBufferingEnd"}) {
        for (const int number : {SIGINT, SIGTERM}) {
            SCOPED_TRACE(std::string(moment) + " " + strsignal(number));
            Program program({"play", SMALL, "--headless", "--json"});
            ASSERT_TRUE(program.waitForOutput(moment, PATIENCE_S));
            program.signal(number);
            const ProgramResult result = program.finish(SANITIZED ? 10 : 1);
            EXPECT_FALSE(result.timedOut);
            EXPECT_EQ(result.exitCode, 130) << result.err;
            EXPECT_TRUE(result.summary().contains("framesRendered")) << result.out;
        }
    }
}

// Whatever the player is doing, each request gives one whole dump and playback goes on.
TEST(ProgramUseTest, ASignalShowsThePlayersState) {
    Program program({"play", SMALL, "--headless", "--json", "--duration", "1"});
    for (const char* moment : {"startComplete", "onBufferingEnd"}) {
        ASSERT_TRUE(program.waitForOutput(moment, PATIENCE_S));
        program.signal(SIGUSR1);
        ASSERT_TRUE(program.waitForError("+ Synchronization:", PATIENCE_S));
    }
    const ProgramResult result = program.finish(PATIENCE_S);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto count = [&](const std::string& text) {
        size_t found = 0;
        for (size_t at = 0; (at = result.err.find(text, at)) != std::string::npos; ++at) {
            ++found;
        }
        return found;
    };
    EXPECT_EQ(count("MainControler:\n"), 2U) << result.err;
    for (const char* part :
         {"RingBuffer PCRTS\n", "RingBuffer VideoTS\n", "RingBuffer VideoPES\n",
          "RingBuffer VideoRaw\n", "RingBuffer AudioTS\n", "RingBuffer AudioPES\n",
          "RingBuffer AudioRaw\n", "RingBuffer CCTS\n", "RingBuffer CCPES\n", "RingBuffer CCRaw\n",
          "Name: TS Receiver\n", "Name: VideoDecoder\n", "Name: VideoRenderer\n",
          "Name: AudioDecoder\n", "Name: AudioRenderer\n", "Name: ClosedCaptionDecoder\n",
          "Name: ClosedCaptionRenderer\n"}) {
        EXPECT_EQ(count(part), 2U) << part << " in\n" << result.err;
    }
}

// As with `| head -1`.
TEST(ProgramUseTest, AReaderThatLeavesEndsIt) {
    Program program({"play", SMALL, "--headless", "--json"});
    ASSERT_TRUE(program.waitForOutput("\n", PATIENCE_S));
    program.closeOutput();
    const ProgramResult result = program.finish(PATIENCE_S);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_LT(result.seconds, SANITIZED ? 20 : 5);
}

// At the end of the time asked for and of the source; never over a file that is there.
TEST(ProgramUseTest, PlaySavesAStillOrSaysWhyNot) {
    const TempFile taken({'o', 'l', 'd'});
    const std::string path = testing::TempDir() + "orv-" + std::to_string(getpid());
    const auto arguments = [](const std::string& out, const char* seconds) {
        return std::vector<std::string>{"play",       SMALL, "--headless", "--json",
                                        "--snapshot", out,   "--duration", seconds};
    };
    Program atOnce(arguments(taken.path(), "0.5"));
    Program atTheEnd(arguments(path + "-end.png", "3600"));
    Program bad(arguments("/no/such/folder/still.png", "0.5"));

    const auto stillOf = [](const ProgramResult& result) {
        for (const nlohmann::json& event : result.events()) {
            if (event["event"] == "snapshot") {
                return event["path"].get<std::string>();
            }
        }
        ADD_FAILURE() << result.err;
        return std::string();
    };
    const ProgramResult saved = atOnce.finish(PATIENCE_S);
    EXPECT_EQ(saved.exitCode, 0) << saved.err;
    const std::string still = stillOf(saved);
    EXPECT_NE(still, taken.path());
    EXPECT_EQ(readFile(taken.path()), "old");
    EXPECT_LT(decodePng(readFile(still)).frameNumber().value_or(1000), SANITIZED ? 300u : 40u);
    unlink(still.c_str());

    const ProgramResult played = atTheEnd.finish(2 * PATIENCE_S);
    EXPECT_EQ(played.exitCode, 0) << played.err;
    EXPECT_GT(decodePng(readFile(path + "-end.png")).frameNumber().value_or(0), 285u);
    unlink((path + "-end.png").c_str());

    const ProgramResult failed = bad.finish(PATIENCE_S);
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.errLines(), 1U) << failed.err;
    EXPECT_NE(failed.err.find("/no/such/folder/still.png"), std::string::npos) << failed.err;
}

TEST(ProgramUseTest, SnapshotSavesStillsAndPrintsTheirNames) {
    const std::filesystem::path folder =
        testing::TempDir() + "orv-stills-" + std::to_string(getpid());
    std::filesystem::create_directories(folder);
    Program several({"snapshot", SMALL, "-n", "3", "--every", "200", "-o", folder});
    Program piped({"snapshot", SMALL, "--service", "ORV 1SEG", "-o", "-"});
    Program tooMany({"snapshot", SMALL, "-n", "3", "--every", "6000", "-o", folder / "many.png"});

    const ProgramResult result = several.finish(PATIENCE_S);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    std::istringstream names(result.out);
    uint32_t before = 0;
    int stills = 0;
    for (std::string name; std::getline(names, name); ++stills) {
        EXPECT_EQ(name.rfind((folder / "orvplay-ORV-HD-").string(), 0), 0U) << name;
        const PngFile still = decodePng(readFile(name));
        EXPECT_EQ(still.texts.at("Title"), "ORV HD");
        const uint32_t number = still.frameNumber().value_or(0);
        EXPECT_GE(number, stills == 0 ? 1 : before + (SANITIZED ? 1 : 4));
        before = number;
    }
    EXPECT_EQ(stills, 3);

    const ProgramResult bytes = piped.finish(PATIENCE_S);
    EXPECT_EQ(bytes.exitCode, 0) << bytes.err;
    EXPECT_EQ(bytes.err, "");
    const PngFile still = decodePng(bytes.out);
    EXPECT_EQ(still.texts.at("Service ID"), "51224");
    EXPECT_TRUE(still.frameNumber().has_value());

    const ProgramResult ended = tooMany.finish(2 * PATIENCE_S);
    EXPECT_EQ(ended.exitCode, 5);
    EXPECT_NE(ended.err.find("ended after 2 of 3 stills"), std::string::npos) << ended.err;
    EXPECT_TRUE(std::filesystem::exists(folder / "many-1.png"));
    std::filesystem::remove_all(folder);
}

// A still shows what is on the screen: after a seek, at the end of the time asked for, after the
// end.
TEST(ProgramUseTest, StillsOfAMediaFileAreThePictureThatIsShown) {
    const std::filesystem::path folder =
        testing::TempDir() + "orv-film-stills-" + std::to_string(getpid());
    std::filesystem::create_directories(folder);
    const std::string film = folder / "three colours.mkv";
    std::string command = "ffmpeg -v error -y";
    for (const char* colour : {"red", "lime", "blue"}) {
        command += std::string(" -f lavfi -i color=") + colour + ":s=160x120:r=25:d=2";
    }
    command += " -filter_complex concat=n=3 -c:v mpeg4 -q:v 2 -g 50 '" + film + "'";
    ASSERT_EQ(system(command.c_str()), 0);
    const std::string still = folder / "still.png";
    const struct {
        std::vector<std::string> arguments;
        std::array<int, 3> colour;
        int fromMs;
        int toMs;
    } cases[] = {
        {{"snapshot", film, "-o", still}, {255, 0, 0}, 0, 1900},
        {{"snapshot", film, "--at", "3", "-o", still}, {0, 255, 0}, 2960, 3900},
        {{"play", film, "--headless", "--snapshot", still, "--duration", "0.5"},
         {255, 0, 0},
         300,
         1900},
        {{"play", film, "--headless", "--snapshot", still}, {0, 0, 255}, 5000, 6000},
    };
    for (const auto& one : cases) {
        const ProgramResult result = runProgram(one.arguments, PATIENCE_S);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.err, "");
        const PngFile png = decodePng(readFile(still));
        EXPECT_EQ(png.texts.at("Title"), "three colours");
        EXPECT_EQ(png.width, 160);
        EXPECT_EQ(png.height, 120);
        const std::array<int, 3> seen = png.at(80, 60);
        for (size_t i = 0; i < seen.size(); ++i) {
            EXPECT_NEAR(seen[i], one.colour[i], 6) << i;
        }
        const int ms = std::stoi(png.texts.at("Stream PTS")) / 90;
        EXPECT_GE(ms, one.fromMs);
        EXPECT_LE(ms, SANITIZED ? 6000 : one.toMs);
        unlink(still.c_str());
    }
    const ProgramResult late = runProgram({"snapshot", film, "--at", "60", "-o", still});
    EXPECT_EQ(late.exitCode, 5);
    EXPECT_NE(late.err.find("ended after 0 of 1 stills"), std::string::npos) << late.err;
    std::filesystem::remove_all(folder);
}

// Whatever its service says of its end, the program makes one line of it.
TEST(ProgramUseTest, WhyAMediaFileIsNotPlayedIsToldInOneLine) {
    const TempFile text({'h', 'e', 'l', 'l', 'o'});
    for (const char* command : {"play", "snapshot"}) {
        const ProgramResult result = runProgram({command, text.path()}, PATIENCE_S);
        EXPECT_EQ(result.exitCode, 4);
        EXPECT_EQ(result.errLines(), 1U) << result.err;
        EXPECT_EQ(result.err,
                  "orvplay: " + text.path() +
                      ": the media player cannot play this: unrecognized file format\n");
        EXPECT_EQ(result.out, "");
    }
}

TEST(ProgramUseTest, ProbeListsWhatIsThere) {
    const ProgramResult text = runProgram({"probe", SMALL}, PATIENCE_S);
    EXPECT_EQ(text.exitCode, 0) << text.err;
    for (const char* part :
         {"Network: ORV Network", "Service 51200: ORV HD", "PCR PID 511", "type 0x11",
          "AAC audio (LATM)", "por", "0 continuity errors", "orvplay play", "--service 51224"}) {
        EXPECT_NE(text.out.find(part), std::string::npos) << part << " in\n" << text.out;
    }

    const ProgramResult json = runProgram({"probe", SMALL, "--json"}, PATIENCE_S);
    EXPECT_EQ(json.exitCode, 0) << json.err;
    const std::vector<nlohmann::json> events = json.events();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0]["name"], "ORV HD");
    EXPECT_EQ(events[0]["streams"][0]["pid"], 273);
    EXPECT_EQ(events[0]["streams"][1]["language"], "por");
    EXPECT_LE(events[0]["pcrIntervalMaxMs"], 30);
    EXPECT_EQ(events[1]["serviceId"], 51224);
    EXPECT_EQ(events[2]["event"], "summary");
    EXPECT_EQ(events[2]["continuityErrors"], 0);
    EXPECT_EQ(events[2]["bytes"], events[2]["packets"].get<uint64_t>() * 188);
}

}  // namespace
}  // namespace orvtest
