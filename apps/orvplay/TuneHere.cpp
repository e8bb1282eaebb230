#include "TuneHere.h"

#include "dtv/Tuner.h"
#include "dtv/network/NetworkUri.h"

namespace orvplay {

orvhost::TuneResult tuneHere(const std::string& source, const orvhost::TuneOptions& options) {
    std::string error;
    const std::string address = orvhost::withAddress(source, &error);
    if (address.empty() && !source.empty()) {
        return {orvhost::TuneStatus::CannotOpen, error};
    }
    return orvhost::Tuner::instance().tune(address, options);
}

}  // namespace orvplay
