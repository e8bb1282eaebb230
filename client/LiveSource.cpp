#include <orvclient/Player.h>

#include "dtv/Services.h"

namespace orvclient {

using orvhost::ElementaryStream;
using orvhost::StreamKind;

namespace {

void add(const ElementaryStream& stream, LiveSource* source) {
    switch (stream.kind) {
        case StreamKind::Video:
            source->videoPid = source->videoPid != 0 ? source->videoPid : stream.pid;
            break;
        case StreamKind::AudioLatm:
        case StreamKind::AudioAdts:
        case StreamKind::AudioMpeg:
            if (source->audioPid == 0) {
                source->audioPid = stream.pid;
                source->isLatm = stream.kind == StreamKind::AudioLatm;
                source->isMpegAudio = stream.kind == StreamKind::AudioMpeg;
            }
            break;
        case StreamKind::Caption:
            if (source->captionPid == 0 && orvhost::isCaptions(stream)) {
                source->captionPid = stream.pid;
            }
            break;
        default:
            break;
    }
}

}  // namespace

LiveSource liveSourceOf(const orvhost::Service& service) {
    LiveSource source;
    source.pcrPid = service.pcrPid != orvhost::PID_NONE ? service.pcrPid : uint16_t{0};
    for (const ElementaryStream& stream : service.streams) {
        add(stream, &source);
    }
    return source;
}

}  // namespace orvclient
