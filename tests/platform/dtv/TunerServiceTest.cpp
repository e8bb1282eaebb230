#include "dtv/TunerService.h"

#include <binder/Parcel.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <random>

#include "dtv/TunerParcel.h"
#include "platform/binder/RelayBinder.h"
#include "support/EventSections.h"
#include "support/TempFile.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using android::Parcel;
using android::sp;
using orvhost::ITuner;
using orvhost::TuneOptions;
using orvhost::TuneStatus;

// An object of a process that can die.
class MortalBinder : public RelayBinder {
public:
    explicit MortalBinder(bool dead = false) : RelayBinder(new android::BBinder), mDead(dead) {}

    android::status_t linkToDeath(const sp<DeathRecipient>& recipient, void*, uint32_t) override {
        mRecipient = recipient;
        return mDead ? android::DEAD_OBJECT : android::OK;
    }
    android::status_t unlinkToDeath(const android::wp<DeathRecipient>&, void*, uint32_t,
                                    android::wp<DeathRecipient>*) override {
        mLastRecipient = mRecipient;
        mRecipient = nullptr;
        return android::OK;
    }
    bool isWatched() const { return mRecipient != nullptr; }
    // With `late`, as a notice that was on its way when the link was given up.
    void die(bool late = false) {
        const sp<DeathRecipient> recipient = late ? mLastRecipient : mRecipient;
        ASSERT_NE(recipient, nullptr);
        recipient->binderDied(this);
    }

private:
    const bool mDead;
    sp<DeathRecipient> mRecipient;
    sp<DeathRecipient> mLastRecipient;
};

Bytes broadcast() {
    TsBuilder builder;
    builder.section(0, pat({{1, 0x100}, {2, 0x200}}))
        .section(0x100, pmt(1, 0x111,
                            {{0x1B, 0x111, descriptor(0x52, {0})},
                             {0x11, 0x112, descriptor(0x0A, bytesOf("por") + Bytes{0})}}))
        .section(0x200, pmt(2, 0x211, {{0x06, 0x213, descriptor(0x52, {0x30})}}))
        .section(0x11, sdt({{1, 1, bytesOf("Casa"), bytesOf("Um")}, {2, 1, {}, bytesOf("Dois")}}))
        .section(0x10, nit(bytesOf("Rede"), descriptor(0xFB, be16(2))))
        .section(0x12, eit(1, 0,
                           {{5, timeBytes(61365, 0x20, 0, 0) + Bytes{0, 0x30, 0}, bytesOf("Now"),
                             bytesOf("Text")}}))
        .section(0x14, tot(timeBytes(61365, 0x20, 0x10, 0),
                           timeOffset("BRA", false, 0, timeBytes(0xFFFF, 0xFF, 0xFF, 0xFF), 0)));
    for (int i = 0; i < 200; ++i) {
        builder.packet(0x111, Bytes(184, 9));
    }
    return builder.build();
}

class TunerServiceTest : public testing::Test {
protected:
    TunerServiceTest()
        : mService(new orvhost::TunerService(mTuner)),
          mClient(ITuner::asInterface(new RelayBinder(mService))),
          mFile(broadcast()),
          mFd(open(mFile.path().c_str(), O_RDONLY | O_CLOEXEC)) {
        EXPECT_EQ(pipe2(mPipe, O_CLOEXEC), 0);
    }
    ~TunerServiceTest() override {
        for (const int fd : {mFd, mPipe[0], mPipe[1]}) {
            close(fd);
        }
    }

    Parcel* request(Parcel* data) const {
        data->writeInterfaceToken(ITuner::descriptor);
        return data;
    }
    void writeTune(Parcel* data) const {
        request(data)->writeStrongBinder(new MortalBinder);
        data->writeFileDescriptor(mFd);
        orvhost::writeText(data, "news");
        orvhost::writeTuneOptions(data, {});
    }

    orvhost::Tuner mTuner;
    const sp<orvhost::TunerService> mService;
    const sp<ITuner> mClient;
    const TempFile mFile;
    const int mFd;
    int mPipe[2] = {-1, -1};
};

TEST_F(TunerServiceTest, AClientSeesWhatTheTunerSees) {
    ASSERT_NE(mClient.get(), static_cast<ITuner*>(mService.get()));
    EXPECT_FALSE(mClient->signal().tuned);
    ASSERT_TRUE(mClient->tune(mFd, "news", {}).ok());
    const auto list = mClient->services(5000);
    ASSERT_TRUE(list.result.ok()) << list.result.message;
    ASSERT_EQ(list.services.size(), 2u);
    const auto& [pid, type, kind, language, tag, descriptors] = list.services[0].streams[1];
    EXPECT_EQ(std::tie(pid, language, tag), std::make_tuple(0x112, "por", -1));
    EXPECT_EQ(kind, orvhost::StreamKind::AudioLatm);
    ASSERT_EQ(descriptors.size(), 1u);
    EXPECT_EQ(descriptors[0].data, bytesOf("por") + Bytes{0});
    EXPECT_EQ(list.services[0].provider, "Casa");
    EXPECT_EQ(list.services[1].rawName, bytesOf("Dois"));
    EXPECT_EQ(list.services[1].streams[0].componentTag, 0x30);
    EXPECT_EQ(list.networkName, "Rede");
    const auto told = mClient->information(5000);
    ASSERT_TRUE(told.result.ok()) << told.result.message;
    EXPECT_EQ(told.originalNetworkId, 0x7FE0);
    EXPECT_EQ(told.oneSegment, std::vector<uint16_t>{2});
    EXPECT_EQ(told.clock.country, "BRA");
    EXPECT_EQ(told.clock.localOffsetMinutes, -180);
    ASSERT_EQ(told.events.size(), 1u);
    EXPECT_EQ(told.clock.utcS - told.events[0].startUtcS, 600);
    EXPECT_EQ(told.events[0].rawName, bytesOf("Now"));
    EXPECT_EQ(told.events[0].rawText, bytesOf("Text"));
    EXPECT_EQ(told.events[0].durationS, 1800);
    const auto signal = mClient->signal();
    EXPECT_TRUE(signal.tuned);
    EXPECT_EQ(signal.bytes, mTuner.statistics().bytes);
    EXPECT_FALSE(signal.atEnd);
    mClient->untune();
    EXPECT_FALSE(mTuner.isTuned());
    EXPECT_EQ(mClient->services(0).result.status, TuneStatus::NotTuned);
}

TEST_F(TunerServiceTest, FailuresNameTheSourceAsTheClientDoes) {
    const TempFile empty({});
    const int folder = open("/", O_RDONLY | O_CLOEXEC);
    const int nothing = open(empty.path().c_str(), O_RDONLY | O_CLOEXEC);
    TuneOptions quick;
    quick.timeoutMs = 20;
    const std::tuple<int, TuneStatus> cases[] = {{folder, TuneStatus::IsDirectory},
                                                 {nothing, TuneStatus::EmptySource},
                                                 {mPipe[0], TuneStatus::NoData},
                                                 {-1, TuneStatus::ServiceLost}};
    for (const auto& [fd, status] : cases) {
        const auto result = mClient->tune(fd, "news", quick);
        EXPECT_EQ(result.status, status) << result.message;
        EXPECT_EQ(result.message.rfind("news: ", 0) == 0, fd >= 0) << result.message;
    }
    close(folder);
    close(nothing);
}

TEST_F(TunerServiceTest, TheSourceGoesWithTheClientThatTuned) {
    const sp<MortalBinder> first(new MortalBinder);
    const sp<MortalBinder> second(new MortalBinder);
    ASSERT_TRUE(mClient->tune(mFd, "news", {}, first).ok());
    ASSERT_TRUE(mClient->tune(mFd, "news", {}, second).ok());
    EXPECT_FALSE(first->isWatched());
    first->die(true);  // no longer its source
    EXPECT_TRUE(mTuner.isTuned());
    second->die();
    EXPECT_FALSE(mTuner.isTuned());
    EXPECT_EQ(mClient->tune(mFd, "news", {}, new MortalBinder(true)).status, TuneStatus::Cancelled);
    EXPECT_FALSE(mTuner.isTuned());
}

TEST_F(TunerServiceTest, ADeathEndsTheWaitForPackets) {
    const sp<MortalBinder> owner(new MortalBinder);
    auto waiting = std::async(std::launch::async, [&] {
        TuneOptions patient;
        patient.timeoutMs = 60'000;
        return mClient->tune(mPipe[0], "pipe", patient, owner).status;
    });
    while (!mTuner.isTuned()) {
        std::this_thread::yield();
    }
    // Others may ask meanwhile, but not take every thread by waiting.
    std::vector<std::future<TuneStatus>> askers;
    for (int i = 0; i < 3; ++i) {
        askers.push_back(std::async(std::launch::async,
                                    [&] { return mClient->services(30'000).result.status; }));
    }
    const auto isBusy = [](std::future<TuneStatus>& asker) {
        return asker.wait_for(std::chrono::milliseconds(1)) == std::future_status::ready;
    };
    while (std::none_of(askers.begin(), askers.end(), isBusy)) {
    }
    owner->die();
    EXPECT_EQ(waiting.get(), TuneStatus::Cancelled);
    int busy = 0;
    for (auto& asker : askers) {
        busy += asker.get() == TuneStatus::Busy ? 1 : 0;
    }
    EXPECT_EQ(busy, 1);
}

// Nothing but a live source is named to the service: files are opened by their readers.
TEST_F(TunerServiceTest, AClientTunesByUri) {
    TuneOptions quick;
    quick.timeoutMs = 20;
    const std::tuple<std::string, TuneStatus> cases[] = {
        {mFile.path(), TuneStatus::BadUri},
        {"-", TuneStatus::BadUri},
        {"udp://127.0.0.1", TuneStatus::BadUri},
        {"udp://tv.example:5000", TuneStatus::BadUri},
        {"udp://nowhere0@239.255.77.9:5000", TuneStatus::NeedsSocket},
        {"rtp://239.255.77.9:5000", TuneStatus::NeedsSocket},
    };
    for (const auto& [uri, status] : cases) {
        const auto result = mClient->tuneUri(uri, quick);
        EXPECT_EQ(result.status, status) << result.message;
        EXPECT_EQ(result.message.rfind(uri, 0), 0u) << result.message;
    }
    Parcel reply;
    Parcel withoutOptions;
    request(&withoutOptions)->writeStrongBinder(new MortalBinder);
    orvhost::writeText(&withoutOptions, "udp://127.0.0.1:5000");
    EXPECT_EQ(mService->transact(ITuner::TUNE_URI, withoutOptions, &reply), android::BAD_VALUE);
    Parcel withoutOwner;
    orvhost::writeText(request(&withoutOwner), "udp://127.0.0.1:5000");
    orvhost::writeTuneOptions(&withoutOwner, {});
    EXPECT_EQ(mService->transact(ITuner::TUNE_URI, withoutOwner, &reply), android::BAD_VALUE);
}

// A signal from a service that knows no networks is one without their counts.
TEST_F(TunerServiceTest, ASignalMayEndBeforeTheNetworksCounts) {
    orvhost::TunerSignal signal;
    signal.droppedPackets = 3;
    signal.network.datagrams = 7;
    signal.network.jitterUs = 9;
    for (const size_t cut : {0, 8, 64, 72}) {
        Parcel parcel;
        orvhost::writeTunerSignal(&parcel, signal);
        parcel.setDataSize(parcel.dataSize() - cut);
        parcel.setDataPosition(0);
        orvhost::TunerSignal read;
        EXPECT_EQ(orvhost::readTunerSignal(parcel, &read), cut == 0 || cut == 64) << cut;
        EXPECT_EQ(read.network.jitterUs, cut == 0 ? 9u : 0u);
        EXPECT_EQ(read.droppedPackets, cut == 72 ? 0u : 3u);
    }
}

// Cut at any byte, or with any word replaced, a request is answered and harms nobody.
TEST_F(TunerServiceTest, HostileRequestsGetAnError) {
    Parcel wrongToken;
    wrongToken.writeInterfaceToken(android::String16("OrvPlayer"));
    Parcel unknown;
    Parcel reply;
    EXPECT_EQ(mService->transact(ITuner::SIGNAL, wrongToken, &reply), android::PERMISSION_DENIED);
    EXPECT_EQ(mService->transact(77, *request(&unknown), &reply), android::UNKNOWN_TRANSACTION);
    Parcel whole;
    writeTune(&whole);
    std::vector<uint8_t> bytes(whole.data(), whole.data() + whole.dataSize());
    for (size_t size = 0; size < bytes.size(); ++size) {
        Parcel cut;
        writeTune(&cut);
        cut.setDataSize(size);
        EXPECT_NE(mService->transact(ITuner::TUNE, cut, &reply), android::OK) << size;
    }
    Parcel plain;  // the same bytes, but the objects only look like some
    plain.setData(bytes.data(), bytes.size());
    EXPECT_NE(mService->transact(ITuner::TUNE, plain, &reply), android::OK);
    EXPECT_FALSE(mTuner.isTuned());
    for (const int32_t timeout : {INT32_MIN, -1, 0}) {
        Parcel data;
        request(&data)->writeInt32(timeout);
        EXPECT_EQ(mService->transact(ITuner::SERVICES, data, &reply), android::OK) << timeout;
    }
}

// What a service answers may be wrong in any word; the client reads it within its bounds.
TEST_F(TunerServiceTest, HostileAnswersAreRefusedOrRead) {
    orvhost::ServiceList list;
    list.services.resize(2);
    list.services[0].name = "Um";
    list.services[0].rawName = bytesOf("Um");
    list.services[0].streams.resize(2);
    list.services[0].streams[1].descriptors.push_back({0x52, {0x30}});
    Parcel good;
    orvhost::writeServiceList(&good, list);
    const std::vector<uint8_t> bytes(good.data(), good.data() + good.dataSize());
    std::mt19937 random(1);
    int refused = 0;
    for (size_t round = 0; round < 4000; ++round) {
        std::vector<uint8_t> bad = bytes;
        const auto word = static_cast<int32_t>(round % 3 == 0 ? random() : INT32_MAX >> round % 31);
        memcpy(bad.data() + random() % (bad.size() / 4) * 4, &word, sizeof word);
        Parcel parcel;
        parcel.setData(bad.data(), round % 2 == 0 ? bad.size() : random() % bad.size());
        orvhost::ServiceList read;
        if (orvhost::readServiceList(parcel, &read)) {
            EXPECT_LE(read.services.size(), 256u);
        } else {
            ++refused;
        }
    }
    EXPECT_GT(refused, 1000);
}

// A list that no call could carry loses services, not the call.
TEST_F(TunerServiceTest, AnEndlessListIsCut) {
    orvhost::ServiceList list;
    list.services.resize(1000);
    for (auto& service : list.services) {
        service.name = std::string(5000, 'x');
        service.streams.resize(10);
    }
    Parcel parcel;
    orvhost::writeServiceList(&parcel, list);
    EXPECT_LE(parcel.dataSize(), 512u * 1024);
    parcel.setDataPosition(0);
    orvhost::ServiceList read;
    ASSERT_TRUE(orvhost::readServiceList(parcel, &read));
    EXPECT_GT(read.services.size(), 60u);
    EXPECT_EQ(read.services[0].name.size(), orvhost::MAX_TUNER_TEXT);
}

}  // namespace
