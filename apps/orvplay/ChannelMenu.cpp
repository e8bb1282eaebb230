#include "ChannelMenu.h"

#include <algorithm>
#include <utility>

#include "channels/SearchText.h"

namespace orvplay {

namespace {

constexpr size_t TYPED_MAX = 64;  // bytes

bool isLeft(const ChannelRow& row, const std::string& typed, const std::string& wanted) {
    return typed.empty() || row.number.starts_with(typed) ||
           (!wanted.empty() && (searchText(row.name).find(wanted) != std::string::npos ||
                                searchText(row.now).find(wanted) != std::string::npos));
}

bool isSameChannel(const ChannelRow& one, const ChannelRow& other) {
    return one.number == other.number && one.name == other.name && one.serviceId == other.serviceId;
}

}  // namespace

void ChannelMenu::setChannels(ChannelRows channels) {
    int wanted = -1;
    if (const int row = chosen(); row >= 0) {
        const ChannelRow& before = mChannels.rows[static_cast<size_t>(row)];
        const auto found =
            std::find_if(channels.rows.begin(), channels.rows.end(),
                         [&](const ChannelRow& now) { return isSameChannel(now, before); });
        wanted =
            found != channels.rows.end() ? static_cast<int>(found - channels.rows.begin()) : -1;
    }
    mChannels = std::move(channels);
    filter(wanted);
}

void ChannelMenu::open() {
    mTyped.clear();
    filter(mChannels.playing);
}

void ChannelMenu::type(const std::string& utf8Character) {
    if (mTyped.size() + utf8Character.size() <= TYPED_MAX) {
        mTyped += utf8Character;
        filter(chosen());
    }
}

bool ChannelMenu::erase() {
    if (mTyped.empty()) {
        return false;
    }
    while (!mTyped.empty() && (static_cast<unsigned char>(mTyped.back()) & 0xC0) == 0x80) {
        mTyped.pop_back();
    }
    if (!mTyped.empty()) {
        mTyped.pop_back();
    }
    filter(chosen());
    return true;
}

void ChannelMenu::move(int by) {
    const int last = static_cast<int>(mLeft.size()) - 1;
    mPlace = std::clamp(mPlace + std::clamp(by, -last - 1, last + 1), 0, std::max(last, 0));
}

int ChannelMenu::chosen() const {
    return mLeft.empty() ? -1 : mLeft[static_cast<size_t>(mPlace)];
}

int ChannelMenu::firstSeen(int rows) const {
    const int last = std::max(static_cast<int>(mLeft.size()) - rows, 0);
    return std::clamp(mPlace - rows / 2, 0, last);
}

// The wanted row is chosen where it is left, else the first one.
void ChannelMenu::filter(int wanted) {
    const std::string text = searchText(mTyped);
    mLeft.clear();
    mPlace = 0;
    for (size_t i = 0; i < mChannels.rows.size(); ++i) {
        if (!isLeft(mChannels.rows[i], mTyped, text)) {
            continue;
        }
        if (static_cast<int>(i) == wanted) {
            mPlace = static_cast<int>(mLeft.size());
        }
        mLeft.push_back(static_cast<int>(i));
    }
}

}  // namespace orvplay
