#include "media/Av.h"

#include <cstring>
#include <mutex>

#include "trace/HostLog.h"

namespace orvhost {

namespace {

void traceMessage(void* source, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING || !OneSegPGL_IsTraced(0x10000000u)) {
        return;
    }
    char line[512];
    int printPrefix = 1;
    av_log_format_line2(source, level, format, arguments, line, sizeof line, &printPrefix);
    HOST_LOGV("%s", line);
}

}  // namespace

void routeLibraryMessages() {
    static std::once_flag routed;
    std::call_once(routed, [] { av_log_set_callback(traceMessage); });
}

AvContext makeDecoder(AVCodecID codec) {
    const AVCodec* decoder = avcodec_find_decoder(codec);
    if (decoder == nullptr) {
        return nullptr;
    }
    AvContext context(avcodec_alloc_context3(decoder));
    if (context != nullptr) {
        context->pkt_timebase = MICROSECONDS;
    }
    return context;
}

bool setExtradata(AVCodecContext* context, std::span<const uint8_t> bytes) {
    av_freep(&context->extradata);
    context->extradata_size = 0;
    if (bytes.empty()) {
        return true;
    }
    context->extradata =
        static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (context->extradata == nullptr) {
        return false;
    }
    memcpy(context->extradata, bytes.data(), bytes.size());
    context->extradata_size = static_cast<int>(bytes.size());
    return true;
}

}  // namespace orvhost
