#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <cstdint>
#include <memory>

namespace orvhost {
class LooperTask;
}

namespace android {

// A named thread that runs the codec's work, one piece after the other.
//
// setName(), start() and stop() belong to the owner. post() may come from any thread; what is
// posted before start() or after stop() waits for the next start(). The looper holds its tasks
// weakly: a task that is gone by its turn is passed over.
class ALooper : public RefBase {
public:
    ALooper();
    ALooper(const ALooper&) = delete;  // a thread points at the state
    ALooper& operator=(const ALooper&) = delete;

    // The thread's name (its first 15 bytes), used by the next start().
    void setName(const char* name);

    // OK, INVALID_OPERATION when it runs already or when the calling thread should do the work
    // (nobody needs that here), or the error of the failed thread creation. There is no managed
    // runtime on this host, and every looper has the default priority.
    status_t start(bool runOnCallingThread = false, bool canCallJava = false, int32_t priority = 0);

    // Ends the thread after the task it is running and joins it. INVALID_OPERATION when it does
    // not run. From the looper's own thread it does not wait.
    status_t stop();

    // Runs the task once, on the looper's thread, after everything posted before it and not before
    // `delayUs` have passed.
    void post(const std::weak_ptr<orvhost::LooperTask>& task, int64_t delayUs = 0);

protected:
    ~ALooper() override;

private:
    struct State;
    std::shared_ptr<State> mState;  // shared with the thread
};

}  // namespace android
