#include "KeyTable.h"

namespace orvplay {

namespace {

// As the players that people know have it.
constexpr int64_t STEP_MS = 5'000;
constexpr int64_t FAR_STEP_MS = 60'000;
constexpr int64_t LOUDER_PERCENT = 2;

std::optional<UserRequest> requestOf(char32_t character) {
    switch (character) {
        case 'q':
            return UserRequest{Request::QUIT};
        case ' ':
        case 'p':
            return UserRequest{Request::PAUSE};
        case '#':
            return UserRequest{Request::NEXT_AUDIO};
        case 'v':
            return UserRequest{Request::NEXT_CAPTIONS};
        case 'r':
            return UserRequest{Request::RECORD};
        case 's':
            return UserRequest{Request::STILL};
        case 'm':
            return UserRequest{Request::MUTE};
        case '0':
        case '*':
            return UserRequest{Request::VOLUME, LOUDER_PERCENT};
        case '9':
        case '/':
            return UserRequest{Request::VOLUME, -LOUDER_PERCENT};
        default:
            return std::nullopt;
    }
}

}  // namespace

std::optional<UserRequest> requestOf(const Key& key) {
    switch (key.name) {
        case Key::CHARACTER:
            return requestOf(key.character);
        case Key::ESCAPE:
            return UserRequest{Request::QUIT};
        case Key::LEFT:
            return UserRequest{Request::SEEK, -STEP_MS};
        case Key::RIGHT:
            return UserRequest{Request::SEEK, STEP_MS};
        case Key::DOWN:
            return UserRequest{Request::SEEK, -FAR_STEP_MS};
        case Key::UP:
            return UserRequest{Request::SEEK, FAR_STEP_MS};
        case Key::PAGE_UP:
            return UserRequest{Request::NEXT_CHANNEL};
        case Key::PAGE_DOWN:
            return UserRequest{Request::PREVIOUS_CHANNEL};
        case Key::BACKSPACE:
            return UserRequest{Request::LAST_CHANNEL};
        default:
            return std::nullopt;
    }
}

const std::vector<KeyHelp>& keyHelp() {
    static const std::vector<KeyHelp> HELP = {
        {"q, Escape", "quit"},
        {"space, p", "pause, or go on"},
        {"Page Up, Down", "next, previous channel"},
        {"Backspace", "channel before this one"},
        {"9, 0", "quieter, louder"},
        {"m", "mute, or not"},
        {"#", "next sound"},
        {"v", "next captions, or none"},
        {"r", "record, or end that"},
        {"s", "still picture"},
        {"left, right", "5 seconds back, forward"},
        {"down, up", "60 seconds back, forward"},
    };
    return HELP;
}

}  // namespace orvplay
