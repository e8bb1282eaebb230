#include "media/CodecComponent.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace orvhost {

namespace {

constexpr CodecComponent COMPONENTS[] = {
    {CodecComponent::Kind::Avc, "OMX.orv.avc.dec", "video/avc"},
    {CodecComponent::Kind::Aac, "OMX.orv.aac.dec", "audio/mp4a-latm"},
    {CodecComponent::Kind::MpegAudio, "OMX.QEL.mp3.dec", "audio/mpeg"},
};

}  // namespace

const CodecComponent* CodecComponent::byMime(const char* mime) {
    const auto* found = std::ranges::find_if(
        COMPONENTS, [&](const CodecComponent& c) { return strcmp(c.mime, mime) == 0; });
    return found != std::end(COMPONENTS) ? found : nullptr;
}

const CodecComponent* CodecComponent::byName(const char* name) {
    const auto* found = std::ranges::find_if(
        COMPONENTS, [&](const CodecComponent& c) { return strcmp(c.name, name) == 0; });
    return found != std::end(COMPONENTS) ? found : nullptr;
}

}  // namespace orvhost
