#pragma once

// Events of the recorded-stream player and the media-file player. Any thread.
class IPlayerListener {
public:
    virtual ~IPlayerListener() = default;
    virtual void onTimeUpdate(int /*elapsedSeconds*/) {}
    virtual void onEndOfContent() {}
    virtual void onError(int /*code*/) {}
};
