#include <gui/IGraphicBufferProducer.h>

#include "graphics/BpGraphicBufferProducer.h"

namespace android {

namespace {

// Without memory of its own, so that threads may read it while the process exits.
const StaticString16 DESCRIPTOR_TEXT(u"OrvGraphicBufferProducer");

}  // namespace

const String16 IGraphicBufferProducer::descriptor(DESCRIPTOR_TEXT);

sp<IGraphicBufferProducer> IGraphicBufferProducer::asInterface(const sp<IBinder>& binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    // What answers to the descriptor of an interface is of its class.
    const sp<IInterface> local = binder->queryLocalInterface(descriptor);
    if (local != nullptr) {
        return static_cast<IGraphicBufferProducer*>(local.get());
    }
    return BpGraphicBufferProducer::create(binder);
}

}  // namespace android
