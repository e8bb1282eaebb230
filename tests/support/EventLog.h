#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "servicecontroller/ServiceController.h"

namespace orvtest {

// Takes down the events of a service monitor as "event:value1,value2".
class EventLog : public OrvPlayer::ServiceController::ServiceControllerListener {
public:
    void onServiceControllerEvent(OrvPlayer::ServiceController::event_t event, unsigned int value1,
                                  unsigned int value2) override {
        std::lock_guard<std::mutex> guard(mLock);
        mEvents.push_back(std::to_string(event) + ":" + std::to_string(value1) + "," +
                          std::to_string(value2));
    }

    // What came since the last call, with blanks between.
    std::string take() {
        std::lock_guard<std::mutex> guard(mLock);
        std::string all;
        for (const std::string& event : std::exchange(mEvents, {})) {
            all += (all.empty() ? "" : " ") + event;
        }
        return all;
    }
    size_t count() {
        std::lock_guard<std::mutex> guard(mLock);
        return mEvents.size();
    }

private:
    std::mutex mLock;
    std::vector<std::string> mEvents;
};

}  // namespace orvtest
