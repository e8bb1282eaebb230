// Texts that a user, a channel list or another process names a source by. What is understood is
// printed, and what is printed is understood again as the same; what is not is explained in a line
// that a terminal can show.

#include <dtv/TunerTypes.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "dtv/LiveSource.h"
#include "dtv/network/NetworkUri.h"

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    using orvhost::NetworkUri;
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    std::string error;
    const auto uri = NetworkUri::parse(text, &error);
    if (!uri) {
        require(!error.empty() && std::all_of(error.begin(), error.end(),
                                              [](char c) { return c >= ' ' && c <= '~'; }));
        return 0;
    }
    const std::string printed = uri->toString();
    const auto again = NetworkUri::parse(printed, &error);
    require(again && again->toString() == printed && again->isMulticast == uri->isMulticast);
    require(uri->port != 0 && uri->interface.size() < 16);
    orvhost::TuneResult result;
    const bool isName = uri->family == NetworkUri::Family::None;
    require(orvhost::liveSourceKey(text, result) == (isName ? "" : printed));
    require(result.ok() == !isName);
    return 0;
}
