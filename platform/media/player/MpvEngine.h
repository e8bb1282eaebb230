#pragma once

#include <mpv/client.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "media/player/MediaEngine.h"
#include "media/player/MpvPictures.h"

namespace orvhost {

// A file played by libmpv: an mpv core of its own, which reads no configuration, runs no scripts
// and draws nothing over the pictures. Commands come from one thread at a time.
class MpvEngine : public MediaEngine {
public:
    MpvEngine(MediaEngineClient& client, PictureSink& sink) : mClient(client), mSink(sink) {}
    ~MpvEngine() override;
    MpvEngine(const MpvEngine&) = delete;  // its threads know it by address
    MpvEngine& operator=(const MpvEngine&) = delete;

    bool open(const Source& source, MediaFailure* failure, std::string* reason) override;
    bool setPaused(bool paused) override;
    bool seek(int64_t ms, bool exactly) override;
    void setGain(double gain) override;
    int64_t durationMs() const override;
    void redraw() override;

private:
    enum class Opening { UNDER_WAY, DONE, FAILED };

    bool setUp(const Source& source);
    bool setOptions(const Source& source);
    bool restrictProtocols();
    bool load(const std::string& location);
    void keepUpright();
    void onArrival();
    void onTime(double seconds);

    void run();
    void onEvent(const mpv_event& event);
    void onProperty(uint64_t which, const mpv_event_property& property);
    void onVideoReconfig();
    void onFileEnd(const mpv_event_end_file& end);
    void fail(MediaFailure failure, const std::string& reason);

    MediaEngineClient& mClient;
    PictureSink& mSink;
    mpv_handle* mPlayer = nullptr;
    std::unique_ptr<MpvPictures> mPictures;
    std::thread mEvents;

    std::mutex mLock;
    std::condition_variable mChanged;
    Opening mOpening = Opening::UNDER_WAY;
    bool mExit = false;
    MediaFailure mFailure = MediaFailure::OTHER;
    std::string mReason;
};

}  // namespace orvhost
