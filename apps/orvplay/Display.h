#pragma once

#include "graphics/BufferQueue.h"

namespace orvplay {

// Where pictures become visible: a window. Everything is called on the one thread that opened it.
class Display {
public:
    enum class Request { NONE, QUIT };

    virtual ~Display() = default;

    // False when there is no display or it cannot be used; says why on standard error.
    virtual bool open() = 0;

    // Shows a picture; it is read during the call only, or kept by its buffer reference while the
    // caller keeps the slot of the last three pictures shown acquired.
    virtual void show(const orvhost::AcquiredBuffer& picture) = 0;

    // Handles what came from the user; never waits. Called between pictures, at least every 20 ms.
    virtual Request handleEvents() = 0;

    // Size of the window in pixels.
    virtual int width() const = 0;
    virtual int height() const = 0;
};

}  // namespace orvplay
