#pragma once

#include <optional>
#include <vector>

#include "UserRequest.h"

namespace orvplay {

// A key, from whatever tells keys: one with a name, or the character that it types.
struct Key {
    enum Name {
        CHARACTER,
        LEFT,
        RIGHT,
        UP,
        DOWN,
        PAGE_UP,
        PAGE_DOWN,
        HOME,
        END,
        ENTER,
        ESCAPE,
        TAB,
        BACKSPACE,
    };
    Name name = CHARACTER;
    char32_t character = 0;
};

// What a key wants of what plays, wherever it was pressed; nothing for all others. Keys about the
// display itself, its lists and its help, are the display's.
std::optional<UserRequest> requestOf(const Key& key);

// These keys for people: "left, right", "5 seconds back, forward".
struct KeyHelp {
    const char* keys;
    const char* what;
};
const std::vector<KeyHelp>& keyHelp();

}  // namespace orvplay
