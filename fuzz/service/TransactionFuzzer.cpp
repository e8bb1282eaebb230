// Requests of a hostile application, one after the other, to a service object over controllers that
// do nothing. Per request:
//
//   byte 0   the code; the last three stand for the platform's own
//   byte 1   bit 0: the right token comes first; bits 1 and 2: a client's binder, a descriptor
//            behind the bytes
//   byte 2   how many words of 4 bytes follow
//
// The state stays one of the four, and the process stays.

#include <binder/Parcel.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "service/COrvPlayer.h"

namespace {

using android::sp;
using namespace OrvPlayer;

// Answers what the first configuration's length and the positions come to.
class FuzzController : public ControllerInterface {
public:
    int configure(std::map<std::string, std::string> config) override {
        return config.size() > 4 ? 1 : 0;
    }
    int start() override { return 0; }
    int stop() override { return 0; }
    int setSurface(sp<android::Surface>&) override { return 0; }
    int cancelCaptureFrame() override { return 0; }
    void setErrorListener(ErrorListener*) override {}
    void setAudioRenderedListener(AudioRenderer::AudioRenderedListener*) override {}
    void setVideoRenderedListener(VideoRenderer::FrameRenderedListener*) override {}
    void setServiceControllerListener(ServiceController::ServiceControllerListener*) override {}
    int getFrameRate() override { return 0; }
    int setSoundEffect(int) override { return 0; }
    int setAVSync(int) override { return 0; }
    int setAudioEnable(int) override { return 0; }
    int setAudioOnlyMode(int) override { return 0; }
    int setCaptionSync(int) override { return 0; }
    int dump(FILE*, const android::Vector<android::String16>&, int) override { return 0; }
    void setCaptionListener(ClosedCaptionListener*) override {}
    int setAudioPID(int) override { return 0; }
    int setCCPID(int) override { return 0; }
    int stopTSReceiver() override { return 0; }
    int pause() override { return 0; }
    int seek(int position) override { return position & 1; }
    int resume() override { return 0; }
    int startRecord(Uri* target) override { return target->mPath.empty() ? 1 : 0; }
    int stopRecord(bool) override { return 0; }
    void setRecorderListener(IRecorderListener*) override {}
    void setPlayerListener(IPlayerListener*) override {}
    int setCropRect(int, int, int, int, int) override { return 0; }
};

class FuzzPlayer : public COrvPlayer {
    sp<ControllerInterface> createMainController() override { return new FuzzController; }
    sp<ControllerInterface> createFileController() override { return new FuzzController; }
};

// An object of the application: nobody waits for what it does.
class FuzzClient : public android::BBinder {
public:
    android::status_t transact(uint32_t, const android::Parcel&, android::Parcel*,
                               uint32_t) override {
        return android::FAILED_TRANSACTION;
    }
};

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

uint32_t codeOf(uint8_t byte) {
    switch (byte) {
        case 253:
            return android::IBinder::PING_TRANSACTION;
        case 254:
            return android::IBinder::INTERFACE_TRANSACTION;
        case 255:
            return android::IBinder::DUMP_TRANSACTION;
        default:
            return byte;
    }
}

void send(COrvPlayer& player, uint32_t code, uint8_t shape, const uint8_t* bytes, size_t size) {
    android::Parcel data;
    if (shape & 1) {
        data.writeInterfaceToken(ICOrvPlayer::descriptor);
    }
    data.write(bytes, size);
    if (shape & 2) {
        data.writeStrongBinder(new FuzzClient);
    }
    if (shape & 4) {
        data.writeDupFileDescriptor(STDERR_FILENO);
    }
    android::Parcel reply;
    const android::status_t status = player.transact(code, data, &reply);
    require(status <= android::OK);
    require(reply.dataSize() <= 8 || code > ICOrvPlayer::CANCEL_CAPTURE_FRAME);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return setenv("ORV_TRACE", "off", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const sp<COrvPlayer> player = new FuzzPlayer;
    for (size_t at = 0; at + 3 <= size;) {
        const uint32_t code = codeOf(bytes[at]);
        const uint8_t shape = bytes[at + 1];
        const size_t length = std::min<size_t>(bytes[at + 2] * 4, size - at - 3);
        at += 3;
        // Stopping what is not there ends the service, as it is to.
        if (code != ICOrvPlayer::STOP || player->getState() != COrvPlayer::ORVPLAYER_STATE_IDLE) {
            send(*player, code, shape, bytes + at, length);
        }
        at += length;
        require(player->getState() >= COrvPlayer::ORVPLAYER_STATE_IDLE &&
                player->getState() <= COrvPlayer::ORVPLAYER_STATE_PAUSE);
    }
    return 0;
}
