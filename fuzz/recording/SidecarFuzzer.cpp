// Any bytes as a sidecar. What is understood is written and understood again as the same; a name
// made of it is one of a file in the recordings' folder.

#include <cstdlib>
#include <tuple>

#include "recording/RecordingName.h"
#include "recording/RecordingStorages.h"
#include "recording/Sidecar.h"

namespace {

void check(bool holds) {
    if (!holds) {
        abort();
    }
}

auto fieldsOf(const orvhost::RecordingDetails& d) {
    return std::tie(d.number, d.state, d.stationName, d.programmeName, d.creationTimeS,
                    d.startTimeS, d.endTimeS, d.durationMs, d.sizeBytes, d.mode, d.storageType,
                    d.canPlay, d.videoPid, d.audioPid, d.audioFraming);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::string label = orvhost::cleanText(text);
    check(label.size() <= orvhost::MAX_LABEL_BYTES && orvhost::cleanText(label) == label);
    const std::string name = orvhost::recordingName("{programme}", {0, label, label});
    check(!name.empty() && name.size() <= orvhost::MAX_NAME_BYTES && name[0] != '.');
    check(name.find('/') == std::string::npos && orvhost::cleanText(name) == name);

    orvhost::Sidecar read;
    if (!orvhost::parseSidecar(text, &read)) {
        return 0;
    }
    const orvhost::RecordingDetails& details = read.details;
    check(details.number >= 0 && details.videoPid <= 0x1FFF && details.durationMs >= 0);
    check(details.storageType >= 0 && details.storageType <= orvhost::RecordingStorages::MAX_TYPE);
    orvhost::Sidecar again;
    check(orvhost::parseSidecar(orvhost::sidecarText(read), &again));
    check(again.uid == read.uid && fieldsOf(again.details) == fieldsOf(details));
    return 0;
}
