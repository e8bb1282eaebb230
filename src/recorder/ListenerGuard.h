#pragma once

#include <map>
#include <memory>
#include <mutex>

namespace OrvPlayer {

// A listener that a service's threads call, through nothing but a pointer that the service was
// given once and that nobody can take back from it.
//
//   owner            mListener.publish(key);               the service gets the key
//   service thread   ListenerGuard<L>::callAt(key, ...)    false when nobody is there any more
//   owner goes       the key leads nowhere; a late call finds nothing
//
// set() and the destructor wait for a call that runs. Calls of one guard come one after the other,
// and may come from any thread. So none of these may be made inside a call.
template <typename Listener>
class ListenerGuard {
public:
    ListenerGuard() = default;
    ListenerGuard(const ListenerGuard&) = delete;  // one guard for one listener
    ListenerGuard& operator=(const ListenerGuard&) = delete;
    ~ListenerGuard() {
        publish(nullptr);
        set(nullptr);
    }

    // Not owned. Once set(nullptr) has returned no call runs and none comes.
    void set(Listener* listener) {
        std::lock_guard<std::mutex> running(mRecord->calling);
        mRecord->listener = listener;
    }

    // False when there is no listener.
    template <typename Call>
    bool call(Call call) {
        return mRecord->run(call);
    }

    // Under which key callAt() finds this guard, instead of the one before; null for none. Keys of
    // several guards may be equal: any of them is found.
    void publish(const void* key) {
        Published& published = Published::instance();
        std::lock_guard<std::mutex> guard(published.lock);
        std::erase_if(published.records,
                      [this](const auto& entry) { return entry.second == mRecord; });
        if (key != nullptr) {
            published.records.emplace(key, mRecord);
        }
    }

    template <typename Call>
    static bool callAt(const void* key, Call call) {
        std::shared_ptr<Record> record;
        {
            Published& published = Published::instance();
            std::lock_guard<std::mutex> guard(published.lock);
            if (const auto found = published.records.find(key); found != published.records.end()) {
                record = found->second;
            }
        }
        return record != nullptr && record->run(call);
    }

private:
    struct Record {
        std::mutex calling;  // held while the listener is called
        Listener* listener = nullptr;

        template <typename Call>
        bool run(Call& call) {
            std::lock_guard<std::mutex> running(calling);
            if (listener == nullptr) {
                return false;
            }
            call(*listener);
            return true;
        }
    };

    // Never destroyed: a service may call while the process ends.
    struct Published {
        std::mutex lock;
        std::multimap<const void*, std::shared_ptr<Record>> records;

        static Published& instance() {
            static auto* only = new Published;
            return *only;
        }
    };

    const std::shared_ptr<Record> mRecord = std::make_shared<Record>();
};

}  // namespace OrvPlayer
