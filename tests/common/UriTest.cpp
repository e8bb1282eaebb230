#include "common/Uri.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using OrvPlayer::Uri;
using Queries = std::map<std::string, std::string>;

TEST(UriTest, TakesATextApart) {
    struct {
        const char* text;
        const char *scheme, *authority, *path, *fragment;
        Queries queries;
    } const cases[] = {
        {"MTV://tuner/live?a=1;b=2;", "MTV", "tuner", "live", "", {{"a", "1"}, {"b", "2"}}},
        {"MTV://a/b?x=1;y=2", "MTV", "a", "b", "", {{"x", "1"}}},
        {"MTV://a/b?x=1;x=2;", "MTV", "a", "b", "", {{"x", "1"}}},
        {"MTV://a/b?  key =v=w;", "MTV", "a", "b", "", {{"key ", "v=w"}}},
        {"MTV://a/b?  =;c= d ;", "MTV", "a", "b", "", {{"", ""}, {"c", " d "}}},
        {"MTV:/live", "MTV", "", "live", "", {}},
        {"MTV:///live/x", "MTV", "", "live/x", "", {}},
        {"MTV://h/p?a=1;#f", "MTV", "h", "p", "#f", {{"a", "1"}}},
        {"MTV://h/p?a=1#;b=2;", "MTV", "h", "p", "#;b=2;", {}},
        {"MTV://h/p?#x", "MTV", "h", "p", "#x", {}},
        // The queries that the fragment holds go on to the end of the text.
        {"MTV://h/p#frag?x=1;", "MTV", "h", "p", "#frag?x=1;", {{"x", "1"}}},
        {"FILE:///sdcard/clip.mp4", "FILE", "", "/sdcard/clip.mp", "", {}},
        {"FILE:/", "FILE", "", "", "", {}},
        {"FILE://h/a/b?filePath=/c.ts;", "FILE", "h", "/a/", "", {{"filePath", "/c.ts"}}},
        {"file:///a/b", "file", "", "a/b", "", {}},
        {"://x/y", "", "x", "y", "", {}},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.text);
        const std::unique_ptr<Uri> uri(Uri::parse(wanted.text));
        ASSERT_NE(uri, nullptr);
        EXPECT_EQ(uri->mUriString, wanted.text);
        EXPECT_EQ(uri->mScheme, wanted.scheme);
        EXPECT_EQ(uri->mAuthority, wanted.authority);
        EXPECT_EQ(uri->mPath, wanted.path);
        EXPECT_EQ(uri->mFragment, wanted.fragment);
        EXPECT_EQ(uri->mQueries, wanted.queries);
    }
    const std::unique_ptr<Uri> uri(Uri::parse("MTV://h/p?a=1;#f"));
    EXPECT_EQ(uri->mSchemeSeparatorPos, 3u);
    EXPECT_EQ(uri->mQueryPos, 9u);
    EXPECT_EQ(uri->mFragmentPos, 14u);
}

TEST(UriTest, RefusesAndSaysWhy) {
    OneSegPGL_InitializeDebug();
    const std::string path = "parsePath: Error: Malformed URI";
    struct {
        std::string text;
        std::vector<std::string> lines;
    } const cases[] = {
        {"", {"parse: Failed to find scheme separator."}},
        {"live", {"parse:live Failed to find scheme separator."}},
        {"MTV:", {path, "parse:MTV: Failed to parse path."}},
        {"MTV:live", {path, "parse:MTV:live Failed to parse path."}},
        {"MTV:/", {}},
        {"MTV://", {path, "parse:MTV:// Failed to parse path."}},
        {"MTV://host", {path, "parse:MTV://host Failed to parse path."}},
        {"MTV://host?a=1;", {path, "parse:MTV://host?a=1; Failed to parse path."}},
        {"MTV://host#/p", {path, "parse:MTV://host#/p Failed to parse path."}},
        {"MTV://a/b?junk", {}},  // not ended, so not looked at
        {"MTV://a/b?x=1;;",
         {"parseQuery: Error: invalid string", "parse:MTV://a/b?x=1;; Failed to parse queries."}},
        {"MTV://a/b?x=1;junk;",
         {"parseQuery: Error: invalid string",
          "parse:MTV://a/b?x=1;junk; Failed to parse queries."}},
    };
    orvtest::TraceCapture trace;
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.text);
        const std::unique_ptr<Uri> uri(Uri::parse(wanted.text.c_str()));
        EXPECT_EQ(uri == nullptr, !wanted.lines.empty());
        EXPECT_EQ(trace.take(), wanted.lines);
    }
    EXPECT_EQ(Uri::parse(nullptr), nullptr);
}

}  // namespace
