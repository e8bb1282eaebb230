#pragma once

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <sys/socket.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "binder/BinderConnection.h"

namespace orvtest {

// The bytes of a request as the tables of the two interfaces have them.
class Bytes {
public:
    static Bytes request(const std::string& interface) {
        return Bytes().i32(0).i32(-1).text(interface);
    }
    Bytes& i32(int32_t value) { return put(&value, sizeof value); }
    // ASCII alone.
    Bytes& text(const std::string& ascii) {
        i32(static_cast<int32_t>(ascii.size()));
        std::vector<char16_t> units(ascii.begin(), ascii.end());
        units.resize(ascii.size() % 2 == 0 ? ascii.size() + 2 : ascii.size() + 1);  // ends, padding
        return put(units.data(), units.size() * sizeof(char16_t));
    }
    Bytes& raw(const std::string& bytes) {
        put(bytes.data(), bytes.size());
        mBytes.resize((mBytes.size() + 3) / 4 * 4);
        return *this;
    }
    const std::vector<uint8_t>& get() const { return mBytes; }

private:
    Bytes& put(const void* bytes, size_t size) {
        const auto* first = static_cast<const uint8_t*>(bytes);
        mBytes.insert(mBytes.end(), first, first + size);
        return *this;
    }
    std::vector<uint8_t> mBytes;
};

// A player service that does what a test tells it to. It is written from the tables of the
// interface alone: what the library sends is kept byte by byte, what it hears is built by hand.
class ScriptedPlayer : public android::BBinder {
public:
    using Parcel = android::Parcel;
    using Step = std::function<void(const Parcel& request, Parcel* reply)>;

    struct Request {
        uint32_t code;
        std::vector<uint8_t> bytes;
        android::sp<android::IBinder> binder;  // of registerClient and setSurface
    };

    // Runs instead of what the service does by itself with that call.
    void script(uint32_t code, Step step) {
        std::lock_guard<std::mutex> guard(mLock);
        mSteps[code] = std::move(step);
    }
    std::vector<Request> requests() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mRequests;
    }
    size_t count(uint32_t code) const {
        size_t found = 0;
        for (const Request& request : requests()) {
            found += request.code == code ? 1 : 0;
        }
        return found;
    }
    // One callback, its fields behind the token.
    android::status_t tell(uint32_t code, const std::function<void(Parcel&)>& write = nullptr,
                           const char* interface = "OrvPlayerClient") {
        Parcel data;
        data.writeInterfaceToken(android::String16(interface));
        if (write) {
            write(data);
        }
        return client()->transact(code, data, nullptr, FLAG_ONEWAY);
    }
    void tellNumber(uint32_t code, int32_t number) {
        tell(code, [number](Parcel& data) { data.writeInt32(number); });
    }
    void setState(int32_t state) {
        std::lock_guard<std::mutex> guard(mLock);
        mState = state;
    }
    android::sp<android::IBinder> client() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mClient;
    }

protected:
    ~ScriptedPlayer() override = default;

    android::status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                 uint32_t flags) override {
        if (code > 29) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        Request request{code, {data.data(), data.data() + data.dataSize()}, nullptr};
        if (!data.enforceInterface(android::String16("OrvPlayer"))) {
            return android::PERMISSION_DENIED;
        }
        Step step;
        {
            std::lock_guard<std::mutex> guard(mLock);
            if (code == 1 || code == 9) {
                data.setDataPosition(request.bytes.size() - 24);
                request.binder = data.readStrongBinder();
                mClient = code == 1 ? request.binder : mClient;
            }
            mRequests.push_back(std::move(request));
            if (const auto found = mSteps.find(code); found != mSteps.end()) {
                step = found->second;
            }
        }
        if (step) {
            step(data, reply);
        } else {
            serve(code, data, reply);
        }
        return android::OK;
    }

private:
    void serve(uint32_t code, const Parcel& data, Parcel* reply) {
        static const std::map<uint32_t, std::pair<uint32_t, int32_t>> RESULTS = {
            {2, {2, 3}}, {4, {17, 4}}, {5, {18, 3}}, {7, {1, 2}}};  // callback, state
        if (const auto result = RESULTS.find(code); result != RESULTS.end()) {
            setState(result->second.second);
            tellNumber(result->second.first, 0);
        } else if (code == 3 || code == 8) {
            setState(code == 3 ? 2 : 1);
        } else if (code == 13 || code == 14) {
            tellNumber(code + 2, code == 13 ? 7 : 1);
            reply->writeInt32(0);
        } else if (code == 6) {
            tellNumber(19, data.readInt32());
        } else if (code == 25) {
            std::lock_guard<std::mutex> guard(mLock);
            reply->writeInt32(mState);
        } else if (code == 28) {
            reply->writeInt64(900'000);
        } else if (reply != nullptr) {
            reply->writeInt32(0);
        }
    }

    mutable std::mutex mLock;
    std::vector<Request> mRequests;
    std::map<uint32_t, Step> mSteps;
    android::sp<android::IBinder> mClient;
    int32_t mState = 1;
};

// The connection to it: both ends in this process.
struct ScriptedService {
    ScriptedService() {
        int sockets[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
            return;
        }
        android::defaultServiceManager()->addService(android::String16("OrvPlayer"), player);
        using orvhost::BinderConnection;
        std::string error;
        // Each waits for the other to say who it is.
        std::thread serving([&] {
            service = BinderConnection::overSocket(sockets[0], BinderConnection::SERVICE, &error);
        });
        application =
            BinderConnection::overSocket(sockets[1], BinderConnection::APPLICATION, &failure);
        serving.join();
    }
    ~ScriptedService() {
        if (service != nullptr) {
            service->disconnect();
        }
    }
    ScriptedService(const ScriptedService&) = delete;  // one end of a connection
    ScriptedService& operator=(const ScriptedService&) = delete;

    const android::sp<ScriptedPlayer> player = new ScriptedPlayer;
    android::sp<orvhost::BinderConnection> service;
    android::sp<orvhost::BinderConnection> application;
    std::string failure;
};

}  // namespace orvtest
