#pragma once

namespace orvhost {

// What an ALooper runs. The poster keeps the task alive; the looper only looks whether it still is.
class LooperTask {
public:
    virtual ~LooperTask() = default;

    // On the looper's thread, never twice at the same time on one looper.
    virtual void run() = 0;
};

}  // namespace orvhost
