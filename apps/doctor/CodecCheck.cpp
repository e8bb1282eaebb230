extern "C" {
#include <libavcodec/avcodec.h>
}

#include "Checks.h"

namespace orvdoctor {

namespace {

using State = Finding::State;

struct Needed {
    AVCodecID id;
    const char* name;
};

constexpr Needed NEEDED[] = {
    {AV_CODEC_ID_H264, "H.264"}, {AV_CODEC_ID_AAC, "AAC"}, {AV_CODEC_ID_MP2, "MPEG audio"}};

}  // namespace

Findings checkCodecs() {
    std::string there;
    std::string missing;
    for (const Needed& needed : NEEDED) {
        std::string& list = avcodec_find_decoder(needed.id) != nullptr ? there : missing;
        list += (list.empty() ? "" : ", ") + std::string(needed.name);
    }
    Findings findings;
    if (missing.empty()) {
        findings.push_back({"codecs", State::OK, there + " by libavcodec", ""});
    } else {
        findings.push_back({"codecs", State::MISSING, "libavcodec decodes no " + missing,
                            "sudo apt-get install --reinstall libavcodec59"});
    }
#ifdef ORV_HAVE_FDK_AAC
    findings.push_back({"fdk-aac", State::NOTE, "AAC is decoded by libfdk-aac", ""});
#else
    findings.push_back({"fdk-aac", State::NOTE,
                        "built without libfdk-aac, which is not free: libavcodec decodes AAC", ""});
#endif
    return findings;
}

}  // namespace orvdoctor
