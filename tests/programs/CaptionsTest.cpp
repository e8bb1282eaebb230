// The captions of the samples: each one once, with its text, at its time.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
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
