#include "audio/PulseServer.h"

#include <algorithm>
#include <mutex>

#include "audio/AudioOutput.h"
#include "audio/OutputKind.h"
#include "audio/PulseStream.h"
#include "trace/HostLog.h"

namespace orvhost {
namespace {

constexpr pa_usec_t RETRY_US = 2'000'000;

std::mutex sSharedLock;  // held while the shared server is made or its route set
std::atomic<PulseServer*> sShared{nullptr};
audio_policy_forced_cfg_t sRoute = AUDIO_POLICY_FORCE_NONE;  // under sSharedLock

std::string property(const pa_proplist* pProperties, const char* pKey) {
    const char* const pValue = pa_proplist_gets(pProperties, pKey);
    return pValue != nullptr ? pValue : "";
}

}  // namespace

PulseServer& PulseServer::shared() {
    const std::lock_guard<std::mutex> guard(sSharedLock);
    if (sShared.load(std::memory_order_relaxed) == nullptr) {
        sShared.store(new PulseServer(sRoute), std::memory_order_release);
    }
    return *sShared.load(std::memory_order_relaxed);
}

PulseServer* PulseServer::sharedIfAny() {
    return sShared.load(std::memory_order_acquire);
}

void PulseServer::setSharedRoute(audio_policy_forced_cfg_t config) {
    const std::lock_guard<std::mutex> guard(sSharedLock);
    sRoute = config;
    if (PulseServer* const pServer = sharedIfAny()) {
        pServer->setRoute(config);
    }
}

PulseServer::PulseServer(audio_policy_forced_cfg_t route)
    : mLoop(pa_threaded_mainloop_new()), mRoute(route) {
    pa_threaded_mainloop_set_name(mLoop, "AudioOutput");
    if (pa_threaded_mainloop_start(mLoop) < 0) {
        HOST_LOGE("%s: no thread for the sound server", __func__);
    }
    addMasterVolumeListener(this);
}

PulseServer::~PulseServer() {
    removeMasterVolumeListener(this);
    {
        const Lock lock(*this);
        closeContext();
    }
    pa_threaded_mainloop_stop(mLoop);
    pa_threaded_mainloop_free(mLoop);
}

void PulseServer::forget(pa_operation* pOperation) {
    if (pOperation != nullptr) {
        pa_operation_unref(pOperation);
    }
}

void PulseServer::attach(PulseStream* pStream) {
    mStreams.push_back(pStream);
    if (!isAlive()) {
        connect();
    }
}

void PulseServer::detach(PulseStream* pStream) {
    std::erase(mStreams, pStream);
    onStreamChanged();
}

// Connected or about to be.
bool PulseServer::isAlive() const {
    return mpContext != nullptr && PA_CONTEXT_IS_GOOD(pa_context_get_state(mpContext));
}

// Without streams nothing is tried again: the next one starts anew.
void PulseServer::connect() {
    closeContext();
    if (mStreams.empty()) {
        return;
    }
    mpContext = pa_context_new(pa_threaded_mainloop_get_api(mLoop), "OrvPlayer");
    if (mpContext == nullptr) {
        return;
    }
    pa_context_set_state_callback(mpContext, onContextState, this);
    pa_context_set_subscribe_callback(mpContext, onServerEvent, this);
    if (pa_context_connect(mpContext, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        onLost(pa_strerror(pa_context_errno(mpContext)));
    }
}

void PulseServer::closeContext() {
    mIsReady = false;
    mIsRefreshing = mIsRefreshDue = false;
    mArrivingSinks.clear();
    if (mpContext == nullptr) {
        return;
    }
    pa_context_set_state_callback(mpContext, nullptr, nullptr);
    pa_context_set_subscribe_callback(mpContext, nullptr, nullptr);
    for (PulseStream* const pStream : mStreams) {
        pStream->disconnect();
    }
    pa_context_disconnect(mpContext);
    pa_context_unref(mpContext);
    mpContext = nullptr;
}

void PulseServer::onContextState(pa_context* pContext, void* pSelf) {
    auto* const pThis = static_cast<PulseServer*>(pSelf);
    switch (pa_context_get_state(pContext)) {
        case PA_CONTEXT_READY:
            pThis->onReady();
            break;
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            pThis->onLost(pa_strerror(pa_context_errno(pContext)));
            break;
        default:
            break;
    }
}

void PulseServer::onReady() {
    HOST_LOGI("%s: playing through %s", __func__, pa_context_get_server(mpContext));
    mIsReady = true;
    mIsLossLogged = false;
    constexpr auto EVENTS = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SINK |
                                                                PA_SUBSCRIPTION_MASK_SERVER);
    forget(pa_context_subscribe(mpContext, EVENTS, nullptr, nullptr));
    refresh();
    for (PulseStream* const pStream : mStreams) {
        pStream->connect();
    }
}

// The context is closed by the retry: it may not go away inside its own callback.
void PulseServer::onLost(const char* pReason) {
    const bool wasReady = mIsReady;
    mIsReady = false;
    mSinks.clear();
    mForcedPorts.clear();
    onStreamChanged();
    if (wasReady) {
        HOST_LOGW("%s: lost the sound server (%s): playing in silence", __func__, pReason);
    } else if (!mIsLossLogged && audioOutput() == AudioOutput::PULSE) {
        HOST_LOGE("%s: no sound server (%s): playing in silence", __func__, pReason);
    } else if (!mIsLossLogged) {
        HOST_LOGI("%s: no sound server (%s): playing in silence", __func__, pReason);
    }
    mIsLossLogged = true;
    if (!mIsRetryPending) {
        mIsRetryPending = true;
        pa_context_rttime_new(mpContext, pa_rtclock_now() + RETRY_US, onRetry, this);
    }
}

void PulseServer::onRetry(pa_mainloop_api* pApi, pa_time_event* pEvent, const timeval* /*pTime*/,
                          void* pSelf) {
    pApi->time_free(pEvent);
    auto* const pThis = static_cast<PulseServer*>(pSelf);
    pThis->mIsRetryPending = false;
    if (!pThis->isAlive()) {
        pThis->connect();
    }
}

void PulseServer::onServerEvent(pa_context* /*pContext*/, pa_subscription_event_type_t /*type*/,
                                uint32_t /*index*/, void* pSelf) {
    static_cast<PulseServer*>(pSelf)->refresh();
}

// One list at a time; events that come meanwhile lead to one more.
void PulseServer::refresh() {
    if (mIsRefreshing) {
        mIsRefreshDue = true;
        return;
    }
    mIsRefreshing = true;
    mIsRefreshDue = false;
    mArrivingSinks.clear();
    forget(pa_context_get_server_info(mpContext, onServerInfo, this));
    forget(pa_context_get_sink_info_list(mpContext, onSinkInfo, this));
}

void PulseServer::onServerInfo(pa_context* /*pContext*/, const pa_server_info* pInfo, void* pSelf) {
    if (pInfo != nullptr) {
        const char* const pName = pInfo->default_sink_name;
        static_cast<PulseServer*>(pSelf)->mDefaultSink = pName != nullptr ? pName : "";
    }
}

void PulseServer::onSinkInfo(pa_context* /*pContext*/, const pa_sink_info* pInfo, int end,
                             void* pSelf) {
    auto* const pThis = static_cast<PulseServer*>(pSelf);
    if (end == 0) {
        pThis->mArrivingSinks.push_back(describe(*pInfo));
        return;
    }
    pThis->mIsRefreshing = false;
    pThis->mSinks.swap(pThis->mArrivingSinks);
    for (PulseStream* const pStream : pThis->mStreams) {
        pStream->connect();  // where it had failed for want of an output
    }
    pThis->onStreamChanged();
    if (pThis->mIsRefreshDue) {
        pThis->refresh();
    }
}

PulseServer::Sink PulseServer::describe(const pa_sink_info& info) {
    OutputTraits traits;
    traits.bus = property(info.proplist, PA_PROP_DEVICE_BUS);
    traits.api = property(info.proplist, PA_PROP_DEVICE_API);
    traits.formFactor = property(info.proplist, PA_PROP_DEVICE_FORM_FACTOR);
    traits.bluetoothProfile = property(info.proplist, "bluetooth.protocol") +
                              property(info.proplist, "api.bluez5.profile");
    Sink sink{info.index, info.name, "", AUDIO_DEVICE_NONE, {}};
    for (uint32_t i = 0; i < info.n_ports; i++) {
        const pa_sink_port_info& port = *info.ports[i];
        traits.portType = static_cast<int>(port.type);
        traits.portName = port.name;
        if (port.available != PA_PORT_AVAILABLE_NO) {
            sink.ports.push_back({port.name, outputDevice(traits)});
        }
    }
    traits.portType = info.active_port != nullptr ? static_cast<int>(info.active_port->type) : 0;
    traits.portName = info.active_port != nullptr ? info.active_port->name : "";
    sink.activePort = traits.portName;
    sink.device = outputDevice(traits);
    return sink;
}

const PulseServer::Sink* PulseServer::findSink(uint32_t index) const {
    const auto found = std::find_if(mSinks.begin(), mSinks.end(),
                                    [index](const Sink& sink) { return sink.index == index; });
    return found != mSinks.end() ? &*found : nullptr;
}

const PulseServer::Sink* PulseServer::findSink(const std::string& name) const {
    const auto found = std::find_if(mSinks.begin(), mSinks.end(),
                                    [&name](const Sink& sink) { return sink.name == name; });
    return found != mSinks.end() ? &*found : nullptr;
}

void PulseServer::onStreamChanged() {
    applyRoute();
    const Sink* const pDefault = findSink(mDefaultSink);
    audio_devices_t current = pDefault != nullptr ? pDefault->device : AUDIO_DEVICE_NONE;
    for (PulseStream* const pStream : mStreams) {
        if (const Sink* const pSink = findSink(pStream->sinkIndex())) {
            pStream->onDeviceChanged(pSink->device);
            current = pSink->device;  // the newest stream tells
        }
    }
    mCurrentDevice.store(current, std::memory_order_relaxed);
}

void PulseServer::setRoute(audio_policy_forced_cfg_t config) {
    const Lock lock(*this);
    mRoute = config;
    applyRoute();
}

void PulseServer::onMasterVolume() {
    const Lock lock(*this);
    for (PulseStream* const pStream : mStreams) {
        pStream->applyVolume();
    }
}

void PulseServer::applyRoute() {
    if (!mIsReady || mSinks.empty()) {
        return;
    }
    if (mRoute == AUDIO_POLICY_FORCE_NONE) {
        releaseRoute();
        return;
    }
    for (PulseStream* const pStream : mStreams) {
        route(*pStream);
    }
}

// Undoes what was forced and nothing that the user chose.
void PulseServer::releaseRoute() {
    for (const ForcedPort& forced : mForcedPorts) {
        forget(pa_context_set_sink_port_by_name(mpContext, forced.sink.c_str(),
                                                forced.formerPort.c_str(), nullptr, nullptr));
    }
    mForcedPorts.clear();
    const Sink* const pDefault = findSink(mDefaultSink);
    for (PulseStream* const pStream : mStreams) {
        if (pStream->isMoved() && pStream->isPlaying() && pDefault != nullptr) {
            pStream->setMoved(false);
            forget(pa_context_move_sink_input_by_index(mpContext, pStream->streamIndex(),
                                                       pDefault->index, nullptr, nullptr));
        }
    }
}

// Asked again before the server answers, the port that stands is the first one all the same.
void PulseServer::noteForcedPort(const Sink& sink) {
    const bool isKnown =
        std::any_of(mForcedPorts.begin(), mForcedPorts.end(),
                    [&sink](const ForcedPort& forced) { return forced.sink == sink.name; });
    if (!isKnown) {
        mForcedPorts.push_back({sink.name, sink.activePort});
    }
}

// Stays on the stream's output where that can serve, be it by another port, else takes the first
// other one that can.
void PulseServer::route(PulseStream& stream) {
    const Sink* const pCurrent = findSink(stream.sinkIndex());
    if (pCurrent == nullptr || servesRoute(mRoute, pCurrent->device)) {
        return;
    }
    std::vector<const Sink*> candidates{pCurrent};
    for (const Sink& sink : mSinks) {
        candidates.push_back(&sink);
    }
    for (const Sink* const pSink : candidates) {
        const auto port =
            std::find_if(pSink->ports.begin(), pSink->ports.end(),
                         [this](const Port& each) { return servesRoute(mRoute, each.device); });
        const bool isServing = servesRoute(mRoute, pSink->device);
        if (!isServing && port == pSink->ports.end()) {
            continue;
        }
        if (!isServing) {
            noteForcedPort(*pSink);
            forget(pa_context_set_sink_port_by_index(mpContext, pSink->index, port->name.c_str(),
                                                     nullptr, nullptr));
        }
        if (pSink != pCurrent) {
            stream.setMoved(true);
            forget(pa_context_move_sink_input_by_index(mpContext, stream.streamIndex(),
                                                       pSink->index, nullptr, nullptr));
        }
        return;
    }
}

}  // namespace orvhost
