#include "binder/ObjectTable.h"

#include <algorithm>
#include <random>

using android::IBinder;
using android::sp;

namespace orvhost {

ObjectTable::ObjectTable() {
    std::random_device device;
    // Room for 2^62 objects before it wraps.
    mNextId = ((static_cast<uint64_t>(device()) << 32 | device()) >> 2) + 1;
}

uint64_t ObjectTable::give(const sp<IBinder>& object, const BinderPeer& peer) {
    const auto [known, isNew] = mIds.try_emplace(object.get(), mNextId);
    if (isNew) {
        mEntries[mNextId++].object = object;
    }
    ++mEntries[known->second].given[&peer];
    return known->second;
}

void ObjectTable::takeBack(uint64_t id, const BinderPeer& peer, uint32_t count, Dropped* dropped) {
    const auto entry = mEntries.find(id);
    if (entry == mEntries.end()) {
        return;
    }
    const auto given = entry->second.given.find(&peer);
    if (given == entry->second.given.end()) {
        return;
    }
    given->second -= std::min<uint64_t>(given->second, count);
    if (given->second == 0) {
        entry->second.given.erase(given);
        if (entry->second.given.empty()) {
            drop(entry, dropped);
        }
    }
}

sp<IBinder> ObjectTable::find(uint64_t id, const BinderPeer& peer) const {
    const auto entry = mEntries.find(id);
    return entry != mEntries.end() && entry->second.given.contains(&peer) ? entry->second.object
                                                                          : nullptr;
}

void ObjectTable::forget(const BinderPeer& peer, Dropped* dropped) {
    for (auto entry = mEntries.begin(); entry != mEntries.end();) {
        entry->second.given.erase(&peer);
        entry = entry->second.given.empty() ? drop(entry, dropped) : std::next(entry);
    }
}

ObjectTable::Entries::iterator ObjectTable::drop(Entries::iterator entry, Dropped* dropped) {
    mIds.erase(entry->second.object.get());
    dropped->push_back(std::move(entry->second.object));
    return mEntries.erase(entry);
}

}  // namespace orvhost
