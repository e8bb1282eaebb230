#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace orvtest {

// The sound output of a test program: FakeAudio.cpp defines AudioTrack and AudioSystem for it.
//
// Nothing is played by itself: a write is taken down when it comes and then waits until the test
// lets it pass, so that a test sees the renderer's writes one by one. Stopping the track ends it
// as well. There is one track at a time.
class FakeAudio {
public:
    struct Track {
        uint32_t rate;
        uint32_t channelMask;
        bool operator==(const Track&) const = default;
    };
    struct Write {
        size_t size;
        int first;  // the first byte, -1 when there is none
        bool operator==(const Write&) const = default;
    };

    static FakeAudio& instance();

    void reset();
    void failTracks(int status);  // initCheck() of the tracks that come
    void setDevice(uint32_t device, bool connected);

    // The write that waits, or comes within the limit, returns `result`: what it was given by
    // default. False when none came.
    bool pass(Write* write, std::optional<long> result = std::nullopt);
    // Lets everything pass from now on.
    void open();

    std::vector<Track> tracks() const;  // created so far
    size_t living() const;
    size_t flushes() const;
    float volume() const;  // set last
    // What AudioSystem was asked for since the last time, with blanks between.
    std::string takeRouting();

    // From the fakes.
    int addTrack(const Track& track);
    void removeTrack();
    void addFlush();
    void setRunning(bool running);
    void setVolume(float volume);
    long write(const void* bytes, size_t size);
    bool isConnected(uint32_t device) const;
    void addRouting(const std::string& request);

private:
    static constexpr std::chrono::seconds LIMIT{5};

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<Track> mTracks;
    std::set<uint32_t> mDevices;
    std::optional<Write> mWaiting;
    std::optional<long> mResult;  // of the write that waits
    bool mOpen = false;
    bool mRunning = false;  // the track at hand
    int mTrackStatus = 0;
    size_t mLiving = 0;
    size_t mFlushes = 0;
    float mVolume = -1;
    std::string mRouting;
};

}  // namespace orvtest
