#pragma once

#include <string>

namespace orvplay {

// What a player service of our own writes to standard error while it plays a media file.
//
// Such a service ends when its media player cannot go on, and says more than a viewer wants to
// read. Lines are passed on as they come, but what it says of its end is kept: the program makes
// one line of it. One thread.
class ServiceErrors {
public:
    ServiceErrors() = default;
    ~ServiceErrors();
    ServiceErrors(const ServiceErrors&) = delete;  // has a pipe
    ServiceErrors& operator=(const ServiceErrors&) = delete;

    // The standard error of the service; -1, and it shares ours, when there is no pipe for it.
    int open();

    // Takes what came. To be called now and then: the service waits when the pipe is full.
    void look();

    // It ended by an internal fault, which is what becomes of any error of its media player.
    bool hasFault() const { return mHasFault; }
    // What the media player said of that; empty when it said nothing.
    const std::string& reason() const { return mReason; }

private:
    void onLine(const std::string& line);

    int mRead = -1;
    int mWrite = -1;
    bool mHasFault = false;
    std::string mReason;
    std::string mPart;  // of a line
    std::string mKept;  // lines from the end on
};

}  // namespace orvplay
