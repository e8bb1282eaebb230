#pragma once

#include <media/mediaplayer.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace orvtest {

// The media player of a test program: FakeMediaPlayer.cpp defines MediaPlayer for it. It plays
// nothing; it takes its commands down and tells what the test says. There is one player at a time.
class FakeMediaPlayer {
public:
    static FakeMediaPlayer& instance();

    void reset();
    // The commands since the last call, as "setVolume 1.0", "start", ...
    std::vector<std::string> take();
    size_t living() const;

    // The player tells, on a thread of its own. False when there is nobody to tell.
    bool tell(int msg, int ext1 = 0, int ext2 = 0);

    // What is taken down behind each command.
    void annotate(std::function<std::string()> annotation);

    void setPosition(int ms);
    void failSurfaces(int status);

    // From the fake.
    void note(const std::string& command);
    void addPlayer(int change);
    void setListener(const android::sp<android::MediaPlayerListener>& listener);
    int position() const;
    int surfaceStatus() const;

private:
    mutable std::mutex mLock;
    std::vector<std::string> mCommands;
    std::function<std::string()> mAnnotation;
    android::sp<android::MediaPlayerListener> mListener;
    int mPositionMs = 0;
    int mSurfaceStatus = 0;
    size_t mLiving = 0;
};

}  // namespace orvtest
