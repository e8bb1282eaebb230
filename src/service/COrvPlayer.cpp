// The object itself: its registration, its client and that one's death, and what holds the
// controller. Commands and events stand in files of their own.

#include "service/COrvPlayer.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/PermissionCache.h>
#include <media/AudioSystem.h>
#include <poll.h>
#include <unistd.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <cstring>
#include <utility>

#include "common/Trace.h"
#include "service/MP4Controller.h"
#include "service/MainController.h"
#include "service/PlayerUse.h"

using android::IBinder;
using android::IPCThreadState;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;

namespace OrvPlayer {

namespace {

constexpr char SERVICE_NAME[] = "OrvPlayer";
constexpr audio_io_handle_t DEFAULT_OUTPUT = 0;

std::mutex gSelfLock;

// The descriptor is whatever a caller without permission sent: it must not be waited for.
void writeIfReady(int fd, const char* text) {
    pollfd room = {fd, POLLOUT, 0};
    if (poll(&room, 1, 0) == 1 && (room.revents & (POLLOUT | POLLERR | POLLHUP)) == POLLOUT) {
        [[maybe_unused]] const ssize_t written = write(fd, text, strlen(text));
    }
}

}  // namespace

// A pointer that is destroyed with the program would take the player with it while threads of its
// pipeline run.
sp<COrvPlayer>& COrvPlayer::m_pSelf = *new sp<COrvPlayer>;

COrvPlayer::COrvPlayer() {
    OneSegPGL_InitializeDebug();
}

COrvPlayer::~COrvPlayer() {
    releasePlayer();
}

void COrvPlayer::instantiate() {
    const std::lock_guard<std::mutex> guard(gSelfLock);
    if (m_pSelf != nullptr) {
        ORV_LOGE("%s: Service already instantiated", __func__);
        return;
    }
    m_pSelf = new COrvPlayer;
    android::defaultServiceManager()->addService(
        String16(SERVICE_NAME), m_pSelf, false,
        android::IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT);
    ORV_LOGI("%s: OrvPlayer service started and registered", __func__);
}

sp<COrvPlayer> COrvPlayer::instance() {
    const std::lock_guard<std::mutex> guard(gSelfLock);
    return m_pSelf;
}

status_t COrvPlayer::onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                uint32_t flags) {
    return BnCOrvPlayer::onTransact(code, data, reply, flags);
}

sp<ControllerInterface> COrvPlayer::createMainController() {
    sp<MainController> controller = new MainController;
    controller->setFigures(&mFigures);
    return controller;
}

sp<ControllerInterface> COrvPlayer::createFileController() {
    return new MP4Controller;
}

int COrvPlayer::registerClient(const sp<ICOrvPlayerClient>& client) {
    ORV_LOGV("%s: client addr=[%p], tid=[%d], calling tid=[%d]", __func__,
             static_cast<void*>(client.get()), gettid(), IPCThreadState::self()->getCallingPid());
    const std::lock_guard<std::mutex> guard(mLock);
    const sp<IBinder> binder = android::IInterface::asBinder(client);
    if (binder == nullptr || isClient(binder.get())) {
        return 0;
    }
    // A client in this process, too, is called through its binder: its code must run on no thread
    // of the pipeline, nor under our lock.
    setClient(binder, binder->localBinder() != nullptr
                          ? sp<ICOrvPlayerClient>(new BpCOrvPlayerClient(binder))
                          : client);
    binder->unlinkToDeath(this);  // told once, however often it came back
    binder->linkToDeath(this);
    ORV_LOGI("%s: Adding notification client! binder [%p]", __func__,
             static_cast<void*>(binder.get()));
    return 0;
}

void COrvPlayer::binderDied(const android::wp<IBinder>& who) {
    ORV_LOGW("%s: client addr=[%p], tid=[%d], calling tid=[%d]", __func__,
             static_cast<void*>(who.unsafe_get()), gettid(),
             IPCThreadState::self()->getCallingPid());
    setAudioPathForce(0);
    android::AudioSystem::setParameters(DEFAULT_OUTPUT,
                                        String8("audioParam;DMB_FORCE_SPEAKER=off"));
    dropClient(who.unsafe_get());
    if (const PlayerUse player(*this); player) {
        player->stopTSReceiver();
    }
    close();
}

status_t COrvPlayer::dump(int fd, const android::Vector<String16>& /*args*/) {
    if (android::PermissionCache::checkCallingPermission(String16("android.permission.DUMP"))) {
        return android::OK;
    }
    const IPCThreadState* const caller = IPCThreadState::self();
    char text[128];
    snprintf(text, sizeof text, "Permission Denial: can't dump CameraService from pid=%d, uid=%d\n",
             caller->getCallingPid(), caller->getCallingUid());
    writeIfReady(fd, text);
    return android::OK;
}

void COrvPlayer::dumpController(FILE* stream) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (m_pPlayer != nullptr) {
        m_pPlayer->dump(stream, android::Vector<String16>(), 0);
    }
}

// The buffers have their storage before anything plays.
size_t COrvPlayer::bufferFills(BufferFill* fills, size_t most) {
    const PlayerUse player(*this);
    const bool isPlaying = mState == ORVPLAYER_STATE_PLAY || mState == ORVPLAYER_STATE_PAUSE;
    return player && isPlaying ? player->bufferFills(fills, most) : 0;
}

sp<ICOrvPlayerClient> COrvPlayer::client() const {
    const std::lock_guard<std::mutex> guard(mPointerLock);
    return mClient;
}

bool COrvPlayer::isClient(const IBinder* binder) const {
    const std::lock_guard<std::mutex> guard(mPointerLock);
    return binder == mClientBinder.get();
}

void COrvPlayer::setClient(sp<IBinder> binder, sp<ICOrvPlayerClient> client) {
    const std::lock_guard<std::mutex> guard(mPointerLock);
    std::swap(mClientBinder, binder);
    std::swap(mClient, client);
}  // what was there goes with the arguments, unlocked

// Unless another one has come meanwhile.
void COrvPlayer::dropClient(const IBinder* dead) {
    sp<IBinder> binder;
    sp<ICOrvPlayerClient> client;
    const std::lock_guard<std::mutex> guard(mPointerLock);
    if (dead == mClientBinder.get()) {
        std::swap(mClientBinder, binder);
        std::swap(mClient, client);
    }
}

void COrvPlayer::setPlayer(const sp<ControllerInterface>& player) {
    const std::lock_guard<std::mutex> guard(mPointerLock);
    m_pPlayer = player;
}

void COrvPlayer::releasePlayer() {
    sp<ControllerInterface> player;
    std::unique_lock<std::mutex> lock(mPointerLock);
    std::swap(player, m_pPlayer);
    mPlayerUnused.wait(lock, [this] { return mPlayerUses == 0; });
    lock.unlock();
    player = nullptr;  // the pipeline ends here
}

}  // namespace OrvPlayer
