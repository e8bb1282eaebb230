#pragma once

#include <utils/Thread.h>

#include <atomic>
#include <cstdint>

#include "common/HandoffLock.h"

namespace OrvPlayer {

// Looks once a second where sound goes: to a Bluetooth output, to a wired headset.
class OutputDeviceThread : public android::Thread {
public:
    OutputDeviceThread();

    // Ends the wait, too.
    void requestExit() override;

    bool isBluetoothConnected() const { return mBluetoothConnected; }
    // The connected outputs as the platform's device bits.
    uint32_t outputStatus() const { return mOutputStatus; }
    // True once after the outputs changed.
    bool outputStatusChanged() { return mOutputChanged.exchange(false); }

private:
    bool threadLoop() override;

    std::atomic<bool> mBluetoothConnected{false};
    // Nothing at first: a headset that is already plugged in counts as a change.
    std::atomic<uint32_t> mOutputStatus{0};
    std::atomic<bool> mOutputChanged{false};
    HandoffLock mLock;  // taken by the creating thread, waited on by this one
    HandoffCondition mWakeUp;
};

}  // namespace OrvPlayer
