// Texts that an application opens. What comes out must be parts of what went in: no byte twice,
// none but those between the separators that the class names.

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "common/Uri.h"

namespace {

using OrvPlayer::Uri;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void checkPath(const Uri& uri, const std::string& text) {
    const bool hasAuthority = text.compare(uri.mScheme.size() + 1, 2, "//") == 0;
    const size_t slash = uri.mScheme.size() + 1 + (hasAuthority ? 2 + uri.mAuthority.size() : 0);
    require(hasAuthority || uri.mAuthority.empty());
    require(text[slash] == '/');
    const size_t end = slash + 1 + uri.mPath.size();
    require(end == text.size() || text[end] == '?' || text[end] == '#');
    const size_t start = uri.mScheme == "FILE" ? slash : slash + 1;
    require(text.compare(start, uri.mPath.size(), uri.mPath) == 0);
}

void checkQueries(const Uri& uri, const std::string& text) {
    const auto ends = static_cast<size_t>(std::count(text.begin(), text.end(), ';'));
    require(uri.mQueries.size() <= ends);
    for (const auto& [key, value] : uri.mQueries) {
        require(key.empty() || key[0] != ' ');
        require(key.find_first_of("=;") == std::string::npos);
        require(value.find(';') == std::string::npos);
        require(text.find(key + "=" + value + ";", uri.mQueryPos) != std::string::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return setenv("ORV_TRACE", "off", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string text = std::string(reinterpret_cast<const char*>(bytes), size).c_str();
    const std::unique_ptr<Uri> uri(Uri::parse(text.c_str()));
    if (uri == nullptr) {
        return 0;
    }
    require(uri->mUriString == text);
    require(text.compare(0, uri->mScheme.size() + 1, uri->mScheme + ":") == 0);
    require(uri->mFragment.empty() == (uri->mFragmentPos == Uri::NONE));
    require(uri->mFragment.empty() || text.substr(uri->mFragmentPos) == uri->mFragment);
    checkPath(*uri, text);
    checkQueries(*uri, text);
    return 0;
}
