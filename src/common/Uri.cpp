#include "common/Uri.h"

#include <algorithm>
#include <memory>

#include "common/Trace.h"

namespace OrvPlayer {

static_assert(Uri::NONE == std::string::npos);

Uri* Uri::parse(const char* text) {
    std::unique_ptr<Uri> uri(new Uri);
    uri->mUriString = text != nullptr ? text : "";
    return uri->parseAll() ? uri.release() : nullptr;
}

bool Uri::parseAll() {
    mSchemeSeparatorPos = mUriString.find(':');
    if (mSchemeSeparatorPos == NONE) {
        ORV_LOGE("%s:%s Failed to find scheme separator.\n", "parse", mUriString.c_str());
        return false;
    }
    mScheme = mUriString.substr(0, mSchemeSeparatorPos);
    const unsigned long authorityEnd = parseAuthority();
    const unsigned long pathEnd =
        parsePath(authorityEnd != NONE ? authorityEnd : mSchemeSeparatorPos + 1);
    if (pathEnd == NONE) {
        ORV_LOGE("%s:%s Failed to parse path.\n", "parse", mUriString.c_str());
        return false;
    }
    parseFragment(pathEnd);  // first: the queries end where it begins
    if (parseQuery(pathEnd) != 0) {
        ORV_LOGE("%s:%s Failed to parse queries.\n", "parse", mUriString.c_str());
        return false;
    }
    return true;
}

unsigned long Uri::parseAuthority() {
    const unsigned long start = mSchemeSeparatorPos + 3;
    if (mUriString.compare(mSchemeSeparatorPos + 1, 2, "//") != 0) {
        return NONE;
    }
    const unsigned long end =
        std::min<unsigned long>(mUriString.find_first_of("/?#", start), mUriString.size());
    mAuthority = mUriString.substr(start, end - start);
    return end;
}

unsigned long Uri::parsePath(unsigned long pos) {
    if (pos >= mUriString.size() || mUriString[pos] != '/') {
        ORV_LOGE("%s: Error: Malformed URI\n", __func__);
        return NONE;
    }
    const unsigned long end =
        std::min<unsigned long>(mUriString.find_first_of("?#", pos), mUriString.size());
    const unsigned long length = end - pos - 1;
    mPath = mUriString.substr(mScheme == "FILE" ? pos : pos + 1, length);
    return end;
}

unsigned long Uri::parseFragment(unsigned long pos) {
    mFragmentPos = mUriString.find('#', pos);
    if (mFragmentPos == NONE) {
        return NONE;
    }
    mFragment = mUriString.substr(mFragmentPos);
    ORV_LOGV("%s Found fragment: %s\n", __func__, mFragment.c_str());
    return mFragment.size();
}

unsigned long Uri::parseQuery(unsigned long pos) {
    mQueryPos = mUriString.find('?', pos);
    if (mQueryPos == NONE) {
        return 0;
    }
    // A "?" within the fragment is found as well; its queries go on to the end of the text.
    const unsigned long start = mQueryPos + 1;
    const std::string query =
        mUriString.substr(start, mFragmentPos >= start ? mFragmentPos - start : NONE);
    size_t index = 0;
    for (size_t end; (end = query.find(';', index)) != NONE; index = end + 1) {
        const std::string parameter = query.substr(index, end - index);
        const size_t equals = parameter.find('=');
        if (equals == NONE) {
            ORV_LOGE("%s: Error: invalid string", __func__);
            return 1;
        }
        const size_t keyStart = std::min(parameter.find_first_not_of(' '), equals);
        const std::string key = parameter.substr(keyStart, equals - keyStart);
        const std::string value = parameter.substr(equals + 1);
        mQueries.emplace(key, value);
        ORV_LOGV("%s Found query: %s=%s\n", __func__, key.c_str(), value.c_str());
    }
    return 0;
}

}  // namespace OrvPlayer
