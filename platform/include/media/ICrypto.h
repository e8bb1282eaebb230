#pragma once

#include <utils/RefBase.h>

namespace android {

// Descrambling inside the codec. Broadcasts reach the codec in the clear, so nothing implements
// it: the codec refuses to be configured with one.
class ICrypto : public virtual RefBase {
protected:
    ~ICrypto() override = default;
};

}  // namespace android
