// What a file of captions says, byte by byte.

#include "CaptionFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <utility>

#include "client/CaptionText.h"
#include "support/TempFile.h"

namespace orvtest {
namespace {

using orvplay::CaptionFile;
using orvplay::CaptionFormat;

constexpr int64_t S = 90'000;  // a second
constexpr int64_t WRAP = int64_t{1} << 33;

using Captions = std::vector<std::pair<int64_t, std::string>>;

struct Case {
    const char* name;
    CaptionFormat format;
    int64_t origin90k;  // negative: none
    Captions captions;
    std::string content;
};

const Case CASES[] = {
    {"the next one ends it, or five seconds",
     CaptionFormat::SRT,
     10 * S,
     {{11 * S + 90, "a\nb\n"}, {12 * S, "c\n"}, {3700 * S, "d\n"}},
     "1\n00:00:01,001 --> 00:00:02,000\na\nb\n\n"
     "2\n00:00:02,000 --> 00:00:07,000\nc\n\n"
     "3\n01:01:30,000 --> 01:01:35,000\nd\n\n"},
    {"WebVTT escapes",
     CaptionFormat::VTT,
     0,
     {{S, "<i>R&B</i>\n"}},
     "WEBVTT\n\n00:00:01.000 --> 00:00:06.000\n&lt;i&gt;R&amp;B&lt;/i&gt;\n\n"},
    {"rows are indented in text",
     CaptionFormat::TXT,
     0,
     {{S, "a\nb\n"}},
     "00:00:01.000  a\n              b\n"},
    {"JSON keeps the text as it came",
     CaptionFormat::JSONL,
     0,
     {{S + 45'000, "\xE2\x99\xAA \"a\"\n \x01\n"}},
     "{\"pts\":135000,\"time\":1.5,\"text\":\"\xE2\x99\xAA \\\"a\\\"\\n \\u0001\\n\"}\n"},
    {"blanks end the one before",
     CaptionFormat::SRT,
     0,
     {{S, "a  \n \nb\x02\n"}, {2 * S, "  \n"}, {3 * S, "c\n"}},
     "1\n00:00:01,000 --> 00:00:02,000\na\nb\n\n2\n00:00:03,000 --> 00:00:08,000\nc\n\n"},
    {"a full row runs on",
     CaptionFormat::TXT,
     0,
     {{0, std::string(31, 'a') + "\xC3\xA9"
                                 "b\n"}},
     "00:00:00.000  " + std::string(31, 'a') + "\xC3\xA9\n              b\n"},
    {"over the wrap of time stamps",
     CaptionFormat::SRT,
     WRAP - S,
     {{WRAP - S / 2, "a\n"}, {S / 2, "b\n"}},
     "1\n00:00:00,500 --> 00:00:01,500\na\n\n2\n00:00:01,500 --> 00:00:06,500\nb\n\n"},
    {"after a jump back it goes on a second later",
     CaptionFormat::SRT,
     100 * S,
     {{101 * S, "a\n"}, {5 * S, "b\n"}, {7 * S, "c\n"}},
     "1\n00:00:01,000 --> 00:00:02,000\na\n\n2\n00:00:02,000 --> 00:00:04,000\nb\n\n"
     "3\n00:00:04,000 --> 00:00:09,000\nc\n\n"},
    {"out of order by less than a second",
     CaptionFormat::SRT,
     0,
     {{2 * S, "a\n"}, {2 * S - S / 2, "b\n"}},
     "1\n00:00:02,000 --> 00:00:02,000\na\n\n2\n00:00:01,500 --> 00:00:06,500\nb\n\n"},
    {"before the first picture", CaptionFormat::TXT, 5 * S, {{4 * S, "a\n"}}, "00:00:00.000  a\n"},
    {"without a picture",
     CaptionFormat::TXT,
     -1,
     {{4 * S, "a\n"}, {5 * S, "b\n"}},
     "00:00:00.000  a\n00:00:01.000  b\n"},
    {"nothing", CaptionFormat::SRT, 0, {}, ""},
};

// The origin comes first, as from a stream, or behind the captions that waited for it.
TEST(CaptionFileTest, WritesEachFormat) {
    for (const Case& c : CASES) {
        for (const bool originFirst : {true, false}) {
            SCOPED_TRACE(std::string(c.name) + (originFirst ? "" : ", origin last"));
            const TempFile target({});
            CaptionFile file(c.format);
            ASSERT_EQ(file.open(target.path()), 0);
            const auto setOrigin = [&] {
                if (c.origin90k >= 0) {
                    file.setOrigin(c.origin90k);
                    file.setOrigin(c.origin90k + S);  // only the first one counts
                }
            };
            if (originFirst) {
                setOrigin();
            }
            for (const auto& [pts, text] : c.captions) {
                file.add(pts, text);
            }
            if (!originFirst) {
                setOrigin();
            }
            EXPECT_EQ(file.finish(), 0);
            std::ifstream in(target.path(), std::ios::binary);
            EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), c.content);
        }
    }
}

TEST(CaptionFileTest, TellsWhatIsWrongWithItsFile) {
    EXPECT_EQ(CaptionFile(CaptionFormat::SRT).open("/nowhere/a.srt"), ENOENT);
    CaptionFile full(CaptionFormat::VTT);
    EXPECT_EQ(full.open("/dev/full"), 0);
    EXPECT_EQ(full.error(), ENOSPC);
    EXPECT_EQ(full.finish(), ENOSPC);
    EXPECT_EQ(orvplay::captionFormatOf("a/b.c.vtt"), CaptionFormat::VTT);
    EXPECT_EQ(orvplay::captionFormatOf("srt"), std::nullopt);
}

TEST(CaptionTextTest, BecomesUtf8) {
    const uint32_t codePoints[] = {'A', 0xE9, 0x20AC, 0x1F600, 0xD800, 0x110000, 0};
    EXPECT_EQ(
        orvclient::captionUtf8(reinterpret_cast<const uint8_t*>(codePoints), sizeof codePoints - 1),
        "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD\xEF\xBF\xBD");
}

}  // namespace
}  // namespace orvtest
