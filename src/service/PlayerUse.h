#pragma once

#include "service/COrvPlayer.h"

namespace OrvPlayer {

// A call to the controller from a thread that executes no command. A command that releases the
// controller waits for it, so that the pipeline ends where that was asked for, before another is
// built.
class COrvPlayer::PlayerUse {
public:
    explicit PlayerUse(COrvPlayer& owner) : mOwner(owner) {
        const std::lock_guard<std::mutex> guard(mOwner.mPointerLock);
        mPlayer = mOwner.m_pPlayer;
        mOwner.mPlayerUses += mPlayer != nullptr ? 1 : 0;
    }
    PlayerUse(const PlayerUse&) = delete;  // counted
    PlayerUse& operator=(const PlayerUse&) = delete;
    ~PlayerUse() {
        if (mPlayer == nullptr) {
            return;
        }
        mPlayer = nullptr;  // before it may be released
        const std::lock_guard<std::mutex> guard(mOwner.mPointerLock);
        if (--mOwner.mPlayerUses == 0) {
            mOwner.mPlayerUnused.notify_all();
        }
    }

    explicit operator bool() const { return mPlayer != nullptr; }
    ControllerInterface* operator->() const { return mPlayer.get(); }

private:
    COrvPlayer& mOwner;
    android::sp<ControllerInterface> mPlayer;
};

}  // namespace OrvPlayer
