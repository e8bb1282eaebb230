#include "StillWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "support/PngFile.h"

namespace orvplay {
namespace {

using orvtest::decodePng;
using orvtest::PngFile;
using orvtest::readFile;

// 2026-11-21 17:30:15.042 UTC, in a place three hours behind.
constexpr std::chrono::system_clock::time_point TAKEN_AT{
    std::chrono::milliseconds(1'795'282'215'042)};

class StillWriterTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "BRT3", 1);
        tzset();
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        mFolder = std::filesystem::temp_directory_path() /
                  ("orv-still-" + std::to_string(getpid()) + "-" + test->name());
        std::filesystem::create_directories(mFolder);
    }
    void TearDown() override { std::filesystem::remove_all(mFolder); }

    // Blue, green, red and alpha of the pixels of two rows.
    static Still makeStill() {
        Still still;
        still.width = 3;
        still.height = 2;
        for (uint8_t i = 0; i < 6; ++i) {
            still.pixels.insert(still.pixels.end(), {i, static_cast<uint8_t>(10 + i),
                                                     static_cast<uint8_t>(200 + i), 0xFF});
        }
        still.takenAt = TAKEN_AT;
        still.pts90k = 0x1FFFFFFFF;
        return still;
    }

    // The name that the still got inside the folder; empty when it was not written.
    std::string write(const std::string& name, const Still& still = makeStill()) {
        mError.clear();
        const std::string path = writeStill(still, {"ORV HD", 51200}, mFolder / name, &mError);
        return path.empty() ? path : std::filesystem::relative(path, mFolder).string();
    }

    size_t filesInFolder() const {
        const std::filesystem::directory_iterator entries(mFolder);
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }

    std::filesystem::path mFolder;
    std::string mError;
};

TEST_F(StillWriterTest, TellsPixelsAndWhereTheyComeFrom) {
    ASSERT_EQ(write("still.png"), "still.png") << mError;
    const PngFile file = decodePng(readFile(mFolder / "still.png"));
    ASSERT_EQ(file.width, 3);
    ASSERT_EQ(file.height, 2);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(file.at(i % 3, i / 3), (std::array<int, 3>{200 + i, 10 + i, i}));
    }
    EXPECT_EQ(file.pixelsPerUnitX, 0u);
    const std::map<std::string, std::string> texts = {
        {"Title", "ORV HD"},
        {"Service ID", "51200"},
        {"Creation Time", "2026-11-21T14:30:15.042-03:00"},
        {"Stream PTS", "8589934591"},
        {"Software", "OrvPlayer"},
    };
    EXPECT_EQ(file.texts, texts);

    Still wide = makeStill();
    wide.sampleAspectWidth = 4;
    wide.sampleAspectHeight = 3;
    std::string error;
    const std::vector<uint8_t> bytes = encodePng(wide, {"Televisão 日本", 0}, &error);
    const PngFile wideFile = decodePng({bytes.begin(), bytes.end()});
    EXPECT_EQ(wideFile.pixelsPerUnitX, 3u);
    EXPECT_EQ(wideFile.pixelsPerUnitY, 4u);
    EXPECT_EQ(wideFile.texts.at("Title"), "Televisão 日本");
}

TEST_F(StillWriterTest, NamesFilesByServiceAndTime) {
    const std::string date = "2026-11-21-143015.png";
    const std::string longName = "é" + std::string(78, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"ORV HD", "orvplay-ORV-HD-"},
        {"", "orvplay-"},
        {"../../etc/passwd", "orvplay-..-..-etc-passwd-"},
        {" \n*?", "orvplay-"},
        {"Televisão 1+", "orvplay-Televisão-1+-"},
        {longName + "éé", "orvplay-" + longName + "-"},
        {longName.substr(0, 79) + "é" + "x", "orvplay-" + longName.substr(0, 79) + "é-"},
    };
    for (const auto& [service, name] : cases) {
        EXPECT_EQ(stillName(service, TAKEN_AT), name + date);
    }
}

TEST_F(StillWriterTest, NeverWritesOverAFile) {
    for (const char* name : {"still.png", "still-1.png", "still-2.png"}) {
        EXPECT_EQ(write("still.png"), name);
    }
    for (const char* name : {"still", "still-3.png", "v1.2", "v1-1.2"}) {
        EXPECT_EQ(write(name[0] == 'v' ? "v1.2" : name[5] == '\0' ? "still" : "still.png"), name);
    }
    EXPECT_EQ(write(""), "orvplay-ORV-HD-2026-11-21-143015.png");
    EXPECT_EQ(write("."), "orvplay-ORV-HD-2026-11-21-143015-1.png");
    std::filesystem::create_symlink("nowhere", mFolder / "link.png");
    EXPECT_EQ(write("link.png"), "link-1.png");
    EXPECT_FALSE(std::filesystem::exists(mFolder / "nowhere"));
}

TEST_F(StillWriterTest, FailureSaysWhyAndLeavesNothing) {
    EXPECT_EQ(write("missing/still.png"), "");
    EXPECT_NE(mError.find("missing/still.png: No such file"), std::string::npos) << mError;

    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto oldHandler = signal(SIGXFSZ, SIG_IGN);
    const rlimit small{64, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string path = write("still.png");
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(path, "");
    EXPECT_NE(mError.find("still.png: File too large"), std::string::npos) << mError;
    EXPECT_EQ(filesInFolder(), 0u);

    // What is no file gets the bytes, and stays.
    EXPECT_EQ(writeStill(makeStill(), {}, "/dev/null", &mError), "/dev/null") << mError;
    EXPECT_EQ(writeStill(makeStill(), {}, "/dev/full", &mError), "");
    EXPECT_EQ(mError, "/dev/full: No space left on device");
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));

    Still empty;
    EXPECT_EQ(write("none.png", empty), "");
    EXPECT_EQ(filesInFolder(), 0u);
}

// Whoever is slow gets the newest stills.
TEST(StillTrayTest, HoldsSoManyStills) {
    StillTray tray(2);
    Still still;
    EXPECT_FALSE(tray.take(&still, std::chrono::milliseconds(0)));
    for (unsigned char i = 1; i <= 3; ++i) {
        const unsigned char pixel[] = {i, i, i, 0xFF};
        tray.put({.pixels = pixel, .width = 1, .height = 1, .source = {.ptsNs = i * 1'000'000}});
    }
    for (const int expected : {2, 3}) {
        ASSERT_TRUE(tray.take(&still, std::chrono::milliseconds(0)));
        EXPECT_EQ(still.pixels[0], expected);
        EXPECT_EQ(still.pixels.size(), 4u);
        EXPECT_EQ(still.pts90k, expected * 90u);
    }
    EXPECT_FALSE(tray.take(&still, std::chrono::milliseconds(1)));
}

}  // namespace
}  // namespace orvplay
