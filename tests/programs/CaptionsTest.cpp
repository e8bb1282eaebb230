// The captions of the samples: each one once, with its text, at its time.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <future>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "damage/TsDamage.h"
#include "programs/Program.h"
#include "support/TempFile.h"

namespace orvtest {
namespace {

std::string sample(const std::string& name) {
    return std::string(ORV_SAMPLES_DIR) + "/" + name + ".ts";
}

struct Caption {
    int64_t pts = 0;
    std::string text;

    bool operator==(const Caption&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Caption& caption) {
        return out << caption.pts << " " << caption.text;
    }
};

// What the sample maker says that its captions come to.
std::vector<Caption> listed(const std::string& name) {
    std::ifstream list(std::string(ORV_SAMPLES_DIR) + "/" + name + ".captions.jsonl");
    std::vector<Caption> captions;
    for (std::string line; std::getline(list, line);) {
        const nlohmann::json object = nlohmann::json::parse(line);
        captions.push_back({object["pts"], object["text"]});
    }
    EXPECT_GE(captions.size(), 10u);
    return captions;
}

std::vector<Caption> captionsOf(const ProgramResult& result) {
    std::vector<Caption> captions;
    for (const nlohmann::json& line : result.events()) {
        if (line.contains("text")) {
            captions.push_back({line["pts"], line["text"]});
        }
    }
    return captions;
}

// The lines of a subtitle file but those of times.
std::string withoutTimes(const std::string& file) {
    std::istringstream in(file);
    std::string out;
    for (std::string line; std::getline(in, line);) {
        out += line.find(" --> ") == std::string::npos ? line + "\n" : "";
    }
    return out;
}

TEST(CaptionsTest, OfflineTheyAreThoseOfTheList) {
    for (const char* name : {"small", "small-wrap", "small-pcr-on-video", "small-mpeg"}) {
        SCOPED_TRACE(name);
        const ProgramResult written = runProgram({"captions", sample(name), "--format", "jsonl"});
        EXPECT_EQ(written.exitCode, 0) << written.err;
        EXPECT_EQ(captionsOf(written), listed(name));
        EXPECT_EQ(written.err, "");
        const ProgramResult units = runProgram({"units", sample(name), "--stream", "captions"});
        EXPECT_EQ(captionsOf(units), listed(name));
        EXPECT_EQ(units.summary()["units"], listed(name).size());
    }
}

// What a run of playback came to.
struct Live {
    ProgramResult result;
    std::string file;
};

Live playWithCaptions(const std::string& name) {
    const TempFile directory({});
    const std::string path = directory.path() + ".srt";
    Live live;
    live.result =
        runProgram({"play", sample(name), "--headless", "--json", "--captions-out", path}, 60);
    std::ifstream file(path);
    live.file.assign(std::istreambuf_iterator<char>(file), {});
    std::remove(path.c_str());
    return live;
}

// The stream time of the event is held against the PTS.
TEST(CaptionsTest, PlayingEachComesOnceAtItsTime) {
    const std::vector<std::string> names = {"small", "small-wrap"};
    std::vector<std::future<Live>> runs;
    for (const std::string& name : names) {
        runs.push_back(std::async(std::launch::async, playWithCaptions, name));
    }
    for (size_t run = 0; run < names.size(); ++run) {
        SCOPED_TRACE(names[run]);
        const Live live = runs[run].get();
        EXPECT_EQ(live.result.exitCode, 0) << live.result.err;
        std::vector<nlohmann::json> events = live.result.events();
        std::erase_if(events, [](const auto& e) { return e["event"] != "closedCaptionText"; });
        const std::vector<Caption> expected = listed(names[run]);
        ASSERT_EQ(events.size(), expected.size()) << live.result.out;
        for (size_t i = 0; i < events.size(); ++i) {
            EXPECT_EQ(events[i]["text"], expected[i].text);
            const int64_t late90k = events[i]["pcr"].get<int64_t>() - expected[i].pts;
            EXPECT_GE(late90k, -90 * 5) << expected[i];
            EXPECT_LE(late90k, SANITIZED ? 90 * 500 : 90 * 60) << expected[i];
        }
        EXPECT_EQ(live.result.summary()["captions"], expected.size());
        const std::string offline =
            runProgram({"captions", sample(names[run]), "--format", "srt"}).out;
        EXPECT_EQ(withoutTimes(live.file), withoutTimes(offline));
    }
}

// A cut loses the captions around it; the rest comes as it was sent.
TEST(CaptionsTest, OfflineACutCostsTheCaptionsAroundItAlone) {
    const std::vector<Caption> sent = listed("small-wrap");
    const ProgramResult result =
        Program({"captions", sample("small-cut"), "--format", "jsonl"}, -1, {"ORV_TRACE=off"})
            .finish(20);
    const std::vector<Caption> captions = captionsOf(result);
    EXPECT_GE(captions.size(), sent.size() - 3);
    EXPECT_EQ(captions.front().text, sent.front().text);
    EXPECT_EQ(captions.back().text, sent.back().text);
}

// A source without a picture, and one whose tables are lost.
TEST(CaptionsTest, OfflineTheyNeedNeitherAPictureNorTables) {
    std::ifstream file(sample("small"), std::ios::binary);
    TsDamage stream({std::istreambuf_iterator<char>(file), {}});
    for (const uint16_t pid : {0, 0x111, 0x112, 0x1FC8, 0x181, 0x182}) {
        stream.removePid(pid);
    }
    const TempFile captionsOnly(stream.take());
    const ProgramResult result =
        runProgram({"captions", captionsOnly.path(), "--caption-pid", "304"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out.find("00:00:00.000  #0 1000 ms legenda\n"), 0u) << result.out;
}

}  // namespace
}  // namespace orvtest
