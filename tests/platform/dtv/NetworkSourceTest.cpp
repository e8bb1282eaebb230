#include "dtv/network/NetworkSource.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

#include "dtv/Tuner.h"
#include "dtv/network/DatagramContent.h"
#include "sender/DatagramMaker.h"
#include "sender/UdpSender.h"
#include "support/Await.h"
#include "support/ManualClock.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::DatagramContent;
using orvhost::DatagramSocket;
using orvhost::NetworkSource;
using orvhost::NetworkUri;
using orvhost::TuneOptions;
using orvhost::Tuner;
using orvhost::TuneResult;
using orvhost::TuneStatus;

constexpr int64_t MS = 1'000'000;
constexpr int64_t PCR_MS = 27'000;
constexpr unsigned VIDEO = 0x111;

// A port that nobody had a moment ago.
std::string freePort() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
    close(fd);
    return std::to_string(ntohs(address.sin_port));
}

NetworkUri uriOf(const std::string& text) {
    std::string error;
    const auto uri = NetworkUri::parse(text, &error);
    EXPECT_TRUE(uri.has_value()) << error;
    return uri.value_or(NetworkUri());
}

std::unique_ptr<UdpSender> senderTo(const std::string& text, const std::string& from = {}) {
    std::string error;
    auto sender = UdpSender::open(uriOf(text), 0, from, &error);
    EXPECT_NE(sender, nullptr) << error;
    return sender;
}

// Numbered packets, with tables and a PCR now and then: a group of ten in 4 ms, 3.8 Mbit/s.
Bytes broadcast(int groups, int firstNumber = 0) {
    TsBuilder builder;
    for (int group = 0; group < groups; ++group) {
        if (group % 25 == 0) {
            builder.section(0, pat({{1, 0x100}}))
                .section(0x100, pmt(1, VIDEO, {{0x1B, VIDEO, {}}}))
                .section(0x11, sdt({{1, 1, {}, bytesOf("Um")}}));
        }
        builder.pcr(VIDEO, group * 4 * PCR_MS);
        for (int i = 0; i < 9; ++i) {
            const int number = firstNumber + group * 9 + i;
            builder.packet(
                VIDEO, Bytes{static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 8),
                             static_cast<uint8_t>(number)} +
                           Bytes(181, 7));
        }
    }
    return builder.build();
}

// ---- what datagrams hold -----------------------------------------------------------------------

struct Shape {
    const char* name;
    Bytes datagram;
    DatagramContent::Kind kind;
    size_t begin;
    size_t packets;
};

TEST(DatagramContentTest, FindsThePacketsOfEveryShape) {
    using Kind = DatagramContent::Kind;
    const Bytes ts = Bytes{0x47, 1, 2, 0x10} + Bytes(184, 9);
    const Bytes two = ts + ts;
    const Bytes header = {0x80, 33, 0x12, 0x34, 0, 0, 0, 1, 0xCA, 0xFE, 0, 2};
    const auto with = [&header](uint8_t first) {
        Bytes out = header;
        out[0] = first;
        return out;
    };
    const Bytes parity(16, 0x47);
    const Bytes stamp(4, 0x47);
    const Shape shapes[] = {
        {"bare", two, Kind::Bare, 0, 2},
        {"204 bytes", ts + parity + ts + parity, Kind::Bare, 0, 2},
        {"192 bytes", stamp + ts + stamp + ts, Kind::Bare, 0, 2},
        {"one of three damaged", ts + Bytes(188, 0) + ts, Kind::Bare, 0, 2},
        {"two of three damaged", Bytes(376, 0) + ts, Kind::Bare, 0, 0},
        {"a byte too many", two + Bytes{0}, Kind::Bare, 0, 0},
        {"empty", {}, Kind::Bare, 0, 0},
        {"RTP", header + two, Kind::Rtp, 12, 2},
        {"RTP of 204 bytes", header + ts + parity, Kind::Rtp, 12, 1},
        {"CSRC list", with(0x83) + Bytes(12, 1) + two, Kind::Rtp, 24, 2},
        {"extension", with(0x90) + Bytes{1, 2, 0, 2} + Bytes(8, 3) + two, Kind::Rtp, 24, 2},
        {"padding", with(0xA0) + two + Bytes{0, 0, 0, 4}, Kind::Rtp, 12, 2},
        {"all of it", with(0xB1) + Bytes(4, 1) + Bytes{1, 2, 0, 0} + ts + Bytes{1}, Kind::Rtp, 20,
         1},
        {"RTP without payload", header, Kind::Rtp, 12, 0},
        {"padding longer than the payload", with(0xA0) + Bytes{3}, Kind::Bare, 0, 0},
        {"padding of nothing", with(0xA0) + two + Bytes{0}, Kind::Bare, 0, 0},
        {"CSRC list past the end", with(0x8F) + Bytes(20, 1), Kind::Bare, 0, 0},
        {"extension past the end", with(0x90) + Bytes{0, 0, 0xFF, 0xFF} + ts, Kind::Bare, 0, 0},
        {"extension header past the end", with(0x90) + Bytes{0, 0}, Kind::Bare, 0, 0},
        {"RTCP", Bytes{0x80, 200, 0, 6} + Bytes(24, 0), Kind::Control, 0, 0},
        {"RTP cut", Bytes(header.begin(), header.end() - 1), Kind::Bare, 0, 0},
    };
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(shape.name);
        Bytes bytes = shape.datagram;
        const DatagramContent content = DatagramContent::of(bytes.data(), bytes.size());
        EXPECT_EQ(content.kind, shape.kind);
        if (shape.kind == Kind::Control) {
            continue;
        }
        EXPECT_EQ(content.begin, shape.begin);
        EXPECT_EQ(orvhost::hasPackets(bytes.data() + content.begin, content.size),
                  shape.packets > 0);
        ASSERT_EQ(orvhost::compactPackets(bytes.data() + content.begin, content.size),
                  shape.packets);
        for (size_t i = 0; i < shape.packets; ++i) {
            EXPECT_TRUE(std::equal(ts.begin(), ts.end(), bytes.data() + content.begin + i * 188));
        }
        if (shape.kind == Kind::Rtp) {
            EXPECT_EQ(content.number, 0x1234);
            EXPECT_EQ(content.ssrc, 0xCAFE0002u);
        }
    }
}

// ---- the source by itself ----------------------------------------------------------------------

class NetworkSourceTest : public testing::Test {
protected:
    std::unique_ptr<NetworkSource> open(const std::string& text) {
        TuneResult result;
        auto source =
            NetworkSource::over(DatagramSocket::open(uriOf(text), result), mClock, result);
        EXPECT_NE(source, nullptr) << result.message;
        return source;
    }

    // What came so far. Loopback delivers before send() returns.
    static void readAll(NetworkSource& source, Bytes* out) {
        Bytes part(16 << 10);
        for (ssize_t got = 1; got > 0;) {
            got = source.read(part.data(), part.size(), 0);
            out->insert(out->end(), part.begin(), part.begin() + std::max<ssize_t>(got, 0));
        }
    }

    // The stream as it comes out of `source` when it is sent with these faults.
    Bytes sendThrough(NetworkSource& source, const std::string& to, const Bytes& stream,
                      const NetworkFaults& faults) {
        const auto sender = senderTo(to);
        Bytes received;
        mMaker = std::make_unique<DatagramMaker>(to.compare(0, 3, "rtp") == 0, faults,
                                                 [&](const Bytes& datagram) {
                                                     EXPECT_EQ(sender->send(datagram), 0);
                                                     mClock.advance(MS);
                                                     readAll(source, &received);
                                                 });
        for (size_t at = 0; at < stream.size(); at += 188) {
            mMaker->add(stream.data() + at, 0);
        }
        mMaker->flush();
        mClock.advance(150 * MS);  // what is held has waited long enough
        readAll(source, &received);
        return received;
    }

    ManualClock mClock;
    std::unique_ptr<DatagramMaker> mMaker;
};

TEST_F(NetworkSourceTest, EveryWayThereGivesTheSamePackets) {
    const std::string port = freePort();
    const Bytes stream = broadcast(100);
    const struct {
        std::string receive;
        std::string send;
    } ways[] = {
        {"udp://127.0.0.1:" + port, "udp://127.0.0.1:" + port},
        {"udp://127.0.0.1:" + port, "rtp://127.0.0.1:" + port},
        {"rtp://:" + port, "udp://127.0.0.1:" + port},
        {"udp://lo@127.0.0.1:" + port, "udp://127.0.0.1:" + port},
        {"rtp://[::1]:" + port, "rtp://[::1]:" + port},
        {"udp://[::]:" + port, "rtp://127.0.0.1:" + port},
        {"rtp://lo@239.255.77.1:" + port, "rtp://lo@239.255.77.1:" + port},
    };
    for (const auto& way : ways) {
        SCOPED_TRACE(way.receive);
        const auto source = open(way.receive);
        ASSERT_NE(source, nullptr);
        EXPECT_EQ(sendThrough(*source, way.send, stream, {}), stream);
        EXPECT_EQ(source->network().datagrams, mMaker->made());
    }
}

// Numbers put back in order and copies left out, nothing is missing; what was lost, and it alone,
// is.
TEST_F(NetworkSourceTest, DamagedRtpGivesTheCleanStream) {
    const std::string uri = "rtp://127.0.0.1:" + freePort();
    const Bytes stream = broadcast(2000);
    NetworkFaults faults;
    faults.reorder = 0.1;
    faults.duplicate = 0.1;
    auto source = open(uri);
    EXPECT_EQ(sendThrough(*source, uri, stream, faults), stream);
    auto counts = source->network();
    EXPECT_EQ(counts.lost, 0u);
    EXPECT_EQ(counts.duplicates, mMaker->duplicated());
    EXPECT_GT(counts.reordered, 200u);

    faults.drop = 0.01;
    faults.seed = 3;  // the first datagram comes first
    source.reset();
    source = open(uri);
    const Bytes received = sendThrough(*source, uri, stream, faults);
    counts = source->network();
    EXPECT_GT(mMaker->dropped(), 10u);
    EXPECT_EQ(counts.lost, mMaker->dropped());
    EXPECT_EQ(received.size(), stream.size() - counts.lost * 7 * 188);
    size_t at = 0;  // in the clean stream, which holds the rest in its order
    for (size_t i = 0; i < received.size(); i += 188, at += 188) {
        while (at < stream.size() && !std::equal(stream.begin() + static_cast<long>(at),
                                                 stream.begin() + static_cast<long>(at + 188),
                                                 received.begin() + static_cast<long>(i))) {
            at += 188;
        }
        ASSERT_LT(at, stream.size()) << "packet " << i / 188;
    }
}

TEST_F(NetworkSourceTest, ABadDatagramCostsItself) {
    const std::string uri = "rtp://127.0.0.1:" + freePort();
    const Bytes stream = broadcast(20);
    const auto source = open(uri);
    const auto sender = senderTo(uri);
    Bytes received;
    uint64_t bad = 0;
    DatagramMaker maker(true, {}, [&](const Bytes& datagram) {
        Bytes stranger = datagram;  // RTP of another sender, and no packets in it
        stranger[11] = static_cast<uint8_t>(stranger[11] + 1);
        stranger.resize(100);
        for (const Bytes& odd : {stranger, Bytes(1316, 0xAA), Bytes{}, Bytes(60000, 0x80)}) {
            EXPECT_EQ(sender->send(odd), 0);
            ++bad;
        }
        EXPECT_EQ(sender->send(datagram), 0);
        readAll(*source, &received);
    });
    for (size_t at = 0; at < stream.size(); at += 188) {
        maker.add(stream.data() + at, 0);
    }
    maker.flush();
    readAll(*source, &received);
    EXPECT_EQ(received, stream);
    EXPECT_EQ(source->network().badDatagrams, bad);
    EXPECT_EQ(source->network().restarts, 0u);
}

TEST_F(NetworkSourceTest, ARestartedSenderIsHeardAtOnce) {
    const std::string uri = "rtp://127.0.0.1:" + freePort();
    const Bytes stream = broadcast(70);
    const auto source = open(uri);
    const auto sender = senderTo(uri);
    Bytes received;
    size_t sent = 0;
    DatagramMaker maker(true, {}, [&](const Bytes& datagram) {
        EXPECT_EQ(sender->send(datagram), 0);
        readAll(*source, &received);
        sent += datagram.size() - 12;
        EXPECT_EQ(received.size(), sent);  // without any wait
    });
    for (size_t at = 0; at < stream.size(); at += 188) {
        maker.add(stream.data() + at, 0);
        if (at % (700 * 188) == 696 * 188) {
            maker.restart();
        }
    }
    maker.flush();
    EXPECT_EQ(received, stream);
    EXPECT_EQ(source->network().lost, 0u);
}

TEST_F(NetworkSourceTest, WhatTheKernelDropsIsCounted) {
    const std::string uri = "udp://127.0.0.1:" + freePort();
    const auto source = open(uri);
    const auto sender = senderTo(uri);
    const Bytes datagram = [] {
        Bytes bytes;
        for (int i = 0; i < 7; ++i) {
            bytes = bytes + Bytes{0x47, 0x1F, 0xFF, 0x10} + Bytes(184, 0);
        }
        return bytes;
    }();
    const uint64_t count = 20'000;  // 26 MB: more than any buffer here
    for (uint64_t i = 0; i < count; ++i) {
        sender->send(datagram);
    }
    Bytes received;
    readAll(*source, &received);
    sender->send(datagram);  // brings the count of those before it
    readAll(*source, &received);
    const auto counts = source->network();
    EXPECT_GT(counts.kernelDrops, 0u);
    EXPECT_EQ(counts.datagrams + counts.kernelDrops, count + 1);
    EXPECT_EQ(received.size(), counts.datagrams * datagram.size());
}

// Of two senders to one group, the one that was named.
TEST_F(NetworkSourceTest, ASourceSpecificGroupHearsItsSource) {
    const std::string group = "udp://lo@232.255.77.2:" + freePort();
    const auto source = open(group + "?source=127.0.0.3");
    ASSERT_NE(source, nullptr);
    Bytes received;
    const Bytes wrong = broadcast(1, 1000);
    const Bytes right = broadcast(1);
    for (const auto& [from, stream] : {std::pair{"127.0.0.2", &wrong}, {"127.0.0.3", &right}}) {
        const auto sender = senderTo(group, from);
        ASSERT_EQ(sender->send(*stream), 0);
    }
    readAll(*source, &received);
    EXPECT_EQ(received, right);
}

// Needs an interface that does multicast, which loopback need not; hops 0 keep it on this machine.
TEST_F(NetworkSourceTest, AnIpv6GroupIsJoined) {
    ifaddrs* all = nullptr;
    ASSERT_EQ(getifaddrs(&all), 0);
    std::string interface;
    for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
        const bool fits = one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET6 &&
                          (one->ifa_flags & (IFF_UP | IFF_MULTICAST)) == (IFF_UP | IFF_MULTICAST);
        interface = fits ? one->ifa_name : interface;
    }
    freeifaddrs(all);
    if (interface.empty()) {
        GTEST_SKIP() << "no interface of this machine does IPv6 multicast";
    }
    const std::string uri = "udp://" + interface + "@[ff11::77:1]:" + freePort();
    const auto source = open(uri);
    ASSERT_NE(source, nullptr);
    const Bytes stream = broadcast(1);
    ASSERT_EQ(senderTo(uri)->send(stream), 0);
    Bytes received;
    ASSERT_TRUE(await([&] {
        readAll(*source, &received);
        return !received.empty();
    }));
    EXPECT_EQ(received, stream);
}

// ---- through the tuner -------------------------------------------------------------------------

// Sends a broadcast again and again, at its pace, until it is told to stop.
class Transmitter {
public:
    explicit Transmitter(const std::string& uri) : mSender(senderTo(uri)) { start(); }
    ~Transmitter() { stop(); }

    void start() {
        mStopped = false;
        mThread = std::thread([this] { run(); });
    }

    void stop() {
        mStopped = true;
        if (mThread.joinable()) {
            mThread.join();
        }
    }

private:
    void run() {
        DatagramMaker maker(true, {}, [this](const Bytes& datagram) { mSender->send(datagram); });
        maker.restart();
        const Bytes stream = broadcast(5000);
        auto next = std::chrono::steady_clock::now();
        for (size_t at = 0; at < stream.size() && !mStopped; at += 188) {
            maker.add(stream.data() + at, 0);
            if (at / 188 % 10 == 9) {
                next += std::chrono::milliseconds(4);
                std::this_thread::sleep_until(next);
            }
        }
    }

    const std::unique_ptr<UdpSender> mSender;
    std::atomic<bool> mStopped{false};
    std::thread mThread;
};

class NetworkTunerTest : public testing::Test {
protected:
    int startVideo() {
        const int handle = mTuner.demultiplexer().startFiltering(VIDEO, DEMUX_FILTER_VIDEO);
        DemuxBinder_HandleSet set{};
        mTuner.demultiplexer().select(&set, 0);
        return handle;
    }

    // The numbers of so many packets of the filter.
    std::vector<int> readNumbers(int handle, size_t count) {
        std::vector<int> numbers;
        Bytes part(188 * 64);
        while (numbers.size() < count) {
            DemuxBinder_HandleSet set{};
            DemuxBinder_HandleSET(handle, &set);
            if (mTuner.demultiplexer().select(&set, 10'000) < 1) {
                ADD_FAILURE() << "nothing came for ten seconds";
                break;
            }
            const int got =
                mTuner.demultiplexer().readData(handle, part.data(), static_cast<int>(part.size()));
            for (int at = 0; at < got; at += 188) {
                const uint8_t* packet = part.data() + at;
                if (orvhost::hasPayload(packet)) {
                    numbers.push_back(packet[4] << 16 | packet[5] << 8 | packet[6]);
                }
            }
        }
        return numbers;
    }

    static bool isWithoutHoles(const std::vector<int>& numbers) {
        for (size_t i = 1; i < numbers.size(); ++i) {
            if (numbers[i] != numbers[i - 1] + 1) {
                return false;
            }
        }
        return true;
    }

    Tuner mTuner;
};

TEST_F(NetworkTunerTest, AGroupIsTunedWatchedAndHeardAgain) {
    const std::string uri = "rtp://lo@239.255.77.3:" + freePort();
    Transmitter transmitter(uri);
    ASSERT_TRUE(mTuner.tune(uri, {}).ok());
    const auto list = mTuner.services(5000);
    ASSERT_EQ(list.services.size(), 1u) << list.result.message;
    EXPECT_EQ(list.services[0].name, "Um");
    int handle = startVideo();
    std::vector<int> numbers = readNumbers(handle, 300);
    EXPECT_TRUE(isWithoutHoles(numbers));

    // Another service of the same multiplex: the source stays, and so do its counts.
    mTuner.demultiplexer().stopFiltering(handle);
    const auto before = mTuner.statistics().network.datagrams;
    TuneOptions zap;
    zap.serviceId = 1;
    ASSERT_TRUE(mTuner.tune(uri + "?interface=lo", zap).ok());
    EXPECT_GE(mTuner.statistics().network.datagrams, before);
    handle = startVideo();
    const int last = numbers.back();
    numbers = readNumbers(handle, 100);
    EXPECT_TRUE(isWithoutHoles(numbers));
    EXPECT_GT(numbers[0], last);

    // The sender ends and comes again, with other numbers: the filter hears on.
    transmitter.stop();
    Bytes rest(188 * 4096);
    const auto isSilent = [&] {
        DemuxBinder_HandleSet set{};
        DemuxBinder_HandleSET(handle, &set);
        const bool silent = mTuner.demultiplexer().select(&set, 300) == 0;
        mTuner.demultiplexer().readData(handle, rest.data(), static_cast<int>(rest.size()));
        return silent;
    };
    ASSERT_TRUE(await(isSilent));
    EXPECT_FALSE(mTuner.atEnd());
    transmitter.start();
    numbers = readNumbers(handle, 100);
    EXPECT_TRUE(isWithoutHoles(numbers));
    EXPECT_LT(numbers[0], 100);
    EXPECT_EQ(mTuner.statistics().network.kernelDrops, 0u);
    EXPECT_FALSE(mTuner.rewind());
}

// As a service works that may open no such socket itself.
TEST_F(NetworkTunerTest, AClientHandsItsSocketOver) {
    const std::string uri = "udp://lo@239.255.77.4:" + freePort();
    EXPECT_EQ(mTuner.tuneForClient(uri, {}).status, TuneStatus::NeedsSocket);
    EXPECT_FALSE(mTuner.isTuned());
    Transmitter transmitter(uri);
    TuneResult result;
    auto socket = DatagramSocket::open(uriOf(uri), result);
    ASSERT_NE(socket, nullptr) << result.message;
    ASSERT_TRUE(mTuner.tune(socket->descriptor(), {}, uri).ok());
    socket = nullptr;  // the client's end of it
    EXPECT_EQ(mTuner.services(5000).services.size(), 1u);
    EXPECT_TRUE(isWithoutHoles(readNumbers(startVideo(), 100)));
    const auto before = mTuner.statistics().network.datagrams;
    EXPECT_TRUE(mTuner.tuneForClient(uri, {}).ok());  // goes on, without another socket
    EXPECT_GE(mTuner.statistics().network.datagrams, before);

    socket = DatagramSocket::open(uriOf("udp://127.0.0.1:" + freePort()), result);
    ASSERT_NE(socket, nullptr) << result.message;
    for (const char* other : {"udp://[::1]:5000", "news.ts", "dvb://0?frequency=473142857"}) {
        EXPECT_FALSE(mTuner.tune(socket->descriptor(), {}, other).ok()) << other;
    }
    EXPECT_FALSE(DatagramSocket::isOne(STDIN_FILENO));
    EXPECT_FALSE(DatagramSocket::isOne(-1));
}

TEST_F(NetworkTunerTest, FailuresSayWhatToDo) {
    const std::string port = freePort();
    const std::string taken = "udp://127.0.0.1:" + freePort();
    Tuner other;
    TuneOptions brief;
    brief.timeoutMs = 100;
    auto waiting = std::async(std::launch::async, [&] {
        TuneOptions patient;
        patient.timeoutMs = 20'000;
        return other.tune(taken, patient).status;
    });
    ASSERT_TRUE(await([&] { return other.isTuned(); }));
    const std::tuple<std::string, TuneStatus, std::string> cases[] = {
        {"udp://127.0.0.1:" + port, TuneStatus::NoData, "is its sender running?"},
        {"udp://nowhere0@239.255.77.4:" + port, TuneStatus::CannotOpen, "see: ip link"},
        {"udp://198.51.100.1:" + port, TuneStatus::CannotOpen, "no address of this machine"},
        {taken, TuneStatus::CannotOpen, "another program receives on this port"},
        {"udp://239.255.77.4", TuneStatus::BadUri, "no port"},
        {"udp://tv.example:" + port, TuneStatus::BadUri, "give the address"},
        {"http://example/", TuneStatus::BadUri, "no such kind of source"},
    };
    for (const auto& [uri, status, part] : cases) {
        const TuneResult result = mTuner.tune(uri, brief);
        EXPECT_EQ(result.status, status) << result.message;
        EXPECT_NE(result.message.find(part), std::string::npos) << result.message;
        EXPECT_FALSE(mTuner.isTuned());
    }
    other.untune();
    EXPECT_EQ(waiting.get(), TuneStatus::Cancelled);

    std::atomic<bool> done{false};
    std::thread junk([&, sender = senderTo("udp://127.0.0.1:" + port)] {
        while (!done) {
            sender->send(Bytes(1000, 0x55));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    brief.timeoutMs = 500;
    EXPECT_EQ(mTuner.tune("udp://127.0.0.1:" + port, brief).status, TuneStatus::NoSync);
    done = true;
    junk.join();
}

// Tools take all of it, as fast as it comes.
TEST_F(NetworkTunerTest, UnpacedNothingIsLostEither) {
    const std::string uri = "udp://127.0.0.1:" + freePort();
    const Transmitter transmitter("rtp" + uri.substr(3));
    TuneOptions options;
    options.paced = false;
    ASSERT_TRUE(mTuner.tune(uri, options).ok());
    const int handle = startVideo();
    EXPECT_TRUE(isWithoutHoles(readNumbers(handle, 300)));
}

}  // namespace
