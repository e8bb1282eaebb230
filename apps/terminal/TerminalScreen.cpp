#include "TerminalScreen.h"

#include <algorithm>

#include "RowWriter.h"
#include "TextColumns.h"
#include "channels/Utf8.h"

namespace orvplay {

namespace {

constexpr int64_t CAPTION_NS = 10'000'000'000;
constexpr int HELP_KEYS_COLUMNS = 15;
constexpr int NUMBER_COLUMNS = 7;

// Of the terminal alone.
constexpr KeyHelp TERMINAL_KEYS[] = {
    {"c, Tab", "list of channels"},
    {"?, h", "this help"},
    {"Ctrl-L", "draw the screen anew"},
};

}  // namespace

void TerminalScreen::showCaption(const std::string& utf8, int64_t nowNs) {
    mView.caption = utf8;
    mCaptionEndNs = nowNs + CAPTION_NS;
}

void TerminalScreen::showMessage(const std::string& utf8, int64_t nowNs, int64_t lastsNs) {
    mView.message = utf8;
    mMessageEndNs = nowNs + lastsNs;
}

void TerminalScreen::expire(int64_t nowNs) {
    if (nowNs >= mCaptionEndNs) {
        mView.caption.clear();
    }
    if (nowNs >= mMessageEndNs) {
        mView.message.clear();
    }
}

std::vector<UserRequest> TerminalScreen::onKey(const Key& key) {
    if (mMode == Mode::CHANNELS) {
        return onChannelKey(key);
    }
    if (mMode == Mode::HELP) {
        onHelpKey(key);
        return {};
    }
    if (key.name == Key::TAB || key.character == 'c') {
        mMenu.open();
        mMode = Mode::CHANNELS;
        return {};
    }
    if (key.character == '?' || key.character == 'h') {
        mHelpFirst = 0;
        mMode = Mode::HELP;
        return {};
    }
    const auto request = requestOf(key);
    return request.has_value() ? std::vector<UserRequest>{*request} : std::vector<UserRequest>();
}

std::vector<UserRequest> TerminalScreen::onChannelKey(const Key& key) {
    switch (key.name) {
        case Key::UP:
            mMenu.move(-1);
            break;
        case Key::DOWN:
            mMenu.move(1);
            break;
        case Key::PAGE_UP:
            mMenu.move(-mListRows);
            break;
        case Key::PAGE_DOWN:
            mMenu.move(mListRows);
            break;
        case Key::HOME:
            mMenu.move(-static_cast<int>(mMenu.left().size()));
            break;
        case Key::END:
            mMenu.move(static_cast<int>(mMenu.left().size()));
            break;
        case Key::BACKSPACE:
            mMenu.erase();
            break;
        case Key::ESCAPE:
        case Key::TAB:
            mMode = Mode::WATCH;
            break;
        case Key::ENTER:
            if (mMenu.chosen() >= 0) {
                mMode = Mode::WATCH;
                return {{Request::CHOOSE_CHANNEL, mMenu.chosen()}};
            }
            break;
        case Key::CHARACTER: {
            std::string character;
            appendUtf8(static_cast<uint32_t>(key.character), &character);
            mMenu.type(terminalText(character));
            break;
        }
        default:
            break;
    }
    return {};
}

void TerminalScreen::onHelpKey(const Key& key) {
    if (key.name == Key::DOWN || key.name == Key::PAGE_DOWN) {
        mHelpFirst += key.name == Key::DOWN ? 1 : mListRows;
    } else if (key.name == Key::UP || key.name == Key::PAGE_UP) {
        mHelpFirst -= key.name == Key::UP ? 1 : mListRows;
    } else {
        mMode = Mode::WATCH;
    }
}

std::vector<ScreenRow> TerminalScreen::rows(int columns, int rows, int64_t nowNs) {
    const int width = std::max(columns, 1);
    const int height = std::max(rows, 1);
    expire(nowNs);
    if (mMode == Mode::WATCH) {
        return watchRows(mView, width, height, nowNs);
    }
    mListRows = std::max(height - 2, 1);
    std::vector<ScreenRow> screen =
        mMode == Mode::CHANNELS ? channelRows(width, height) : helpRows(width, height);
    screen.resize(static_cast<size_t>(height));
    if (!mView.message.empty() && height > 1) {
        screen.back() = RowWriter(width).add(mView.message, Tone::ALARM).row();
    }
    return screen;
}

std::vector<ScreenRow> TerminalScreen::channelRows(int columns, int rows) const {
    const auto count = static_cast<int>(mMenu.left().size());
    RowWriter header(columns);
    header.add("Channels", Tone::STRONG).add("  " + mMenu.typed() + "_");
    header.addAtEdge(
        count == 0 ? "none" : std::to_string(mMenu.place() + 1) + " of " + std::to_string(count),
        Tone::FAINT);
    std::vector<ScreenRow> screen = {header.row()};
    const int first = mMenu.firstSeen(mListRows);
    for (int place = first; place < std::min(first + mListRows, count); ++place) {
        screen.push_back(channelRow(place, columns));
    }
    screen.resize(static_cast<size_t>(rows - 1));
    screen.push_back(
        RowWriter(columns).add("Enter plays   Escape back   type to search", Tone::FAINT).row());
    return screen;
}

ScreenRow TerminalScreen::channelRow(int place, int columns) const {
    const int index = mMenu.left()[static_cast<size_t>(place)];
    const ChannelRow& channel = mMenu.channels().rows[static_cast<size_t>(index)];
    const Tone tone = place == mMenu.place() ? Tone::REVERSE : Tone::NORMAL;
    RowWriter row(columns);
    row.add(index == mMenu.channels().playing ? "> " : "  ", tone);
    row.add(channel.number, tone).add(" ", tone).skipTo(2 + NUMBER_COLUMNS, tone);
    row.add(channel.name, tone);
    if (!channel.now.empty()) {
        row.add("  ", tone).skipTo(columns * 2 / 5, tone).add(channel.now, tone);
    }
    return row.skipTo(columns, tone).row();
}

std::vector<ScreenRow> TerminalScreen::helpRows(int columns, int rows) {
    std::vector<KeyHelp> keys = keyHelp();
    keys.insert(keys.end(), std::begin(TERMINAL_KEYS), std::end(TERMINAL_KEYS));
    const auto count = static_cast<int>(keys.size());
    mHelpFirst = std::clamp(mHelpFirst, 0, std::max(count - mListRows, 0));
    std::vector<ScreenRow> screen = {RowWriter(columns).add("Keys", Tone::STRONG).row()};
    for (int i = mHelpFirst; i < std::min(mHelpFirst + mListRows, count); ++i) {
        const KeyHelp& key = keys[static_cast<size_t>(i)];
        RowWriter row(columns);
        row.add(key.keys, Tone::STRONG).skipTo(std::min(HELP_KEYS_COLUMNS, columns / 2));
        screen.push_back(row.add(key.what).row());
    }
    screen.resize(static_cast<size_t>(std::max(rows - 1, 1)));
    screen.push_back(
        RowWriter(columns)
            .add(count > mListRows ? "up, down: more   any other key: back" : "any key: back",
                 Tone::FAINT)
            .row());
    return screen;
}

}  // namespace orvplay
