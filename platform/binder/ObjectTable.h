#pragma once

#include <binder/IBinder.h>

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace orvhost {

struct BinderPeer;

// The objects of this process that others hold, under the ids by which they call them. An object
// is kept alive as long as a peer has been given it more often than it has given it back. Ids are
// not used twice and begin at random: one of another connection means nothing here.
//
// References that end are handed out, to be dropped where no lock is held. Not thread safe.
class ObjectTable {
public:
    using Dropped = std::vector<android::sp<android::IBinder>>;

    ObjectTable();

    // The id under which `peer` is sent a local object, once more.
    uint64_t give(const android::sp<android::IBinder>& object, const BinderPeer& peer);
    // It was sent `count` times less, or gives back that many.
    void takeBack(uint64_t id, const BinderPeer& peer, uint32_t count, Dropped* dropped);
    // Null unless that peer holds it.
    android::sp<android::IBinder> find(uint64_t id, const BinderPeer& peer) const;
    // The peer is gone.
    void forget(const BinderPeer& peer, Dropped* dropped);

    size_t size() const { return mEntries.size(); }

private:
    struct Entry {
        android::sp<android::IBinder> object;
        std::unordered_map<const BinderPeer*, uint64_t> given;
    };
    using Entries = std::unordered_map<uint64_t, Entry>;

    Entries::iterator drop(Entries::iterator entry, Dropped* dropped);

    uint64_t mNextId;
    Entries mEntries;
    std::unordered_map<const android::IBinder*, uint64_t> mIds;
};

}  // namespace orvhost
