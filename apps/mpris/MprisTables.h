#pragma once

#include <systemd/sd-bus.h>

namespace orvplay {

inline constexpr char MPRIS_PATH[] = "/org/mpris/MediaPlayer2";
inline constexpr char MPRIS_ROOT[] = "org.mpris.MediaPlayer2";
inline constexpr char MPRIS_PLAYER[] = "org.mpris.MediaPlayer2.Player";

// The two interfaces as sd-bus serves them: methods and properties, of a MprisPlayer as user data.
struct MprisTables {
    static const sd_bus_vtable* root();
    static const sd_bus_vtable* player();

    using Message = sd_bus_message;
    using Error = sd_bus_error;

    static int onQuit(Message* message, void* player, Error* error);
    static int onNothing(Message* message, void* player, Error* error);
    static int onZap(Message* message, void* player, Error* error);
    static int onPlayback(Message* message, void* player, Error* error);
    static int onSeek(Message* message, void* player, Error* error);
    static int onSetPosition(Message* message, void* player, Error* error);
    static int onOpenUri(Message* message, void* player, Error* error);

    static int get(sd_bus* bus, const char* path, const char* interface, const char* property,
                   Message* reply, void* player, Error* error);
    static int getList(sd_bus* bus, const char* path, const char* interface, const char* property,
                       Message* reply, void* player, Error* error);
    static int getMetadata(sd_bus* bus, const char* path, const char* interface,
                           const char* property, Message* reply, void* player, Error* error);
    static int setVolume(sd_bus* bus, const char* path, const char* interface, const char* property,
                         Message* value, void* player, Error* error);
    static int setRate(sd_bus* bus, const char* path, const char* interface, const char* property,
                       Message* value, void* player, Error* error);
};

}  // namespace orvplay
