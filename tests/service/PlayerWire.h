#pragma once

#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <utils/String16.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ClientBinder.h"
#include "service/ICOrvPlayer.h"

// The player's two interfaces as bytes, whatever carries them: requests are put together by hand
// and sent to a binder of the service, callbacks are compared where the application gets them.

namespace orvtest {

// The service's side: takes down which operation was called with what, and answers 100, 101, ...
class RecordingService : public OrvPlayer::BnCOrvPlayer {
public:
    std::string take() {
        const std::lock_guard<std::mutex> guard(mLock);
        mResult = 100;
        return std::exchange(mCalls, "");
    }
    android::sp<OrvPlayer::ICOrvPlayerClient> client;

    int registerClient(const android::sp<OrvPlayer::ICOrvPlayerClient>& registered) override {
        const android::sp<android::IBinder> binder = asBinder(registered);
        client = binder != nullptr && binder->localBinder() != nullptr
                     ? new OrvPlayer::BpCOrvPlayerClient(binder)
                     : registered;
        return add(registered != nullptr ? "registerClient" : "registerClient(null)");
    }
    int start() override { return add("start"); }
    int stop() override { return add("stop"); }
    int getState() override { return add("getState"); }
    int pause() override { return add("pause"); }
    int resume() override { return add("resume"); }
    int seek(int ms) override { return add("seek", {ms}); }
    int openUri(const char* uri, int type) override {
        return add(std::string("openUri<") + uri + ">", {type});
    }
    int close() override { return add("close"); }
    int setSurface(const android::sp<android::Surface>& surface) override {
        return add(surface != nullptr ? "setSurface" : "setSurface(null)");
    }
    int getFrame(int count, int ms) override { return add("getFrame", {count, ms}); }
    int cancelCaptureFrame() override { return add("cancelCaptureFrame"); }
    int setSoundEffect(int a, int b) override { return add("setSoundEffect", {a, b}); }
    int startRecorder(const char* uri) override {
        return add(std::string("startRecorder<") + uri + ">");
    }
    int stopRecorder(int save) override { return add("stopRecorder", {save}); }
    int setAVSync(int value) override { return add("setAVSync", {value}); }
    int setCaptionSync(int value) override { return add("setCaptionSync", {value}); }
    int setAudioEnable(int on) override { return add("setAudioEnable", {on}); }
    int setCaptionLanguage(int value) override { return add("setCaptionLanguage", {value}); }
    int setAudioPID(int pid) override { return add("setAudioPID", {pid}); }
    int setAudioPathForce(int config) override { return add("setAudioPathForce", {config}); }
    int setCCPID(int pid) override { return add("setCCPID", {pid}); }
    int getFrameRate() override { return add("getFrameRate"); }
    int setCropRect(int a, int b, int c, int d, int e) override {
        return add("setCropRect", {a, b, c, d, e});
    }
    int setAudioOnlyMode(int on) override { return add("setAudioOnlyMode", {on}); }
    int64_t getPCRValue() override { return add("getPCRValue") + 0x1'0000'0000; }

private:
    int add(const std::string& name, std::initializer_list<int> values = {}) {
        const std::lock_guard<std::mutex> guard(mLock);
        mCalls += (mCalls.empty() ? "" : " ") + name;
        for (const int value : values) {
            mCalls += "," + std::to_string(value);
        }
        return mResult++;
    }

    std::mutex mLock;
    std::string mCalls;
    int mResult = 100;
};

// A parcel by hand.
class WireBytes {
public:
    static WireBytes token(const std::u16string& name) {
        return WireBytes().int32(0).int32(-1).string(name);
    }

    WireBytes& int32(int32_t value) { return append(&value, sizeof value); }
    WireBytes& int64(int64_t value) { return append(&value, sizeof value); }
    WireBytes& string(const std::u16string& text) {
        int32(static_cast<int32_t>(text.size()));
        append(text.c_str(), 2 * text.size() + 2);
        return pad();
    }
    WireBytes& raw(const std::string& text) {
        append(text.data(), text.size());
        return pad();
    }

    std::vector<uint8_t> bytes;

private:
    WireBytes& append(const void* from, size_t size) {
        const auto* const first = static_cast<const uint8_t*>(from);
        bytes.insert(bytes.end(), first, first + size);
        return *this;
    }
    WireBytes& pad() {
        bytes.resize((bytes.size() + 3) / 4 * 4);
        return *this;
    }
};

class PlayerWire {
public:
    // `remote` is the service as the application has it, `service` the object itself.
    PlayerWire(android::sp<android::IBinder> remote, android::sp<RecordingService> service)
        : mRemote(std::move(remote)), mService(std::move(service)) {}

    void checkRequests();
    void checkBadRequests();
    void checkObjects();
    void checkCallbacks();
    void checkStills();

    static void registerClient(const android::sp<android::IBinder>& service,
                               const android::sp<ClientBinder>& client);

private:
    struct Request {
        uint32_t code;
        WireBytes fields;
        std::string call;
        WireBytes reply;
    };

    static std::vector<Request> requests();

    android::status_t send(uint32_t code, const std::vector<uint8_t>& bytes,
                           std::vector<uint8_t>* reply, uint32_t flags = 0);
    void registerClient();

    const android::sp<android::IBinder> mRemote;
    const android::sp<RecordingService> mService;
    const android::sp<ClientBinder> mClient = new ClientBinder;
};

}  // namespace orvtest
