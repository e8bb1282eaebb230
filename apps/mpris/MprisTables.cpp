#include "MprisTables.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <string>

#include "MprisPlayer.h"

namespace orvplay {

namespace {

using Tables = MprisTables;

constexpr uint64_t CONSTANT = SD_BUS_VTABLE_PROPERTY_CONST;
constexpr uint64_t CHANGES = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;
constexpr uint64_t OPEN = SD_BUS_VTABLE_UNPRIVILEGED;  // the bus is the user's own

MprisPlayer& at(void* player) {
    return *static_cast<MprisPlayer*>(player);
}

int replyNothing(sd_bus_message* message) {
    return sd_bus_reply_method_return(message, nullptr);
}

bool isMember(sd_bus_message* message, const char* name) {
    return strcmp(sd_bus_message_get_member(message), name) == 0;
}

int appendString(sd_bus_message* reply, const char* key, const char* type,
                 const std::string& value) {
    return value.empty() ? 0 : sd_bus_message_append(reply, "{sv}", key, type, value.c_str());
}

const sd_bus_vtable ROOT[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Raise", "", "", Tables::onNothing, OPEN),
    SD_BUS_METHOD("Quit", "", "", Tables::onQuit, OPEN),
    SD_BUS_PROPERTY("CanQuit", "b", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("CanRaise", "b", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("HasTrackList", "b", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("Identity", "s", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("DesktopEntry", "s", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("SupportedUriSchemes", "as", Tables::getList, 0, CONSTANT),
    SD_BUS_PROPERTY("SupportedMimeTypes", "as", Tables::getList, 0, CONSTANT),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable PLAYER[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Next", "", "", Tables::onZap, OPEN),
    SD_BUS_METHOD("Previous", "", "", Tables::onZap, OPEN),
    SD_BUS_METHOD("Pause", "", "", Tables::onPlayback, OPEN),
    SD_BUS_METHOD("PlayPause", "", "", Tables::onPlayback, OPEN),
    SD_BUS_METHOD("Play", "", "", Tables::onPlayback, OPEN),
    SD_BUS_METHOD("Stop", "", "", Tables::onQuit, OPEN),
    SD_BUS_METHOD("Seek", "x", "", Tables::onSeek, OPEN),
    SD_BUS_METHOD("SetPosition", "ox", "", Tables::onSetPosition, OPEN),
    SD_BUS_METHOD("OpenUri", "s", "", Tables::onOpenUri, OPEN),
    SD_BUS_SIGNAL("Seeked", "x", 0),
    SD_BUS_PROPERTY("PlaybackStatus", "s", Tables::get, 0, CHANGES),
    SD_BUS_WRITABLE_PROPERTY("Rate", "d", Tables::get, Tables::setRate, 0, OPEN),
    SD_BUS_PROPERTY("MinimumRate", "d", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("MaximumRate", "d", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("Metadata", "a{sv}", Tables::getMetadata, 0, CHANGES),
    SD_BUS_WRITABLE_PROPERTY("Volume", "d", Tables::get, Tables::setVolume, 0, CHANGES | OPEN),
    SD_BUS_PROPERTY("Position", "x", Tables::get, 0, 0),
    SD_BUS_PROPERTY("CanGoNext", "b", Tables::get, 0, CHANGES),
    SD_BUS_PROPERTY("CanGoPrevious", "b", Tables::get, 0, CHANGES),
    SD_BUS_PROPERTY("CanPlay", "b", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("CanPause", "b", Tables::get, 0, CONSTANT),
    SD_BUS_PROPERTY("CanSeek", "b", Tables::get, 0, CHANGES),
    SD_BUS_PROPERTY("CanControl", "b", Tables::get, 0, CONSTANT),
    SD_BUS_VTABLE_END,
};

}  // namespace

const sd_bus_vtable* MprisTables::root() {
    return ROOT;
}

const sd_bus_vtable* MprisTables::player() {
    return PLAYER;
}

int MprisTables::onQuit(Message* message, void* player, Error*) {
    at(player).ask(Request::QUIT);
    return replyNothing(message);
}

// CanRaise is false.
int MprisTables::onNothing(Message* message, void*, Error*) {
    return replyNothing(message);
}

int MprisTables::onZap(Message* message, void* player, Error*) {
    if (at(player).mState.canZap) {
        at(player).ask(isMember(message, "Next") ? Request::NEXT_CHANNEL
                                                 : Request::PREVIOUS_CHANNEL);
    }
    return replyNothing(message);
}

// Two that come at once are told apart by what the first asked for.
int MprisTables::onPlayback(Message* message, void* player, Error*) {
    MprisState& state = at(player).mState;
    const bool pause =
        isMember(message, "PlayPause") ? !state.isPaused : isMember(message, "Pause");
    if (pause != state.isPaused) {
        state.isPaused = pause;
        at(player).mChanges |= MprisPlayer::STATUS;
        at(player).ask(Request::PAUSE);
    }
    return replyNothing(message);
}

// Beyond the end is the end; before the beginning the beginning.
int MprisTables::onSeek(Message* message, void* player, Error*) {
    int64_t byUs = 0;
    if (const int result = sd_bus_message_read(message, "x", &byUs); result < 0) {
        return result;
    }
    if (at(player).mState.canSeek) {
        at(player).ask(Request::SEEK, byUs / 1000);
    }
    return replyNothing(message);
}

// For another track, or a place that is not in this one, nothing is to be done.
int MprisTables::onSetPosition(Message* message, void* player, Error*) {
    const char* track = nullptr;
    int64_t positionUs = 0;
    if (const int result = sd_bus_message_read(message, "ox", &track, &positionUs); result < 0) {
        return result;
    }
    const MprisState& state = at(player).mState;
    const bool isInside = positionUs >= 0 && (state.lengthUs == 0 || positionUs <= state.lengthUs);
    if (state.canSeek && isInside && at(player).trackPath() == track) {
        at(player).ask(Request::SEEK_TO, positionUs / 1000);
    }
    return replyNothing(message);
}

int MprisTables::onOpenUri(Message*, void*, Error* error) {
    return sd_bus_error_set_const(error, SD_BUS_ERROR_NOT_SUPPORTED,
                                  "start another orvplay to play something else");
}

int MprisTables::get(sd_bus*, const char*, const char*, const char* property, Message* reply,
                     void* player, Error*) {
    const MprisState& state = at(player).mState;
    const std::string name = property;
    if (name == "Identity") {
        return sd_bus_message_append(reply, "s", "OrvPlayer");
    }
    if (name == "DesktopEntry") {
        return sd_bus_message_append(reply, "s", "orvplay");
    }
    if (name == "PlaybackStatus") {
        return sd_bus_message_append(reply, "s", state.isPaused ? "Paused" : "Playing");
    }
    if (name == "Position") {
        return sd_bus_message_append(reply, "x", state.positionUs);
    }
    if (name == "Volume") {
        return sd_bus_message_append(reply, "d", state.volume);
    }
    if (name.ends_with("Rate")) {
        return sd_bus_message_append(reply, "d", 1.0);
    }
    const bool is = name == "CanSeek" ? state.canSeek
                    : name == "CanGoNext" || name == "CanGoPrevious"
                        ? state.canZap
                        : name != "CanRaise" && name != "HasTrackList";
    return sd_bus_message_append(reply, "b", static_cast<int>(is));
}

int MprisTables::getList(sd_bus*, const char*, const char*, const char* property, Message* reply,
                         void*, Error*) {
    return strcmp(property, "SupportedUriSchemes") == 0
               ? sd_bus_message_append(reply, "as", 3, "file", "udp", "rtp")
               : sd_bus_message_append(reply, "as", 2, "video/mp2t", "video/mp4");
}

int MprisTables::getMetadata(sd_bus*, const char*, const char*, const char*, Message* reply,
                             void* player, Error*) {
    const MprisState& state = at(player).mState;
    const std::string track = at(player).trackPath();
    int result = sd_bus_message_open_container(reply, 'a', "{sv}");
    const auto add = [&](int next) { result = result < 0 ? result : next; };
    add(sd_bus_message_append(reply, "{sv}", "mpris:trackid", "o", track.c_str()));
    if (state.lengthUs > 0) {
        add(sd_bus_message_append(reply, "{sv}", "mpris:length", "x", state.lengthUs));
    }
    add(appendString(reply, "xesam:title", "s", state.title));
    if (!state.channel.empty()) {
        add(sd_bus_message_append(reply, "{sv}", "xesam:artist", "as", 1, state.channel.c_str()));
    }
    add(appendString(reply, "xesam:url", "s", state.url));
    add(sd_bus_message_close_container(reply));
    return result;
}

int MprisTables::setVolume(sd_bus*, const char*, const char*, const char*, Message* value,
                           void* player, Error*) {
    double volume = 0.0;
    if (const int result = sd_bus_message_read(value, "d", &volume); result < 0) {
        return result;
    }
    if (!std::isfinite(volume)) {
        return -EINVAL;
    }
    at(player).ask(Request::SET_VOLUME, std::lround(std::clamp(volume, 0.0, 1.0) * 100));
    return 0;
}

// Playback has one speed; none at all is a pause.
int MprisTables::setRate(sd_bus*, const char*, const char*, const char*, Message* value,
                         void* player, Error* error) {
    double rate = 0.0;
    if (const int result = sd_bus_message_read(value, "d", &rate); result < 0) {
        return result;
    }
    if (rate == 0.0) {
        MprisState& state = at(player).mState;
        if (!state.isPaused) {
            state.isPaused = true;
            at(player).mChanges |= MprisPlayer::STATUS;
            at(player).ask(Request::PAUSE);
        }
        return 0;
    }
    return rate == 1.0 ? 0
                       : sd_bus_error_set_const(error, SD_BUS_ERROR_INVALID_ARGS,
                                                "playback has one speed, 1.0");
}

}  // namespace orvplay
