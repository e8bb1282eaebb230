#include "programs/ServiceClient.h"

#include <binder/Parcel.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/Await.h"

namespace orvtest {

namespace {

using android::Parcel;
using android::String16;
using orvhost::BinderConnection;

enum PlayerCode : uint32_t { REGISTER_CLIENT = 1, START = 2, OPEN_URI = 7 };
constexpr int32_t URI_SOURCE = 5;

}  // namespace

android::sp<BinderConnection> ServiceClient::onSocket(int fd) {
    std::string error;
    const auto connection = BinderConnection::overSocket(fd, BinderConnection::APPLICATION, &error);
    EXPECT_NE(connection, nullptr) << error;
    return connection;
}

android::sp<BinderConnection> ServiceClient::onBus(const std::string& address) {
    std::string error;
    const auto connection = BinderConnection::toBus(BinderConnection::SESSION_BUS, address, &error);
    EXPECT_NE(connection, nullptr) << error;
    return connection;
}

ServiceClient::ServiceClient(const android::sp<BinderConnection>& connection)
    : mConnection(connection),
      mPlayer(service("OrvPlayer")),
      mTuner(orvhost::ITuner::asInterface(service(orvhost::ITuner::SERVICE_NAME))),
      mMonitor(orvhost::IMonitor::asInterface(service(orvhost::IMonitor::SERVICE_NAME))) {}

ServiceClient::~ServiceClient() {
    if (mConnection != nullptr) {
        mConnection->disconnect();
    }
}

android::sp<android::IBinder> ServiceClient::service(const char* name) {
    std::string error;
    return mConnection != nullptr ? mConnection->getService(String16(name), &error) : nullptr;
}

int ServiceClient::call(uint32_t code) {
    Parcel data;
    data.writeInterfaceToken(String16("OrvPlayer"));
    Parcel reply;
    int32_t number = -1;
    const bool answered = mPlayer->transact(code, data, &reply) == android::OK &&
                          reply.readInt32(&number) == android::OK;
    return answered ? number : -1;
}

int ServiceClient::openFile(const std::string& file) {
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    orvhost::TuneOptions options;
    options.loop = true;
    const bool tuned = mTuner->tune(fd, file, options).ok();
    close(fd);
    const auto list = tuned ? mTuner->services(5000) : orvhost::ServiceList();
    if (list.services.empty()) {
        return 1;
    }
    const orvhost::Service& service = list.services[0];
    std::string uri = "MTV://tuner/live?pcrPid=" + std::to_string(service.pcrPid) +
                      ";IsLATMAudio=1;isMPEG2Audio=0;subtitlePid=0;";
    for (const auto& stream : service.streams) {
        const bool video = stream.kind == orvhost::StreamKind::Video;
        if (video || stream.kind == orvhost::StreamKind::AudioLatm) {
            // The first of each: a second parameter of a name does not count.
            uri += (video ? "videoPid=" : "audioPid=") + std::to_string(stream.pid) + ";";
        }
    }
    // Registered, so that the service watches this process and closes when it ends.
    Parcel registering;
    registering.writeInterfaceToken(String16("OrvPlayer"));
    registering.writeStrongBinder(new android::BBinder);
    Parcel opening;
    opening.writeInterfaceToken(String16("OrvPlayer"));
    opening.writeInt32(URI_SOURCE);
    opening.writeString16(String16(uri.c_str()));
    Parcel reply;
    if (mPlayer->transact(REGISTER_CLIENT, registering, &reply) != android::OK ||
        mPlayer->transact(OPEN_URI, opening, &reply) != android::OK) {
        return 2;
    }
    return 0;
}

int ServiceClient::play(const std::string& file) {
    const int failed = openFile(file);
    if (failed == 0) {
        call(START);
    }
    return failed;
}

orvhost::PlaybackFigures ServiceClient::figures() {
    orvhost::PlaybackFigures figures;
    EXPECT_EQ(mMonitor->figures(&figures), android::OK);
    return figures;
}

bool ServiceClient::plays(double seconds) {
    const orvhost::PlaybackFigures before = figures();
    return await(
        [&] {
            const orvhost::PlaybackFigures now = figures();
            usleep(20'000);
            return now.framesTimed > before.framesTimed + 5 && now.audioFrames > before.audioFrames;
        },
        std::chrono::milliseconds(static_cast<int>(seconds * 1000)));
}

}  // namespace orvtest
