#pragma once

namespace orvplay {

// Decides how much work goes into each picture, so that showing keeps up with the broadcast.
//
// Level 0 is the least work, each further level costs about twice as much. Where showing takes
// most of the time between pictures, the level falls; the rest of the machine is needed to decode.
// After a calm while the next level is tried again, and each time that fails the while doubles.
// Not thread-safe.
class LoadGuard {
public:
    explicit LoadGuard(int highestLevel) : mHighest(highestLevel), mLevel(highestLevel) {}

    int level() const { return mLevel; }

    // `costMs` of real time went into a picture that was on for `periodMs`.
    void onPicture(double costMs, double periodMs);

private:
    void change(int level);

    static constexpr int CALM_PICTURES = 300;
    static constexpr int CALM_PICTURES_MAX = 300 * 64;

    const int mHighest;
    int mLevel;
    double mShare = 0.0;  // of the time between pictures, smoothed
    int mPictures = 0;    // since the level changed
    int mCalm = 0;        // of these, in a row with time to spare
    int mCalmNeeded = CALM_PICTURES;
    bool mTrying = false;  // the level was raised and has not proved itself
};

}  // namespace orvplay
