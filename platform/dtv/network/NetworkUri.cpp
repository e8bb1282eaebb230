#include "dtv/network/NetworkUri.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>

namespace orvhost {

namespace {

using Family = NetworkUri::Family;

constexpr std::string_view IN_ALL_INTERFACES = "0.0.0.0";

// The address as inet_ntop() prints it, when the text is one.
Family normalize(const std::string& text, std::string* address, bool* isMulticast) {
    char printed[INET6_ADDRSTRLEN];
    in_addr v4;
    if (inet_pton(AF_INET, text.c_str(), &v4) == 1) {
        *isMulticast = IN_MULTICAST(ntohl(v4.s_addr));
        *address = inet_ntop(AF_INET, &v4, printed, sizeof printed);
        return Family::V4;
    }
    in6_addr v6;
    if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
        *isMulticast = IN6_IS_ADDR_MULTICAST(&v6);
        *address = inet_ntop(AF_INET6, &v6, printed, sizeof printed);
        return Family::V6;
    }
    return Family::None;
}

bool isInterfaceName(const std::string& name) {
    return !name.empty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
           name.find_first_of("/:%[]@?&") == std::string::npos;
}

bool isOfHostName(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
}

bool isHostName(const std::string& name) {
    return !name.empty() && name.size() < 254 && name[0] != '-' && name[0] != '.' &&
           std::all_of(name.begin(), name.end(), isOfHostName) &&
           !std::all_of(name.begin(), name.end(),
                        [](char c) { return c == '.' || (c >= '0' && c <= '9'); });
}

// One text taken apart; what is wrong with it is said once.
class Parser {
public:
    Parser(const SourceUri& uri, std::string* error) : mUri(uri), mError(error) {}

    std::optional<NetworkUri> parse() {
        mParsed.scheme = mUri.scheme;
        return parseTarget() && parseParameters() && settle() ? std::optional(mParsed)
                                                              : std::nullopt;
    }

private:
    bool fail(const std::string& what) {
        *mError = mUri.scheme + "://" + mUri.target + ": " + what;
        return false;
    }

    bool parseTarget() {
        std::string rest = mUri.target;
        if (!rest.empty() && rest.back() == '/') {
            rest.pop_back();
        }
        if (const size_t at = rest.find('@'); at != std::string::npos) {
            if (at > 0 && !takeInterface(rest.substr(0, at))) {
                return false;
            }
            rest.erase(0, at + 1);
        }
        std::string host;
        if (!rest.empty() && rest[0] == '[') {
            const size_t end = rest.find(']');
            if (end == std::string::npos) {
                return fail("no ] behind the address; write [ADDRESS]:PORT");
            }
            host = rest.substr(1, end - 1);
            rest.erase(0, end + 1);
            return takeBracketed(host) && takePort(rest);
        }
        const size_t colon = rest.rfind(':');
        host = rest.substr(0, colon);
        if (host.find(':') != std::string::npos) {
            return fail("an IPv6 address stands in brackets; write [ADDRESS]:PORT");
        }
        return takeHost(host) && takePort(colon == std::string::npos ? "" : rest.substr(colon));
    }

    // "fe80::1%eth0", the "%" escaped or not (RFC 6874).
    bool takeBracketed(std::string host) {
        if (const size_t percent = host.find('%'); percent != std::string::npos) {
            const size_t escape = host.compare(percent, 3, "%25") == 0 ? 3 : 1;
            if (!takeInterface(host.substr(percent + escape))) {
                return false;
            }
            host.erase(percent);
        }
        mParsed.family = normalize(host, &mParsed.host, &mParsed.isMulticast);
        return mParsed.family == Family::V6 || fail("no IPv6 address in the brackets; check it");
    }

    bool takeHost(const std::string& host) {
        if (host.empty()) {
            mParsed.host = IN_ALL_INTERFACES;
            return true;
        }
        mParsed.family = normalize(host, &mParsed.host, &mParsed.isMulticast);
        if (mParsed.family == Family::None) {
            mParsed.host = host;
            return isHostName(host) || fail("\"" + host + "\" is no address; check it");
        }
        return true;
    }

    bool takePort(const std::string& text) {
        if (text.size() < 2 || text[0] != ':') {
            return fail("no port; write " + mUri.scheme + "://ADDRESS:PORT");
        }
        const char* const end = text.data() + text.size();
        const auto parsed = std::from_chars(text.data() + 1, end, mParsed.port);
        return (parsed.ec == std::errc() && parsed.ptr == end && mParsed.port != 0) ||
               fail("\"" + text.substr(1) + "\" is no port; ports are 1 to 65535");
    }

    bool takeInterface(const std::string& name) {
        std::string address;
        bool isMulticast = false;
        if (normalize(name, &address, &isMulticast) != Family::None) {
            return fail(name + " is an address, not an interface; for one sender's packets add " +
                        "?source=" + name);
        }
        if (!isInterfaceName(name)) {
            return fail("\"" + name + "\" is no interface's name; see: ip link");
        }
        if (!mParsed.interface.empty() && mParsed.interface != name) {
            return fail("two interfaces, " + mParsed.interface + " and " + name + "; name one");
        }
        mParsed.interface = name;
        return true;
    }

    bool parseParameters() {
        for (const auto& [name, value] : mUri.parameters) {
            if (name == "interface") {
                if (!takeInterface(value)) {
                    return false;
                }
            } else if (name == "source") {
                bool isMulticast = false;
                mSenderFamily = normalize(value, &mParsed.sender, &isMulticast);
                if (mSenderFamily == Family::None || isMulticast) {
                    return fail("source=" + value + " is no sender's address; write a numeric one");
                }
            } else {
                return fail("unknown parameter \"" + name + "\"; there are source and interface");
            }
        }
        return true;
    }

    // What cannot be told from one part alone.
    bool settle() {
        if (!mParsed.sender.empty() && !mParsed.isMulticast) {
            return fail("source= goes with a multicast address; leave it out");
        }
        if (!mParsed.sender.empty() && mSenderFamily != mParsed.family) {
            return fail("source= and the group are IPv4 and IPv6; name two of one kind");
        }
        return true;
    }

    const SourceUri& mUri;
    std::string* const mError;
    NetworkUri mParsed;
    Family mSenderFamily = Family::None;
};

}  // namespace

bool isNetworkScheme(const std::string& scheme) {
    return scheme == "udp" || scheme == "rtp";
}

std::optional<NetworkUri> NetworkUri::from(const SourceUri& uri, std::string* error) {
    return Parser(uri, error).parse();
}

std::optional<NetworkUri> NetworkUri::parse(const std::string& text, std::string* error) {
    const auto uri = SourceUri::parse(text, error);
    if (uri && !isNetworkScheme(uri->scheme)) {
        *error = text + ": not on the network; write udp://ADDRESS:PORT or rtp://ADDRESS:PORT";
        return std::nullopt;
    }
    return uri ? from(*uri, error) : std::nullopt;
}

std::string NetworkUri::toString() const {
    std::string text = scheme + "://";
    if (!interface.empty()) {
        text += interface + "@";
    }
    text += family == Family::V6 ? "[" + host + "]" : host;
    text += ":" + std::to_string(port);
    return sender.empty() ? text : text + "?source=" + sender;
}

std::string withAddress(const std::string& text, std::string* error) {
    std::string unused;
    auto uri = SourceUri::isUri(text) ? NetworkUri::parse(text, &unused) : std::nullopt;
    if (!uri || uri->family != Family::None) {
        return text;
    }
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int failure = getaddrinfo(uri->host.c_str(), nullptr, &hints, &found);
    if (failure != 0) {
        *error = uri->host + ": " + gai_strerror(failure) + "; name a numeric address";
        return {};
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(found, freeaddrinfo);
    char address[INET6_ADDRSTRLEN] = "";
    if (found->ai_family == AF_INET6) {
        sockaddr_in6 v6;
        std::memcpy(&v6, found->ai_addr, sizeof v6);
        inet_ntop(AF_INET6, &v6.sin6_addr, address, sizeof address);
    } else {
        sockaddr_in v4;
        std::memcpy(&v4, found->ai_addr, sizeof v4);
        inet_ntop(AF_INET, &v4.sin_addr, address, sizeof address);
    }
    uri->family = normalize(address, &uri->host, &uri->isMulticast);
    return uri->toString();
}

}  // namespace orvhost
