#include "renderer/OutputDeviceThread.h"

#include <media/AudioSystem.h>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr unsigned int PERIOD_MS = 1000;

// SCO, SCO headset, SCO car kit, A2DP, A2DP headphones, A2DP speaker.
constexpr uint32_t BLUETOOTH_DEVICES[] = {0x10, 0x20, 0x40, 0x80, 0x100, 0x200};
constexpr uint32_t WIRED_DEVICES[] = {0x8, 0x4};  // headphone, headset

template <size_t COUNT>
uint32_t connectedOf(const uint32_t (&devices)[COUNT]) {
    uint32_t connected = 0;
    for (const uint32_t device : devices) {
        if (android::AudioSystem::getDeviceConnectionState(
                static_cast<audio_devices_t>(device), "") == AUDIO_POLICY_DEVICE_STATE_AVAILABLE) {
            connected |= device;
        }
    }
    return connected;
}

}  // namespace

OutputDeviceThread::OutputDeviceThread() {
    mLock.lock();
}

bool OutputDeviceThread::threadLoop() {
    const uint32_t bluetooth = connectedOf(BLUETOOTH_DEVICES);
    mBluetoothConnected = bluetooth != 0;
    const uint32_t status = bluetooth | connectedOf(WIRED_DEVICES);
    if (status != mOutputStatus) {
        ORV_LOGI("%s: Headset change detected", __func__);
        mOutputStatus = status;
        mOutputChanged = true;
    }
    mWakeUp.waitOnce(mLock, PERIOD_MS, [this] { return exitPending(); });
    return !exitPending();
}

void OutputDeviceThread::requestExit() {
    android::Thread::requestExit();
    mWakeUp.broadcast();
}

}  // namespace OrvPlayer
