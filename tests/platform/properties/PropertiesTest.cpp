// What the machine's setup tells the player: properties, and small files.

#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <trace/OneSegPGL.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/TempFile.h"

namespace {

orvtest::TempFile fileOf(const std::string& text) {
    return orvtest::TempFile(std::vector<uint8_t>(text.begin(), text.end()));
}

std::string property(const char* key, const char* defaultValue = "none") {
    char value[PROPERTY_VALUE_MAX + 1];
    memset(value, 0x7F, sizeof value);
    const int length = property_get(key, value, defaultValue);
    EXPECT_EQ(value[PROPERTY_VALUE_MAX], 0x7F);
    EXPECT_EQ(static_cast<size_t>(length), strlen(value));
    return value;
}

TEST(PropertiesTest, ReadsTheFile) {
    const orvtest::TempFile file = fileOf(
        "a.b = one two \r\n#a.b=comment\n\n  c.d\t=x=y\nno line\ne=\nc.dd=1\nf=1\nf=2\nlong=" +
        std::string(200, 'l') + "\nlast=end");
    setenv("ORV_PROPERTIES", file.path().c_str(), 1);
    const struct {
        const char* key;
        std::string value;
    } cases[] = {
        {"a.b", "one two"},  {"c.d", "x=y"},      {"e", "none"},   {"f", "2"},
        {"no line", "none"}, {"nothing", "none"}, {"last", "end"}, {"long", std::string(91, 'l')}};
    for (const auto& wanted : cases) {
        EXPECT_EQ(property(wanted.key), wanted.value) << wanted.key;
    }
    EXPECT_EQ(property("nothing", nullptr), "");
    EXPECT_EQ(property("nothing", std::string(300, 'd').c_str()), std::string(91, 'd'));
    setenv("ORV_PROPERTY_a_b", "from outside", 1);
    EXPECT_EQ(property("a.b"), "from outside");
    unsetenv("ORV_PROPERTY_a_b");
}

TEST(PropertiesTest, PassesOverWhatIsNoSuchFile) {
    const std::string pipe = testing::TempDir() + "orv-pipe-" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const orvtest::TempFile large = fileOf("a=1\n" + std::string(70'000, '#'));
    for (const std::string& path :
         {pipe, large.path(), std::string("/nowhere"), testing::TempDir()}) {
        setenv("ORV_PROPERTIES", path.c_str(), 1);
        EXPECT_EQ(property("a"), "none") << path;
    }
    char byte;
    EXPECT_EQ(OneSegPGL_CheckFile(pipe.c_str()), 0);
    EXPECT_EQ(OneSegPGL_ReadFile(pipe.c_str(), &byte, 1), -1);
    unlink(pipe.c_str());
}

TEST(PropertiesTest, ReadsSmallFiles) {
    const orvtest::TempFile file = fileOf("/mnt/card");
    const char* const path = file.path().c_str();
    EXPECT_EQ(OneSegPGL_CheckFile(path), 1);
    EXPECT_EQ(OneSegPGL_GetFileSize(path), 9);
    char text[16] = {};
    EXPECT_EQ(OneSegPGL_ReadFile(path, text, 4), 4);
    EXPECT_STREQ(text, "/mnt");
    EXPECT_EQ(OneSegPGL_ReadFile(path, text, sizeof text), 9);
    EXPECT_EQ(OneSegPGL_CheckFile("/nowhere"), 0);
    EXPECT_EQ(OneSegPGL_GetFileSize("/nowhere"), -1);
    EXPECT_EQ(OneSegPGL_ReadFile("/nowhere", text, 4), -1);
    EXPECT_EQ(OneSegPGL_GetFileSize(nullptr), -1);
}

}  // namespace
