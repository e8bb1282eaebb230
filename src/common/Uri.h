#pragma once

#include <map>
#include <string>

namespace OrvPlayer {

// What an application opens, or names as the target of a recording.
//
//   MTV://tuner/live?pid=273;audio=274;#top
//   scheme authority path  queries     fragment
//
// Small and strict, and not the general syntax: each query parameter ends with ";", a last one
// without it is passed over; a parameter without "=" spoils the whole. A key given twice keeps its
// first value. Leading blanks of a key are skipped, all others kept.
//
// Deliberate: the path of the scheme "FILE" keeps its leading "/" and loses its last character; any
// other loses the leading "/". See UriTest.TakesATextApart.
class Uri {
public:
    // A new object that the caller deletes; null, logged, when the text has no scheme, no path or a
    // bad parameter.
    static Uri* parse(const char* text);

    // The steps of parse(), each on mUriString from a place on. parseAuthority() and parsePath()
    // return where their part ends, parseFragment() how long it is; NONE when there is none.
    // parseQuery() returns 0, or 1 for a bad parameter.
    unsigned long parseAuthority();
    unsigned long parsePath(unsigned long pos);
    unsigned long parseFragment(unsigned long pos);
    unsigned long parseQuery(unsigned long pos);

    static constexpr unsigned long NONE = ~0UL;

    unsigned long mSchemeSeparatorPos = NONE;
    unsigned long mFragmentPos = NONE;
    unsigned long mQueryPos = NONE;
    std::string mUriString;
    std::string mScheme;
    std::string mAuthority;
    std::string mPath;
    std::string mFragment;  // the "#" included
    std::map<std::string, std::string> mQueries;

private:
    Uri() = default;  // only by parse()
    bool parseAll();
};

}  // namespace OrvPlayer
