#include "MprisPlayer.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "MonotonicTime.h"
#include "MprisTables.h"

namespace orvplay {

namespace {

constexpr int64_t BETWEEN_SIGNALS_NS = 1'000'000'000;
// Of one look: who asks without end does not keep the player from playing.
constexpr int MAX_MESSAGES = 32;
// Messages for a bus that takes none; it is left then.
constexpr uint64_t MAX_QUEUED = 256;
constexpr size_t MAX_REQUESTS = 64;
constexpr double VOLUME_STEP = 0.001;

}  // namespace

void MprisPlayer::CloseBus::operator()(sd_bus* bus) const {
    sd_bus_close_unref(bus);
}

MprisPlayer::~MprisPlayer() = default;

bool MprisPlayer::open() {
    sd_bus* bus = nullptr;
    if (sd_bus_open_user(&bus) < 0) {
        return false;
    }
    mBus.reset(bus);
    sd_bus_set_exit_on_disconnect(bus, 0);
    const std::string name =
        std::string(MPRIS_ROOT) + ".orvplay.instance" + std::to_string(getpid());
    if (sd_bus_add_object_vtable(bus, nullptr, MPRIS_PATH, MPRIS_ROOT, MprisTables::root(), this) <
            0 ||
        sd_bus_add_object_vtable(bus, nullptr, MPRIS_PATH, MPRIS_PLAYER, MprisTables::player(),
                                 this) < 0 ||
        sd_bus_request_name_async(bus, nullptr, name.c_str(), 0, nullptr, nullptr) < 0) {
        close();
    }
    return mBus != nullptr;
}

// What is queued is not waited for.
void MprisPlayer::close() {
    mBus.reset();
}

pollfd MprisPlayer::watched() const {
    pollfd watched{-1, 0, 0};
    if (mBus != nullptr) {
        const int events = sd_bus_get_events(mBus.get());
        watched.fd = events >= 0 ? sd_bus_get_fd(mBus.get()) : -1;
        watched.events = static_cast<short>(std::max(events, 0));
    }
    return watched;
}

void MprisPlayer::process() {
    int result = 1;
    for (int left = MAX_MESSAGES; left > 0 && mBus != nullptr && result > 0; --left) {
        result = sd_bus_process(mBus.get(), nullptr);
    }
    uint64_t queued = 0;
    if (mBus != nullptr) {
        sd_bus_get_n_queued_write(mBus.get(), &queued);
    }
    if (result < 0 || queued > MAX_QUEUED) {
        close();
    }
    tellChanges(monotonicNs());
}

void MprisPlayer::publish(const MprisState& state) {
    const bool isOther =
        state.title != mState.title || state.url != mState.url || state.channel != mState.channel;
    const auto note = [this](Change change, bool isOne) {
        mChanges |= isOne ? uint32_t{change} : 0U;
    };
    mTrack += isOther ? 1 : 0;
    note(METADATA, isOther || state.lengthUs != mState.lengthUs);
    note(STATUS, state.isPaused != mState.isPaused);
    note(VOLUME, std::abs(state.volume - mState.volume) > VOLUME_STEP);
    note(CAN_SEEK, state.canSeek != mState.canSeek);
    note(CAN_ZAP, state.canZap != mState.canZap);
    const bool isSeek = state.seeks != mState.seeks;
    mState = state;
    if (isSeek && mBus != nullptr) {
        sd_bus_emit_signal(mBus.get(), MPRIS_PATH, MPRIS_PLAYER, "Seeked", "x", mState.positionUs);
    }
    tellChanges(monotonicNs());
}

void MprisPlayer::tellChanges(int64_t nowNs) {
    if (mBus == nullptr || mChanges == 0 ||
        (mToldNs != 0 && nowNs - mToldNs < BETWEEN_SIGNALS_NS)) {
        return;
    }
    struct {
        uint32_t change;
        const char* property;
    } const all[] = {{STATUS, "PlaybackStatus"}, {METADATA, "Metadata"},
                     {VOLUME, "Volume"},         {CAN_SEEK, "CanSeek"},
                     {CAN_ZAP, "CanGoNext"},     {CAN_ZAP, "CanGoPrevious"}};
    std::vector<std::string> names;
    for (const auto& one : all) {
        if ((mChanges & one.change) != 0) {
            names.emplace_back(one.property);
        }
    }
    std::vector<char*> pointers;
    for (std::string& name : names) {
        pointers.push_back(name.data());
    }
    pointers.push_back(nullptr);
    sd_bus_emit_properties_changed_strv(mBus.get(), MPRIS_PATH, MPRIS_PLAYER, pointers.data());
    mChanges = 0;
    mToldNs = nowNs;
    ++mSignalsSent;
}

void MprisPlayer::ask(Request what, int64_t value) {
    if (mRequests.size() < MAX_REQUESTS) {
        mRequests.push_back({what, value});
    }
}

std::vector<UserRequest> MprisPlayer::takeRequests() {
    return std::exchange(mRequests, {});
}

std::string MprisPlayer::trackPath() const {
    return "/org/orvplayer/track/" + std::to_string(mTrack);
}

}  // namespace orvplay
