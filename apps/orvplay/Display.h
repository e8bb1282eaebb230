#pragma once

#include <string>
#include <vector>

#include "ScreenState.h"
#include "UserRequest.h"
#include "graphics/BufferQueue.h"

namespace orvplay {

// Where pictures become visible: a window; or a terminal, which shows the rest. Everything is
// called on the one thread that opened it.
class Display {
public:
    virtual ~Display() = default;

    // False when there is no display or it cannot be used; says why on standard error.
    virtual bool open() = 0;

    // False where pictures go by it: handleEvents() then waits for the user itself, waitMs() at
    // most, and the size is none.
    virtual bool takesPictures() const { return true; }

    // Shows a picture; it is read during the call only.
    virtual void show(const orvhost::AcquiredBuffer& picture) = 0;

    // Puts a caption over the pictures, as UTF-8 rows, in place of the one before; empty: none.
    virtual void showCaption(const std::string& utf8) = 0;

    // Puts a line in the corner of the pictures, as UTF-8, in place of the one before: for two
    // seconds, or until the next one where it `stays`; empty: none.
    virtual void showStatus(const std::string& utf8, bool stays) = 0;

    // What there is to be told beside the pictures, twice a second at most, and at once after a
    // change that the user made. When and how it is shown is the display's business.
    virtual void showState(const ScreenState& state) = 0;
    // The channels to choose from, when they or what is on air there changed.
    virtual void showChannels(const ChannelRows& channels) = 0;
    // Something else plays, or the user asked what does: to be told for a while.
    virtual void showBanner() = 0;

    // Handles what came from the user and shows what is due; never waits. Called after each
    // picture, and when none came for as long as waitMs() said. What the user asked for, in order.
    virtual std::vector<UserRequest> handleEvents() = 0;

    // How long the caller may wait for a picture before it calls handleEvents() again.
    virtual int waitMs() const { return 20; }

    // Size of the window in pixels.
    virtual int width() const = 0;
    virtual int height() const = 0;
};

}  // namespace orvplay
