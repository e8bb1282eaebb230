#include "ScreenControls.h"

#include <SDL_keycode.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>

#include "KeyTable.h"

namespace orvplay {

namespace {

constexpr int64_t SECOND_NS = 1'000'000'000;
constexpr int64_t BANNER_NS = 5 * SECOND_NS;
constexpr int64_t MOTION_BANNER_NS = 2 * SECOND_NS;
constexpr int64_t VOLUME_NS = 3 * SECOND_NS / 2;
constexpr int64_t NUMBER_NS = 3 * SECOND_NS / 2;  // for the next digit
constexpr size_t NUMBER_DIGITS = 4;
constexpr int VOLUME_STEP = 2;
constexpr int WHEEL_ROWS = 3;
// A key as the table of keys has it; nothing for those without a place in it.
std::optional<Key> keyOf(int key) {
    static constexpr struct {
        int code;
        Key::Name name;
    } NAMES[] = {{SDLK_LEFT, Key::LEFT},
                 {SDLK_RIGHT, Key::RIGHT},
                 {SDLK_UP, Key::UP},
                 {SDLK_DOWN, Key::DOWN},
                 {SDLK_PAGEUP, Key::PAGE_UP},
                 {SDLK_PAGEDOWN, Key::PAGE_DOWN},
                 {SDLK_BACKSPACE, Key::BACKSPACE}};
    for (const auto& entry : NAMES) {
        if (entry.code == key) {
            return Key{entry.name};
        }
    }
    const bool isLetter = key == SDLK_SPACE || (key >= SDLK_a && key <= SDLK_z);
    return isLetter ? std::optional(Key{Key::CHARACTER, static_cast<char32_t>(key)}) : std::nullopt;
}

// Up and down are the next channels of what is live, else long steps.
std::optional<UserRequest> requestOfKey(int key, bool isLive) {
    if (isLive && (key == SDLK_UP || key == SDLK_DOWN)) {
        return UserRequest{key == SDLK_UP ? Request::NEXT_CHANNEL : Request::PREVIOUS_CHANNEL};
    }
    if (key == SDLK_j) {
        return UserRequest{Request::NEXT_CAPTIONS};
    }
    const std::optional<Key> found = keyOf(key);
    return found.has_value() ? requestOf(*found) : std::nullopt;
}

// Held keys go on with what is done in steps, and ask once for all else.
bool repeats(const UserRequest& request) {
    return request.what == Request::SEEK || request.what == Request::VOLUME;
}

bool isOver(int64_t endNs, int64_t nowNs) {
    return endNs != 0 && nowNs >= endNs;
}

}  // namespace

void ScreenControls::showBanner(int64_t nowNs) {
    mBannerEndNs = nowNs + BANNER_NS;
}

void ScreenControls::onKey(int key, bool isShifted, bool isRepeated, int64_t nowNs) {
    mTextIsOfKey = false;
    if (!isRepeated) {
        mHeldText.clear();
    }
    if (key == SDLK_ESCAPE) {
        return escape();
    }
    if (mListOpen) {
        return onListKey(key);
    }
    if (key == SDLK_BACKSPACE && !mNumber.empty()) {
        mNumber.pop_back();
        return;
    }
    const auto request = requestOfKey(key, mState.kind == SourceKind::LIVE);
    if (!request.has_value()) {
        return isRepeated ? void() : onOtherKey(key, isShifted, nowNs);
    }
    if (!isRepeated || repeats(*request)) {
        mRequests.push_back(*request);
        mVolumeEndNs = request->what == Request::MUTE ? nowNs + VOLUME_NS : mVolumeEndNs;
    }
}

// What is about the screen itself.
void ScreenControls::onOtherKey(int key, bool isShifted, int64_t nowNs) {
    switch (key) {
        case SDLK_c:
        case SDLK_TAB:
            mTextIsOfKey = true;
            return toggleList();
        case SDLK_RETURN:
        case SDLK_KP_ENTER:
            return mNumber.empty() ? showBanner(nowNs) : chooseNumber();
        case SDLK_i:
        case SDLK_o:
            return isBannerShown() ? void(mBannerEndNs = 0) : showBanner(nowNs);
        case SDLK_h:
            mHelpOpen = !mHelpOpen;
            return;
        case SDLK_f:
            return mActions.push_back(Action::FULL_SCREEN);
        case SDLK_d:
            return mActions.push_back(Action::DEINTERLACING);
        case SDLK_a:
            return isShifted ? mActions.push_back(Action::ASPECT) : void();
        default:
            return;
    }
}

// Letters come as text.
void ScreenControls::onListKey(int key) {
    const int all = static_cast<int>(mMenu.left().size());
    switch (key) {
        case SDLK_UP:
            return mMenu.move(-1);
        case SDLK_DOWN:
            return mMenu.move(1);
        case SDLK_PAGEUP:
            return mMenu.move(-mPage);
        case SDLK_PAGEDOWN:
            return mMenu.move(mPage);
        case SDLK_HOME:
            return mMenu.move(-all);
        case SDLK_END:
            return mMenu.move(all);
        case SDLK_BACKSPACE:
            mMenu.erase();
            return;
        case SDLK_TAB:
            return toggleList();
        case SDLK_RETURN:
        case SDLK_KP_ENTER:
            return choose(mMenu.chosen());
        default:
            return;
    }
}

void ScreenControls::onText(const std::string& utf8, int64_t nowNs) {
    if (utf8.empty() || std::exchange(mTextIsOfKey, false)) {
        return;
    }
    if (mListOpen) {
        return mMenu.type(utf8);
    }
    const bool isDigit = utf8.size() == 1 && utf8[0] >= '0' && utf8[0] <= '9';
    if (isDigit && (!mNumber.empty() || (utf8[0] != '9' && utf8[0] != '0'))) {
        return onDigit(utf8[0], nowNs);
    }
    onSign(utf8, nowNs);
}

void ScreenControls::onDigit(char digit, int64_t nowNs) {
    mNumber += digit;
    mNumberEndNs = nowNs + NUMBER_NS;
    if (mNumber.size() == NUMBER_DIGITS) {
        chooseNumber();
    }
}

void ScreenControls::onSign(const std::string& sign, int64_t nowNs) {
    const bool isHeld = std::exchange(mHeldText, sign) == sign;
    const bool isLetter =
        sign.size() == 1 && std::isalpha(static_cast<unsigned char>(sign[0])) != 0;
    if (sign.size() != 1 || sign == " " || isLetter) {
        return;  // came as a key
    }
    const std::optional<UserRequest> request =
        sign == ">"   ? UserRequest{Request::NEXT_CHANNEL}
        : sign == "<" ? UserRequest{Request::PREVIOUS_CHANNEL}
                      : requestOf({Key::CHARACTER, static_cast<char32_t>(sign[0])});
    if (sign == "?" && !isHeld) {
        mHelpOpen = !mHelpOpen;
    }
    if (request.has_value() && (!isHeld || repeats(*request))) {
        mRequests.push_back(*request);
        mVolumeEndNs = request->what == Request::VOLUME ? nowNs + VOLUME_NS : mVolumeEndNs;
    }
}

void ScreenControls::onWheel(int up, int64_t nowNs) {
    if (mListOpen) {
        mMenu.move(-up * WHEEL_ROWS);
    } else if (up != 0) {
        changeVolume(up * VOLUME_STEP, nowNs);
    }
}

void ScreenControls::onListClick(int row, bool isInside) {
    if (row >= 0) {
        choose(row);
    } else if (!isInside) {
        mListOpen = false;
    }
}

void ScreenControls::onBarClick(int64_t positionMs, int64_t nowNs) {
    mBannerEndNs = nowNs + BANNER_NS;
    mRequests.push_back({Request::SEEK_TO, positionMs});
}

void ScreenControls::onMotion(int64_t nowNs) {
    if (mState.durationMs > 0) {
        mBannerEndNs = std::max(mBannerEndNs, nowNs + MOTION_BANNER_NS);
    }
}

// The innermost thing that is open.
void ScreenControls::escape() {
    if (mListOpen) {
        mListOpen = false;
    } else if (mHelpOpen) {
        mHelpOpen = false;
    } else if (!mNumber.empty()) {
        mNumber.clear();
    } else {
        mActions.push_back(Action::LEAVE_FULL_SCREEN);
    }
}

void ScreenControls::toggleList() {
    mListOpen = !mListOpen;
    mHelpOpen = false;
    mNumber.clear();
    if (mListOpen) {
        mBannerEndNs = 0;  // it would lie behind
        mMenu.open();
    }
}

void ScreenControls::choose(int row) {
    mListOpen = false;
    if (row >= 0) {
        mRequests.push_back({Request::CHOOSE_CHANNEL, row});
    }
}

void ScreenControls::chooseNumber() {
    const ChannelRow* const row = numbered();
    mNumber.clear();
    if (row != nullptr) {
        choose(static_cast<int>(row - mMenu.channels().rows.data()));
    }
}

const ChannelRow* ScreenControls::numbered() const {
    const auto bare = [](const std::string& text) {
        return text.substr(std::min(text.find_first_not_of('0'), text.size()));
    };
    const std::string wanted = bare(mNumber);
    const ChannelRow* first = nullptr;
    for (const ChannelRow& row : mMenu.channels().rows) {
        const std::string own = bare(row.number);
        if (!row.number.empty() && own == wanted) {
            return &row;
        }
        if (first == nullptr && own.starts_with(wanted + ".")) {
            first = &row;
        }
    }
    return first;
}

void ScreenControls::changeVolume(int by, int64_t nowNs) {
    mVolumeEndNs = nowNs + VOLUME_NS;
    mRequests.push_back({Request::VOLUME, by});
}

void ScreenControls::look(int64_t nowNs) {
    if (!mNumber.empty() && nowNs >= mNumberEndNs) {
        chooseNumber();
    }
    if (isOver(mBannerEndNs, nowNs)) {
        mBannerEndNs = 0;
    }
    if (isOver(mVolumeEndNs, nowNs)) {
        mVolumeEndNs = 0;
    }
}

std::vector<UserRequest> ScreenControls::takeRequests() {
    return std::exchange(mRequests, {});
}

std::vector<ScreenControls::Action> ScreenControls::takeActions() {
    return std::exchange(mActions, {});
}

}  // namespace orvplay
