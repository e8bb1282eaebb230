#include "PlayerWire.h"

#include <cutils/ashmem.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

namespace orvtest {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using OrvPlayer::ICOrvPlayer;
using OrvPlayer::ICOrvPlayerClient;
using Bytes = std::vector<uint8_t>;

namespace {

const WireBytes TOKEN = WireBytes::token(u"OrvPlayer");

Bytes operator+(const WireBytes& first, const WireBytes& second) {
    Bytes all = first.bytes;
    all.insert(all.end(), second.bytes.begin(), second.bytes.end());
    return all;
}

}  // namespace

// All that hold no binder.
std::vector<PlayerWire::Request> PlayerWire::requests() {
    const auto none = [] { return WireBytes(); };
    const auto one = [] { return WireBytes().int32(-77); };
    const auto result = [] { return WireBytes().int32(100); };
    const WireBytes two = WireBytes().int32(5).int32(-6);
    return {
        {2, none(), "start", none()},
        {3, none(), "stop", none()},
        {4, none(), "pause", none()},
        {5, none(), "resume", none()},
        {6, one(), "seek,-77", none()},
        {7, WireBytes().int32(5).string(u"MTV://\u00e9/\U0001F4FA?a=1;"),
         "openUri<MTV://\u00e9/\U0001F4FA?a=1;>,5", none()},
        {8, none(), "close", none()},
        {10, two, "getFrame,5,-6", none()},
        {11, two, "setSoundEffect,5,-6", result()},
        {13, WireBytes().string(u"MTV://r/x?recType=1;"), "startRecorder<MTV://r/x?recType=1;>",
         result()},
        {14, one(), "stopRecorder,-77", result()},
        {17, one(), "setAVSync,-77", result()},
        {18, one(), "setCaptionSync,-77", result()},
        {19, one(), "setCaptionLanguage,-77", none()},
        {20, one(), "setAudioEnable,-77", none()},
        {21, one(), "setAudioPID,-77", none()},
        {22, one(), "setAudioPathForce,-77", none()},
        {23, one(), "setCCPID,-77", none()},
        {24, none(), "getFrameRate", result()},
        {25, none(), "getState", result()},
        {26, WireBytes().int32(1).int32(-2).int32(3).int32(4).int32(5), "setCropRect,1,-2,3,4,5",
         result()},
        {27, one(), "setAudioOnlyMode,-77", result()},
        {28, none(), "getPCRValue", WireBytes().int64(0x1'0000'0064)},
        {29, none(), "cancelCaptureFrame", none()},
    };
}

status_t PlayerWire::send(uint32_t code, const Bytes& bytes, Bytes* reply, uint32_t flags) {
    Parcel data;
    Parcel answer;
    data.setData(bytes.data(), bytes.size());
    const status_t status = mRemote->transact(code, data, &answer, flags);
    reply->assign(answer.data(), answer.data() + answer.dataSize());
    return status;
}

void PlayerWire::checkRequests() {
    for (const Request& request : requests()) {
        SCOPED_TRACE(request.call);
        mService->take();
        Bytes reply;
        EXPECT_EQ(send(request.code, TOKEN + request.fields, &reply), android::OK);
        EXPECT_EQ(mService->take(), request.call);
        EXPECT_EQ(reply, request.reply.bytes);
    }
    Bytes reply;
    EXPECT_EQ(send(IBinder::PING_TRANSACTION, {}, &reply), android::OK);
    EXPECT_EQ(send(IBinder::INTERFACE_TRANSACTION, {}, &reply), android::OK);
    EXPECT_EQ(reply, WireBytes().string(u"OrvPlayer").bytes);
}

void PlayerWire::checkBadRequests() {
    const WireBytes tokens[] = {WireBytes::token(u"OrvPlayerClient"), WireBytes::token(u""),
                                WireBytes::token(u"OrvPlaye"), WireBytes(),
                                WireBytes().int32(0).int32(-1).int32(INT32_MAX)};
    Bytes reply;
    mService->take();
    for (uint32_t code = 1; code <= 30; ++code) {
        SCOPED_TRACE(code);
        const bool isAssigned = code != 12 && code != 15 && code != 16 && code != 30;
        for (const WireBytes& token : tokens) {
            const WireBytes text = WireBytes().int32(1).string(u"x");
            EXPECT_EQ(send(code, token + text, &reply),
                      isAssigned ? android::PERMISSION_DENIED : android::UNKNOWN_TRANSACTION);
            EXPECT_EQ(mService->take(), "");
        }
        // Fields that are not there, and more than there should be.
        EXPECT_EQ(send(code, TOKEN.bytes, &reply),
                  isAssigned ? android::OK : android::UNKNOWN_TRANSACTION);
        const std::string call = mService->take();
        EXPECT_EQ(call.empty(), !isAssigned);
        EXPECT_EQ(call.find_first_not_of("0,", std::min(call.find(','), call.size())),
                  std::string::npos)
            << call;
    }
    for (const Request& request : requests()) {
        SCOPED_TRACE(request.call);
        Bytes bytes = TOKEN + request.fields;
        for (size_t size = 0; size < bytes.size(); ++size) {
            const status_t status =
                send(request.code,
                     Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)), &reply);
            EXPECT_EQ(status, size < TOKEN.bytes.size() ? android::PERMISSION_DENIED : android::OK);
        }
        mService->take();
        bytes.resize(bytes.size() + 65536, 0xA5);
        EXPECT_EQ(send(request.code, bytes, &reply), android::OK);
        EXPECT_EQ(mService->take(), request.call);
    }
    // Texts: of no length, of a hostile one, not ended, and swapped with the type.
    for (const int32_t length : {-1, -2, INT32_MIN, INT32_MAX, 3}) {
        const WireBytes text = WireBytes().int32(5).int32(length).raw("abcdefgh");
        EXPECT_EQ(send(ICOrvPlayer::OPEN_URI, TOKEN + text, &reply), android::OK);
        EXPECT_EQ(mService->take(), "openUri<>,5");
    }
    for (const size_t length : {65536u, 65537u}) {
        const WireBytes text = WireBytes().int32(5).string(std::u16string(length, u'x'));
        EXPECT_EQ(send(ICOrvPlayer::OPEN_URI, TOKEN + text, &reply), android::OK);
        EXPECT_EQ(mService->take().size(), length == 65536 ? 65536u + 11 : 11u);
    }
    EXPECT_EQ(send(ICOrvPlayer::OPEN_URI, TOKEN + WireBytes().string(u"MTV").int32(5), &reply),
              android::OK);
    EXPECT_EQ(mService->take(), "openUri<>,3");
}

// Binders where they belong, none, bytes that look like one, and a descriptor.
void PlayerWire::checkObjects() {
    enum Kind { BINDER, NONE, BYTES, DESCRIPTOR, MISSING };
    for (const uint32_t code : {ICOrvPlayer::REGISTER_CLIENT, ICOrvPlayer::SET_SURFACE}) {
        for (const Kind kind : {BINDER, NONE, BYTES, DESCRIPTOR, MISSING}) {
            SCOPED_TRACE(testing::Message() << "code " << code << " kind " << kind);
            Parcel data;
            data.setData(TOKEN.bytes.data(), TOKEN.bytes.size());
            data.setDataPosition(TOKEN.bytes.size());
            if (code == ICOrvPlayer::SET_SURFACE) {
                data.writeString16(android::String16("any"));
                data.writeString16(android::String16());
                data.writeInt32(-1);
                data.writeUint32(0xFFFFFFFF);
            }
            if (kind == BINDER) {
                data.writeStrongBinder(mClient);
            } else if (kind == NONE) {
                data.writeStrongBinder(nullptr);
            } else if (kind == BYTES) {
                const uint64_t words[] = {0x73622a85, 1, 0};
                data.write(words, sizeof words);
            } else if (kind == DESCRIPTOR) {
                data.writeDupFileDescriptor(0);
            }
            Parcel reply;
            EXPECT_EQ(mRemote->transact(code, data, &reply), android::OK);
            const std::string call =
                code == ICOrvPlayer::SET_SURFACE ? "setSurface" : "registerClient";
            EXPECT_EQ(mService->take(), kind == BINDER ? call : call + "(null)");
            EXPECT_EQ(reply.dataSize(), code == ICOrvPlayer::SET_SURFACE ? 4u : 0u);
        }
    }
}

void PlayerWire::registerClient(const sp<IBinder>& service, const sp<ClientBinder>& client) {
    Parcel data;
    data.setData(TOKEN.bytes.data(), TOKEN.bytes.size());
    data.setDataPosition(TOKEN.bytes.size());
    data.writeStrongBinder(client);
    ASSERT_EQ(service->transact(ICOrvPlayer::REGISTER_CLIENT, data, nullptr), android::OK);
}

void PlayerWire::registerClient() {
    registerClient(mRemote, mClient);
    ASSERT_NE(mService->client, nullptr);
}

void PlayerWire::checkCallbacks() {
    registerClient();
    unsigned char text[] = "Grand";
    struct {
        uint32_t code;
        std::function<void(ICOrvPlayerClient&)> call;
        WireBytes fields;
    } const cases[] = {
        {1, [](auto& c) { c.openUriComplete(-1); }, WireBytes().int32(-1)},
        {2, [](auto& c) { c.startComplete(2); }, WireBytes().int32(2)},
        {3, [&](auto& c) { c.closedCaptionText(text, 5); },
         WireBytes().int32(5).int32(5).raw("Grand")},
        {3, [&](auto& c) { c.closedCaptionText(text, 0); }, WireBytes().int32(0).int32(0)},
        {5, [](auto& c) { c.onSignalStatusChanged(1, 0xFFFFFFFF); },
         WireBytes().int32(1).int32(-1)},
        {6, [](auto& c) { c.onStopComplete(3); }, WireBytes().int32(3)},
        {7, [](auto& c) { c.onError(0x31001); }, WireBytes().int32(0x31001)},
        {8, [](auto& c) { c.onBufferingBegin(); }, WireBytes()},
        {9, [](auto& c) { c.onBufferingEnd(); }, WireBytes()},
        {10, [](auto& c) { c.onBuffering(50); }, WireBytes().int32(50)},
        {11, [](auto& c) { c.onAudioSessionId(9); }, WireBytes().int32(9)},
        {12, [](auto& c) { c.onStartVideoTask(1920, 1080); }, WireBytes().int32(1920).int32(1080)},
        {13, [](auto& c) { c.onTimeUpdate(60); }, WireBytes().int32(60)},
        {14, [](auto& c) { c.onEndOfContent(); }, WireBytes()},
        {15, [](auto& c) { c.onRecorderStarted(4); }, WireBytes().int32(4)},
        {16, [](auto& c) { c.onRecorderStopped(5); }, WireBytes().int32(5)},
        {17, [](auto& c) { c.onPaused(6); }, WireBytes().int32(6)},
        {18, [](auto& c) { c.onResumed(7); }, WireBytes().int32(7)},
        {19, [](auto& c) { c.onSeeked(8); }, WireBytes().int32(8)},
    };
    for (const auto& wanted : cases) {
        wanted.call(*mService->client);
    }
    mClient->fence(*android::IInterface::asBinder(mService->client));
    const std::vector<ClientBinder::Call> calls = mClient->takeCalls();
    ASSERT_EQ(calls.size(), std::size(cases));  // in the order in which they were made
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(cases[i].code);
        EXPECT_EQ(calls[i].code, cases[i].code);
        EXPECT_EQ(calls[i].bytes, WireBytes::token(u"OrvPlayerClient") + cases[i].fields);
        // A transport executes what came one-way like any other call.
        EXPECT_TRUE((calls[i].flags & IBinder::FLAG_ONEWAY) != 0 || mRemote != mService);
    }
}

// Pixels come in memory that holds them exactly and cannot be written to.
void PlayerWire::checkStills() {
    std::atomic<int> stills{0};
    Bytes pixels(320 * 240 * 4);
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<uint8_t>(i * 7);
    }
    size_t size = pixels.size();
    mClient->onDescriptor = [&](int fd) {
        ++stills;
        char name[100] = {};
        EXPECT_GT(readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), name, sizeof name - 1),
                  0);
        EXPECT_NE(strstr(name, "Frame Pixels"), nullptr) << name;
        EXPECT_EQ(ashmem_get_size_region(fd), static_cast<int>(size));
        void* const mapping = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
        ASSERT_NE(mapping, MAP_FAILED);
        EXPECT_EQ(memcmp(mapping, pixels.data(), size), 0);
        munmap(mapping, size);
        EXPECT_EQ(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0), MAP_FAILED);
    };
    registerClient();
    const sp<IBinder> client = android::IInterface::asBinder(mService->client);
    for (const bool twoBytes : {false, true}) {
        size = twoBytes ? 153600 : 307200;
        mService->client->onCaptureFrame(pixels.data(), 320, 240, twoBytes);
        mClient->fence(*client);
        const std::vector<ClientBinder::Call> calls = mClient->takeCalls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].code, ICOrvPlayerClient::ON_CAPTURE_FRAME);
        Bytes head = WireBytes::token(u"OrvPlayerClient") +
                     WireBytes().int32(320).int32(240).int32(twoBytes ? 1 : 0);
        EXPECT_EQ(calls[0].bytes.size(), head.size() + 24);
        EXPECT_TRUE(std::equal(head.begin(), head.end(), calls[0].bytes.begin()));
    }
    // Sizes that come to nothing in 32 bits, and no pixels: nothing is sent.
    mService->client->onCaptureFrame(pixels.data(), 0, 240, false);
    mService->client->onCaptureFrame(pixels.data(), 0x8000, 0x8000, false);
    mService->client->onCaptureFrame(nullptr, 320, 240, false);
    mClient->fence(*client);
    EXPECT_TRUE(mClient->takeCalls().empty());
    EXPECT_EQ(stills, 2);
}

}  // namespace orvtest
