#pragma once

#include <pulse/pulseaudio.h>
#include <system/audio.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "audio/MasterVolume.h"

namespace orvhost {

class PulseStream;

// The process's connection to the sound server, with a thread of its own: connects while there are
// streams, again every few seconds after a failure, follows which outputs there are, and moves
// streams where a forced route wants them.
//
// Nothing here waits for the server. "Locked" means that the caller holds the connection's lock
// (Lock) or runs in one of its callbacks; a track's lock may be taken inside it, never the other
// way round.
class PulseServer final : private MasterVolumeListener {
public:
    explicit PulseServer(audio_policy_forced_cfg_t route = AUDIO_POLICY_FORCE_NONE);
    ~PulseServer();                            // after the last stream
    PulseServer(const PulseServer&) = delete;  // the server's callbacks hold its address
    PulseServer& operator=(const PulseServer&) = delete;

    // The one of the process; made by the first track that may use it and never destroyed, so that
    // the process can exit at any time.
    static PulseServer& shared();
    static PulseServer* sharedIfAny();

    // Forces the route of media, now and for a server that comes later.
    static void setSharedRoute(audio_policy_forced_cfg_t config);

    // Where sound goes now; AUDIO_DEVICE_NONE without a server. Lock-free.
    audio_devices_t currentDevice() const { return mCurrentDevice.load(std::memory_order_relaxed); }

    class Lock {
    public:
        explicit Lock(PulseServer& server) : mLoop(server.mLoop) {
            pa_threaded_mainloop_lock(mLoop);
        }
        ~Lock() { pa_threaded_mainloop_unlock(mLoop); }
        Lock(const Lock&) = delete;  // a scope
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* const mLoop;
    };

    // Locked. The stream is told through its connect() and disconnect().
    void attach(PulseStream* pStream);
    void detach(PulseStream* pStream);

    // Locked. Null while there is no connection.
    pa_context* context() const { return mIsReady ? mpContext : nullptr; }

    // Locked. A stream started, ended or was moved.
    void onStreamChanged();

    static void forget(pa_operation* pOperation);

private:
    struct Port {
        std::string name;
        audio_devices_t device;
    };
    struct Sink {
        uint32_t index;
        std::string name;
        std::string activePort;
        audio_devices_t device;
        std::vector<Port> ports;  // those that are plugged in, as far as the server knows
    };
    // A port that a forced route switched, to be switched back.
    struct ForcedPort {
        std::string sink;
        std::string formerPort;
    };

    static void onContextState(pa_context* pContext, void* pSelf);
    static void onRetry(pa_mainloop_api* pApi, pa_time_event* pEvent, const timeval* pTime,
                        void* pSelf);
    static void onServerEvent(pa_context* pContext, pa_subscription_event_type_t type,
                              uint32_t index, void* pSelf);
    static void onServerInfo(pa_context* pContext, const pa_server_info* pInfo, void* pSelf);
    static void onSinkInfo(pa_context* pContext, const pa_sink_info* pInfo, int end, void* pSelf);
    static Sink describe(const pa_sink_info& info);

    void onMasterVolume() override;
    bool isAlive() const;
    void connect();
    void closeContext();
    void onReady();
    void onLost(const char* pReason);
    void refresh();
    void setRoute(audio_policy_forced_cfg_t config);
    void applyRoute();
    void releaseRoute();
    void route(PulseStream& stream);
    void noteForcedPort(const Sink& sink);
    const Sink* findSink(uint32_t index) const;
    const Sink* findSink(const std::string& name) const;

    pa_threaded_mainloop* const mLoop;
    std::atomic<audio_devices_t> mCurrentDevice{AUDIO_DEVICE_NONE};

    // Locked.
    pa_context* mpContext = nullptr;
    bool mIsReady = false;
    bool mIsRetryPending = false;
    bool mIsLossLogged = false;
    std::vector<PulseStream*> mStreams;
    audio_policy_forced_cfg_t mRoute;
    std::vector<ForcedPort> mForcedPorts;
    std::string mDefaultSink;
    std::vector<Sink> mSinks;
    std::vector<Sink> mArrivingSinks;  // while a list comes in
    bool mIsRefreshing = false;
    bool mIsRefreshDue = false;  // something changed while a list came in
};

}  // namespace orvhost
