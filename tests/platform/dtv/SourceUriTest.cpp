#include "dtv/SourceUri.h"

#include <gtest/gtest.h>

#include "dtv/network/NetworkUri.h"

namespace {

using orvhost::NetworkUri;
using orvhost::SourceUri;

struct Case {
    const char* text;
    const char* expected;  // printed again, or a part of the error
};

TEST(SourceUriTest, EverySpellingOfASourceIsPrintedAlike) {
    const Case cases[] = {
        {"udp://239.255.1.1:5000", "udp://239.255.1.1:5000"},
        {"UDP://@239.255.1.1:5000/", "udp://239.255.1.1:5000"},
        {"udp://eth1@239.255.1.1:5000", "udp://eth1@239.255.1.1:5000"},
        {"udp://239.255.1.1:5000?interface=eth1", "udp://eth1@239.255.1.1:5000"},
        {"udp://eth1@239.255.1.1:5000?interface=eth1", "udp://eth1@239.255.1.1:5000"},
        {"rtp://232.1.2.3:5004?source=192.0.2.7", "rtp://232.1.2.3:5004?source=192.0.2.7"},
        {"rtp://[FF15:0::1]:5004?source=2001:db8::%37", "rtp://[ff15::1]:5004?source=2001:db8::7"},
        {"udp://[fe80::1%25eth0]:5000", "udp://eth0@[fe80::1]:5000"},
        {"udp://[ff02::1%eth0]:5000", "udp://eth0@[ff02::1]:5000"},
        {"udp://:5000", "udp://0.0.0.0:5000"},
        {"udp://@:5000", "udp://0.0.0.0:5000"},
        {"udp://[::]:65535", "udp://[::]:65535"},
        {"udp://tv.example:5000", "udp://tv.example:5000"},
    };
    for (const Case& c : cases) {
        std::string error;
        const auto uri = NetworkUri::parse(c.text, &error);
        ASSERT_TRUE(uri.has_value()) << error;
        EXPECT_EQ(uri->toString(), c.expected);
        const bool isGroup = uri->host.compare(0, 2, "23") == 0 || uri->host[0] == 'f';
        EXPECT_EQ(uri->isMulticast, isGroup && uri->host.compare(0, 4, "fe80") != 0) << c.text;
        const auto again = NetworkUri::parse(uri->toString(), &error);
        EXPECT_EQ(again ? again->toString() : error, uri->toString());
    }
}

TEST(SourceUriTest, WhatIsWrongIsSaidInOneLine) {
    const Case cases[] = {
        {"udp://", "no port; write udp://ADDRESS:PORT"},
        {"udp://239.255.1.1", "no port"},
        {"udp://239.255.1.1:0", "ports are 1 to 65535"},
        {"udp://239.255.1.1:65536", "ports are 1 to 65535"},
        {"udp://239.255.1.1:5000x", "\"5000x\" is no port"},
        {"udp://239.255.1.256:5000", "\"239.255.1.256\" is no address"},
        {"udp://1.2.3:5000", "is no address"},
        {"udp://-x:5000", "is no address"},
        {"udp://ff15::1:5000", "stands in brackets"},
        {"udp://[ff15::1:5000", "no ] behind the address"},
        {"udp://[ff15::1]", "no port"},
        {"udp://[ff15::g]:5000", "no IPv6 address in the brackets"},
        {"udp://192.0.2.7@239.255.1.1:5000", "add ?source=192.0.2.7"},
        {"udp://../x@239.255.1.1:5000", "is no interface's name"},
        {"udp://averyveryverylongname@239.255.1.1:5000", "is no interface's name"},
        {"udp://eth0@239.255.1.1:5000?interface=eth1", "two interfaces"},
        {"udp://239.255.1.1:5000?source=x", "is no sender's address"},
        {"udp://239.255.1.1:5000?source=239.1.1.1", "is no sender's address"},
        {"udp://239.255.1.1:5000?source=2001:db8::1", "name two of one kind"},
        {"udp://:5000?source=192.0.2.7", "goes with a multicast address"},
        {"udp://239.255.1.1:5000?ttl=3", "unknown parameter \"ttl\""},
        {"udp://239.255.1.1:5000?source", "write NAME=VALUE"},
        {"udp://239.255.1.1:5000?source=%0A", "write NAME=VALUE"},
        {"udp://239.255.1.1:5000?a=%4", "write NAME=VALUE"},
        {"udp://239.255.1.1:5000\x1b[2J", "?[2J: too long, or with characters"},
        {"http://example/", "not on the network"},
        {"news.ts", "no source"},
        {"://x", "no source"},
    };
    for (const Case& c : cases) {
        std::string error;
        EXPECT_FALSE(NetworkUri::parse(c.text, &error).has_value()) << c.text;
        EXPECT_NE(error.find(c.expected), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
        EXPECT_EQ(error.find('\x1b'), std::string::npos);
    }
    for (const char* file :
         {"news.ts", "-", "/tv/udp://x", "./udp://x", "udp:", "recording:1", ""}) {
        EXPECT_FALSE(SourceUri::isUri(file)) << file;
    }
}

// Only a name is looked up; what is wrong is left for the tuner to say.
TEST(SourceUriTest, ANameIsReplacedByItsAddress) {
    std::string error;
    const std::string local = orvhost::withAddress("udp://localhost:5000", &error);
    EXPECT_TRUE(local == "udp://127.0.0.1:5000" || local == "udp://[::1]:5000") << local << error;
    for (const char* text : {"udp://239.255.1.1:5000", "udp://x:0", "http://x/", "news.ts"}) {
        EXPECT_EQ(orvhost::withAddress(text, &error), text);
    }
    const std::string noName(64, 'n');  // longer than a part of a name may be: nobody is asked
    EXPECT_EQ(orvhost::withAddress("udp://" + noName + ":5000", &error), "");
    EXPECT_EQ(error.find(noName + ": "), 0u) << error;
}

}  // namespace
