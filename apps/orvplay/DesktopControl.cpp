#include "DesktopControl.h"

#include <utf8proc.h>

#include <cctype>
#include <cstring>
#include <filesystem>

namespace orvplay {

namespace {

// As the bus takes it: what is no UTF-8 comes as question marks.
std::string validText(std::string text) {
    for (size_t at = 0; at < text.size();) {
        utf8proc_int32_t character = 0;
        const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + at;
        const auto length =
            utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - at), &character);
        if (length <= 0 || character == 0) {
            text[at++] = '?';
        } else {
            at += static_cast<size_t>(length);
        }
    }
    return text;
}

}  // namespace

void DesktopControl::look() {
    if (!mDesktop.isOpen()) {
        return;
    }
    mDesktop.process();
    for (const UserRequest& request : mDesktop.takeRequests()) {
        mIsQuitRequested |= request.what == Request::QUIT;
        mControl.act(request);
    }
    mDesktop.publish(state());
}

MprisState DesktopControl::state() {
    if (mPath != mSource.path) {
        mPath = mSource.path;
        mUri = validText(uriOf(mPath));
    }
    const ScreenState& screen = mScreen.state();
    const bool isLive = mSource.kind == SourceKind::LIVE;
    MprisState state;
    state.isPaused = mControl.transport().isPaused();
    state.title =
        validText(isLive && screen.now.has_value() && !screen.now->title.empty() ? screen.now->title
                                                                                 : screen.name);
    state.channel = isLive ? validText(screen.name) : "";
    state.url = mUri;
    state.canSeek = !isLive;
    state.canZap = isLive && mScreen.channels().rows.size() > 1;
    if (!isLive) {
        state.lengthUs = mControl.transport().durationMs() * 1000;
        state.positionUs = mControl.transport().positionMs() * 1000;
        state.seeks = mControl.transport().seeks();
    }
    state.volume = screen.volumePercent / 100.0;
    return state;
}

std::string uriOf(const std::string& path) {
    if (path.empty() || path == "-" || path.find("://") != std::string::npos) {
        return path == "-" ? "" : path;
    }
    std::error_code failure;
    const std::string absolute = std::filesystem::absolute(path, failure);
    std::string uri = "file://";
    for (const char c : failure ? std::string() : absolute) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) != 0 || std::strchr("/-._~", c) != nullptr) {
            uri += c;
            continue;
        }
        constexpr char DIGITS[] = "0123456789ABCDEF";
        uri += {'%', DIGITS[byte >> 4], DIGITS[byte & 15]};
    }
    return failure ? "" : uri;
}

}  // namespace orvplay
