#pragma once

// Events of the recorder. Any thread.
class IRecorderListener {
public:
    virtual ~IRecorderListener() = default;
    virtual void onRecorderStarted(int result) = 0;
    virtual void onRecorderStopped(int result) = 0;
    virtual void onError(int code) = 0;
};
