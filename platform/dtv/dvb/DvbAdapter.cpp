#include "dtv/dvb/DvbAdapter.h"

#include <mutex>
#include <utility>

#include "dtv/dvb/LinuxDvbAdapter.h"

namespace orvhost {

namespace {

struct Factory {
    std::mutex mutex;
    DvbAdapterFactory make;  // none: the kernel's
};

// Never destroyed: threads may tune while the process ends.
Factory& factory() {
    static Factory* factory = new Factory;
    return *factory;
}

}  // namespace

void setDvbAdapterFactory(DvbAdapterFactory make) {
    std::lock_guard lock(factory().mutex);
    factory().make = std::move(make);
}

std::unique_ptr<DvbAdapter> makeDvbAdapter() {
    std::lock_guard lock(factory().mutex);
    return factory().make ? factory().make() : std::make_unique<LinuxDvbAdapter>();
}

}  // namespace orvhost
