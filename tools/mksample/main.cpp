// mksample: makes the sample broadcast. See --help.

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "mksample/CaptionSource.h"
#include "mksample/Guide.h"
#include "mksample/Options.h"
#include "mksample/OutputFile.h"
#include "mksample/PesSource.h"
#include "mksample/Tables.h"
#include "mksample/TsMuxer.h"

namespace mksample {
namespace {

constexpr uint8_t kVideoStreamId = 0xE0;
constexpr uint8_t kAudioStreamId = 0xC0;
constexpr uint8_t kCaptionStreamId = 0xBD;  // private_stream_1

// Access units start to arrive this long before they are decoded; with reordering their
// presentation is a frame or more later still, about 0.7 s after arrival.
constexpr int64_t kVideoLead90k = 60000;
constexpr int64_t kAudioLead90k = 63000;

// How fast the receiver's transport buffers empty: 2 Mbit/s for two audio channels
// (ISO/IEC 13818-1, clause 2.4.2.3), 1.2 times the level's bit rate for the small video.
constexpr int64_t kAudioPeakRate = 2'000'000;
constexpr int64_t kSmallVideoPeakRate = 900'000;
constexpr int64_t kCaptionPeakRate = 500'000;

// A receiver told the wrong framing finds out from payloads that begin with a frame; those of the
// first seconds do.
constexpr int64_t kWrongFramingAligned90k = 5 * 90000;

// The background sound of the second language is an octave higher.
constexpr int kSecondLanguagePitch = 2;

constexpr uint8_t kStreamTypeMpegAudio = 0x03;
constexpr uint8_t kStreamTypeAdts = 0x0F;
constexpr uint8_t kStreamTypeLatm = 0x11;

// Where the stream goes and, when asked for, the list of its captions.
class SampleFiles : public PacketSink {
public:
    explicit SampleFiles(const Options& options) : mStream(options.out) {
        if (!options.captionsList.empty()) {
            mList.emplace(options.captionsList);
        }
    }
    void write(const TsPacket& packet) override { mStream.write(packet.data(), packet.size()); }
    void captionWritten(uint64_t pts90k, const std::string& text) override {
        if (mList) {
            const nlohmann::ordered_json line = {{"pts", pts90k}, {"text", text}};
            const std::string bytes = line.dump() + "\n";
            mList->write(bytes.data(), bytes.size());
        }
    }
    void finish() {
        mStream.finish();
        if (mList) {
            mList->finish();
        }
    }

private:
    OutputFile mStream;
    std::optional<OutputFile> mList;
};

// One service with its encoders.
struct Service {
    ServiceInfo info;
    std::unique_ptr<PesSource> video;
    std::vector<std::unique_ptr<PesSource>> audio;  // as in `info`
    std::unique_ptr<PesSource> captions;
    int64_t videoPeakRate = 0;
};

uint8_t streamTypeOf(AudioFormat format) {
    switch (format) {
        case AudioFormat::Latm:
            return kStreamTypeLatm;
        case AudioFormat::Adts:
            return kStreamTypeAdts;
        case AudioFormat::Mpeg:
            break;
    }
    return kStreamTypeMpegAudio;
}

AudioFormat otherFraming(AudioFormat format) {
    return format == AudioFormat::Latm ? AudioFormat::Adts : AudioFormat::Latm;
}

VideoSettings videoSettings(const Options& options) {
    VideoSettings settings;
    settings.fps = options.fps;
    settings.gop = options.gop;
    settings.frameCount =
        static_cast<int64_t>(std::ceil(options.durationS * options.fps.num / options.fps.den));
    return settings;
}

AudioSettings audioSettings(const Options& options) {
    AudioSettings settings;
    settings.fps = options.fps;
    settings.sampleCount = static_cast<int64_t>(options.durationS * kSampleRate);
    settings.silent = options.silentAudio;
    return settings;
}

Service mainService(const Options& options) {
    Service service;
    ServiceInfo& info = service.info;
    info.serviceId = serviceIdOf(options.guide, false);
    info.name = serviceNameOf(options.guide, false);
    info.pmtPid = 0x0100;
    info.videoPid = 0x0111;
    info.pcrPid = options.noPcr ? kNoPcrPid : options.pcrOnVideo ? info.videoPid : 0x01FF;
    info.videoComponentTag = 0x00;

    VideoSettings video = videoSettings(options);
    video.width = options.width;
    video.height = options.height;
    video.interlaced = !options.progressive;
    video.hrd = options.hrd;
    video.bitRate = options.videoBitRate;
    service.video = std::make_unique<VideoSource>(video);

    AudioSettings audio = audioSettings(options);
    audio.coding =
        options.audio == AudioFormat::Mpeg ? AudioCoding::MpegLayer2 : AudioCoding::AacLc;
    audio.bitRate = options.audioBitRate;
    AudioPacking packing;
    packing.format = options.audio;
    packing.latmConfigEvery = options.latmConfigEvery;
    packing.alignedUntil90k = options.audioAligned   ? INT64_MAX
                              : options.wrongFraming ? kWrongFramingAligned90k
                                                     : INT64_MIN;
    const uint8_t streamType =
        streamTypeOf(options.wrongFraming ? otherFraming(options.audio) : options.audio);
    service.info.audio.push_back({0x0112, streamType, 0x10, "por"});
    service.audio.push_back(std::make_unique<AudioSource>(audio, packing));
    if (options.secondAudio) {
        audio.pitch = kSecondLanguagePitch;
        audio.bitRate = options.secondAudioBitRate;
        service.info.audio.push_back({0x0113, streamType, 0x11, "eng"});
        service.audio.push_back(std::make_unique<AudioSource>(audio, packing));
    }

    if (options.captions) {
        info.captionPid = 0x0130;
        info.captionComponentTag = 0x30;
        service.captions = std::make_unique<CaptionSource>(options.durationS);
    }
    return service;
}

Service smallService(const Options& options) {
    Service service;
    ServiceInfo& info = service.info;
    info.serviceId = serviceIdOf(options.guide, true);
    info.name = serviceNameOf(options.guide, true);
    info.partialReception = true;
    info.pmtPid = 0x1FC8;
    info.videoPid = 0x0181;
    info.pcrPid = options.noPcr ? kNoPcrPid : options.pcrOnVideo ? info.videoPid : 0x01FE;
    info.videoComponentTag = 0x81;
    info.audio.push_back({0x0182, kStreamTypeAdts, 0x83, "por"});

    VideoSettings video = videoSettings(options);
    video.width = 320;
    video.height = 240;
    video.highProfile = false;
    video.bitRate = options.smallVideoBitRate;
    service.video = std::make_unique<VideoSource>(video);
    service.videoPeakRate = kSmallVideoPeakRate;

    AudioSettings audio = audioSettings(options);
    audio.coding = AudioCoding::AacForMobile;
    audio.bitRate = options.smallAudioBitRate;
    AudioPacking packing;
    packing.format = AudioFormat::Adts;
    packing.alignedUntil90k = INT64_MIN;
    service.audio.push_back(std::make_unique<AudioSource>(audio, packing));
    return service;
}

void makeSample(const Options& options) {
    SampleFiles out(options);
    std::vector<Service> services;
    services.push_back(mainService(options));
    if (options.smallService) {
        services.push_back(smallService(options));
    }

    TsMuxer muxer({options.muxRate, options.startPts, options.cutAtS}, out);
    std::vector<ServiceInfo> infos;
    for (Service& service : services) {
        const ServiceInfo& info = service.info;
        muxer.addStream(info.videoPid, kVideoStreamId, *service.video, kVideoLead90k,
                        service.videoPeakRate);
        for (size_t i = 0; i < service.audio.size(); ++i) {
            muxer.addStream(info.audio[i].pid, static_cast<uint8_t>(kAudioStreamId + i),
                            *service.audio[i], kAudioLead90k, kAudioPeakRate);
        }
        if (service.captions != nullptr) {
            muxer.addStream(info.captionPid, kCaptionStreamId, *service.captions,
                            CaptionSource::LEAD_90K, kCaptionPeakRate);
        }
        if (info.pcrPid != kNoPcrPid) {
            muxer.addPcrPid(info.pcrPid);
        }
        infos.push_back(info);
    }
    for (const Table& table : buildTables(infos, options.guide)) {
        muxer.addTable(table);
    }

    const bool terminal = isatty(STDERR_FILENO) != 0;
    muxer.run([&](double seconds) {
        if (terminal) {
            std::fprintf(stderr, "\rmksample: %.1f s of %.1f s", std::max(seconds, 0.0),
                         options.durationS);
        }
    });
    if (terminal) {
        std::fprintf(stderr, "\r\033[K");
    }
    out.finish();
}

int run(int argc, char** argv) {
    // A reader that goes away is an ordinary write error.
    std::signal(SIGPIPE, SIG_IGN);
    av_log_set_level(AV_LOG_ERROR);
    try {
        const Options options = parseOptions(argc, argv);
        if (options.help) {
            std::fputs(helpText().c_str(), stdout);
            return 0;
        }
        makeSample(options);
        return 0;
    } catch (const UsageError& error) {
        std::fprintf(stderr, "mksample: %s\n", error.what());
        return 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "mksample: %s\n", error.what());
        return 1;
    }
}

}  // namespace
}  // namespace mksample

int main(int argc, char** argv) {
    return mksample::run(argc, argv);
}
