#include "media/player/Notifier.h"

#include <pthread.h>

#include <algorithm>

namespace orvhost {

using android::MediaPlayerListener;
using android::sp;

Notifier::Notifier()
    : mState(std::make_shared<State>()), mThread([state = mState] { run(*state); }) {}

Notifier::~Notifier() {
    {
        const std::lock_guard guard(mState->lock);
        mState->exit = true;
        mState->messages.clear();
        mState->changed.notify_all();
    }
    if (mThread.get_id() == std::this_thread::get_id()) {
        mThread.detach();  // the state is the thread's as well
    } else {
        mThread.join();
    }
}

void Notifier::setListener(const sp<MediaPlayerListener>& listener) {
    sp<MediaPlayerListener> former;  // may end here, without the lock
    const std::lock_guard guard(mState->lock);
    former = mState->listener;
    mState->listener = listener;
}

void Notifier::post(int msg, int ext1, int ext2, bool replaces) {
    const std::lock_guard guard(mState->lock);
    auto& messages = mState->messages;
    const auto same = std::find_if(messages.begin(), messages.end(),
                                   [msg](const Message& message) { return message.msg == msg; });
    if (replaces && same != messages.end()) {
        *same = {msg, ext1, ext2};
    } else {
        messages.push_back({msg, ext1, ext2});
        mState->changed.notify_all();
    }
}

void Notifier::clear() {
    const std::lock_guard guard(mState->lock);
    mState->messages.clear();
}

void Notifier::run(State& state) {
    pthread_setname_np(pthread_self(), "MediaPlayer");
    std::unique_lock guard(state.lock);
    while (true) {
        state.changed.wait(guard, [&] { return state.exit || !state.messages.empty(); });
        if (state.exit) {
            return;
        }
        const Message message = state.messages.front();
        state.messages.pop_front();
        sp<MediaPlayerListener> listener = state.listener;
        guard.unlock();
        if (listener != nullptr) {
            listener->notify(message.msg, message.ext1, message.ext2, nullptr);
            listener = nullptr;
        }
        guard.lock();
    }
}

}  // namespace orvhost
