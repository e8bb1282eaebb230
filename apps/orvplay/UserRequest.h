#pragma once

#include <cstdint>
#include <string>

namespace orvplay {

// What the user wants of what plays, wherever it was said: by keys and mouse, on a terminal, by the
// desktop or by another command.
enum class Request {
    QUIT,
    NEXT_AUDIO,
    NEXT_CAPTIONS,
    PAUSE,    // or go on
    SEEK,     // value: milliseconds from where it is
    SEEK_TO,  // value: milliseconds from the beginning
    RECORD,   // or end that
    STILL,    // a picture of what is on the screen, as a file
    NEXT_CHANNEL,
    PREVIOUS_CHANNEL,
    LAST_CHANNEL,    // the one before this one
    CHOOSE_CHANNEL,  // value: row of what Display::showChannels() was told
    VOLUME,          // value: percent more, or less
    SET_VOLUME,      // value: percent
    MUTE,            // or not
    BANNER,          // what plays is to be told on the screen
};

// One of these; requests are done in the order in which they were made.
struct UserRequest {
    Request what = Request::QUIT;
    int64_t value = 0;
    std::string text = {};

    bool operator==(const UserRequest&) const = default;
};

}  // namespace orvplay
