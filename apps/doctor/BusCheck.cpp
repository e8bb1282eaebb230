#include <systemd/sd-bus.h>

#include <cstring>
#include <memory>

#include "Checks.h"

namespace orvdoctor {

namespace {

using State = Finding::State;

constexpr char NAME[] = "org.orvplayer.OrvPlayer";
constexpr char START[] = "systemctl --user enable --now orvplayerd";
constexpr uint64_t LONGEST_US = 3'000'000;

struct BusEnd {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct MessageEnd {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

// Whether the daemon names it in the answer to this question.
bool isListed(sd_bus* bus, const char* question) {
    sd_bus_message* answer = nullptr;
    const int called =
        sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", question, nullptr, &answer, nullptr);
    const std::unique_ptr<sd_bus_message, MessageEnd> owner(answer);
    if (called < 0 || sd_bus_message_enter_container(answer, 'a', "s") < 0) {
        return false;
    }
    const char* name = nullptr;
    while (sd_bus_message_read_basic(answer, 's', &name) > 0) {
        if (strcmp(name, NAME) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

Finding checkBus() {
    sd_bus* opened = nullptr;
    const int result = sd_bus_open_user(&opened);
    const std::unique_ptr<sd_bus, BusEnd> bus(opened);
    if (result < 0) {
        return {"bus", State::NOTE,
                std::string("no session bus (") + strerror(-result) +
                    "): orvplay starts a service of its own and needs none; --connect does",
                ""};
    }
    sd_bus_set_method_call_timeout(bus.get(), LONGEST_US);
    if (isListed(bus.get(), "ListNames")) {
        return {"bus", State::OK, "orvplayerd serves on the session bus", ""};
    }
    if (isListed(bus.get(), "ListActivatableNames")) {
        return {"bus", State::OK, "the session bus starts orvplayerd when it is called", ""};
    }
    return {"bus", State::NOTE,
            "orvplayerd is not on the session bus: only orvplay --connect needs it there", START};
}

}  // namespace orvdoctor
