#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "dtv/SourceUri.h"

namespace orvhost {

// A source that sends to an address and a port:
//
//   udp://239.255.1.1:5000                a group, where the routes say it is
//   udp://eth1@239.255.1.1:5000           at this interface; the same as ?interface=eth1
//   rtp://[ff15::1]:5004?source=ADDRESS   from this one sender alone (RFC 4607)
//   udp://:5000                           what comes to any address of this machine
//   udp://192.0.2.2:5000                  to this one
//
// Both schemes read datagrams with an RTP header and without.
struct NetworkUri {
    enum class Family { None, V4, V6 };  // None: a name, still to be looked up

    std::string scheme;     // "udp" or "rtp"
    std::string host;       // as inet_ntop() prints it, or a name
    uint16_t port = 0;      // never 0
    std::string interface;  // empty: the system chooses
    std::string sender;     // numeric; empty: anyone
    Family family = Family::V4;
    bool isMulticast = false;

    // Takes a source apart. Nothing, and one line that says what to do, when that fails. Looks
    // nothing up.
    static std::optional<NetworkUri> parse(const std::string& text, std::string* error);
    static std::optional<NetworkUri> from(const SourceUri& uri, std::string* error);

    // Equal for equal sources, however they were written; parse() understands it.
    std::string toString() const;
};

bool isNetworkScheme(const std::string& scheme);

// Replaces a name of a host by its first address. Asks the resolver, which may take its time: for
// programs, not for the service. Any other text comes back as it is; so does one that is wrong,
// for the tuner to say why. Empty, and one line, when nobody knows the name.
std::string withAddress(const std::string& text, std::string* error);

}  // namespace orvhost
