// Channels as a user finds, lists and plays them.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "Program.h"

namespace orvtest {
namespace {

constexpr double PATIENCE_S = 30;
const std::string SAMPLE = ORV_SAMPLES_DIR "/small-guide-br.ts";

class ChannelsTest : public testing::Test {
protected:
    ChannelsTest() { EXPECT_NE(mkdtemp(mFolder.data()), nullptr); }
    ~ChannelsTest() override { std::filesystem::remove_all(mFolder); }

    ProgramResult run(const std::vector<std::string>& arguments) const {
        return Program(arguments, -1, {"XDG_CONFIG_HOME=" + mFolder, "ORV_TRACE=off"})
            .finish(PATIENCE_S);
    }
    void expect(const std::vector<std::string>& arguments, int code, const char* out,
                const char* err) const {
        const ProgramResult result = run(arguments);
        SCOPED_TRACE(arguments[0] + " " + (arguments.size() > 1 ? arguments[1] : ""));
        EXPECT_EQ(result.exitCode, code) << result.err;
        EXPECT_NE(result.out.find(out), std::string::npos) << result.out;
        EXPECT_NE(result.err.find(err), std::string::npos) << result.err;
        EXPECT_LE(result.errLines(), code == 2 ? 99u : 1u) << result.err;
    }

    std::string mFolder = "/tmp/orvtest-channels-XXXXXX";
};

TEST_F(ChannelsTest, AreFoundListedSearchedAndPlayed) {
    expect({"channels", "list"}, 0, "", "orvplay scan");
    expect({"scan", SAMPLE, "--no-add"}, 0, "6.1    ORV São João HD", "");
    EXPECT_TRUE(std::filesystem::is_empty(mFolder));
    expect({"scan", SAMPLE}, 0, "6.2    ORV 1SEG São João", "2 channels found, 2 of them new");
    expect({"scan", SAMPLE}, 0, "1seg", "2 channels found, 0 of them new");
    const ProgramResult list = run({"channels", "list", "--json"});
    ASSERT_EQ(list.events().size(), 2u) << list.out;
    EXPECT_EQ(list.events()[0]["source"], std::filesystem::canonical(SAMPLE).string());
    EXPECT_EQ(list.events()[0]["serviceId"], 51200);
    EXPECT_EQ(list.events()[1]["oneSegment"], true);
    expect({"channels", "search", "1seg sao"}, 0, "6.2", "");
    expect({"channels", "search", "nothing"}, 8, "", "channels list");
    expect({"play", "nothing", "--headless"}, 8, "", "channels list");
    expect({"play", "dvb:no.thing", "--headless"}, 8, "", "channels list");

    const ProgramResult played = run({"play", "1seg são", "--headless", "--json"});
    EXPECT_EQ(played.exitCode, 8) << "that is no name, but words";
    const ProgramResult one = run({"play", "6.2", "--headless", "--json", "--duration", "0.5"});
    EXPECT_EQ(one.exitCode, 0) << one.err;
    EXPECT_GT(one.summary()["framesRendered"], 0);
}

TEST_F(ChannelsTest, CrossInBothFormats) {
    const std::string playList = mFolder + "/list.m3u";
    const std::string scanned = mFolder + "/dvb_channel.conf";
    const std::string copy = mFolder + "/copy.m3u";
    std::ofstream(playList) << "#EXTM3U\n#EXTINF:-1 tvg-chno=\"9\",Net\nudp://239.1.1.1:5000\n";
    std::ofstream(scanned) << "[Air]\n\tSERVICE_ID = 51200\n\tFREQUENCY = 473142857\n"
                              "\tDELIVERY_SYSTEM = ISDBT\n\n";
    expect({"channels", "import", playList}, 0, "", "1 channels read, 1 of them new");
    expect({"channels", "import", scanned, "--format", "dvbv5"}, 0, "", "1 of them new");
    expect({"channels", "list"}, 0, "473.143 MHz", "");
    expect({"channels", "export", "--format", "dvbv5"}, 0, "\tFREQUENCY = 473142857", "left out");
    expect({"channels", "export", copy}, 0, "", "1 channels have no place");
    std::ifstream file(copy);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NE(text.find("tvg-chno=\"9\",Net\nudp://239.1.1.1:5000"), std::string::npos) << text;

    expect({"channels", "import", "/no/such.m3u"}, 4, "", "/no/such.m3u");
    expect({"channels", "import", SAMPLE, "--format", "m3u"}, 1, "", "no channels in it");
    expect({"channels", "export", "/no/such/place.m3u"}, 1, "", "/no/such/place.m3u");
    expect({"channels", "export", "--format", "vdr"}, 2, "", "--format");
    expect({"scan", "-"}, 2, "", "standard input");
    expect({"scan", "/no/such.ts"}, 4, "", "/no/such.ts");
}

TEST_F(ChannelsTest, ProbeTellsWhatIsOn) {
    expect({"probe", SAMPLE}, 0, "on air: 20:00-21:00 Notícias da Região", "");
    const auto events = run({"probe", SAMPLE, "--json"}).events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0]["now"]["start"], "2026-11-21T23:00:00Z");
    EXPECT_EQ(events[0]["next"]["name"], "Cinema: A Estação");
    EXPECT_EQ(events[1]["oneSegment"], true);
    EXPECT_EQ(events[2]["clock"].get<std::string>().substr(0, 15), "2026-11-21T23:3");
}

}  // namespace
}  // namespace orvtest
