// How the controller wires its pipeline from a configuration map.

#include <cstdlib>

#include "common/Trace.h"
#include "service/MainController.h"

using android::sp;

namespace OrvPlayer {

namespace {

constexpr unsigned short NULL_PID = 0x1FFF;

constexpr unsigned int PCR_TS_EXPONENT = 12;
constexpr unsigned int VIDEO_TS_EXPONENT = 20;
constexpr unsigned int VIDEO_PES_BYTES = 6'291'456;
constexpr unsigned int VIDEO_RAW_EXPONENT = 13;  // 80-byte records; the pictures stay in the codec
constexpr unsigned int AUDIO_TS_EXPONENT = 16;
constexpr unsigned int AUDIO_PES_EXPONENT = 16;
constexpr unsigned int AUDIO_RAW_EXPONENT = 19;
constexpr unsigned int CC_TS_EXPONENT = 12;
constexpr unsigned int CC_PES_EXPONENT = 13;
constexpr unsigned int CC_RAW_EXPONENT = 12;

// One step of the sequence: true on success, else its label is logged.
bool done(int status, const char* label) {
    if (status != 0) {
        ORV_LOGE("%s: Error configuring %s.", "configure", label);
    }
    return status == 0;
}

bool isYes(const std::string& value) {
    return !value.empty() && value[0] == '1';
}

}  // namespace

int MainController::configure(Configuration config) {
    // First, because it refuses a second time: nothing of a pipeline that may run is touched then.
    if (!done(mPCRTS->configure("PCRTS", PCR_TS_EXPONENT), "PCRTS RingBuffer")) {
        return 1;
    }
    const int sourceType = atoi(config["sourceType"].c_str());
    if (sourceType != LIVE) {
        createPlayerOf(config["filePath"]);
    }
    mSourceType = sourceType;
    PIDMap pids;
    if (!configurePCR(config, pids) || !configureVideo(config, pids) ||
        !configureAudio(config, pids) || !configureCaptions(config, pids)) {
        return 1;
    }
    const auto status = static_cast<int>(mReceiver->configure(pids));
    return done(status, "configure on TSReceiver") ? 0 : 1;
}

void MainController::createPlayerOf(const std::string& filePath) {
    m_pPlayer = new Player;
    m_pPlayer->setListener(this);
    m_pPlayer->setFilePath(filePath);
}

// Has the receiver filter the PID under `key` into `buffer`, when it names a stream.
bool MainController::receivePID(Configuration& config, const char* key, TSReceiverPIDType role,
                                const sp<RingBuffer>& buffer, const char* label, PIDMap& pids) {
    const auto pid =
        static_cast<unsigned short>(strtoul(config[key].c_str(), nullptr, 10) & 0xFFFF);
    if (pid == 0 || pid == NULL_PID) {
        return true;
    }
    pids[role] = pid;
    if (!done(mReceiver->addOutput(buffer, nullptr), label)) {
        return false;
    }
    mPIDs[role] = pid;
    return true;
}

bool MainController::configurePCR(Configuration& config, PIDMap& pids) {
    return receivePID(config, "pcrPid", PID_TYPE_PCR, mPCRTS, "addOutput on TSReceiver (PCR)",
                      pids) &&
           done(mPCRParser->setInput(mPCRTS), "setInput on TSParser (PCR)") &&
           done(mPCRParser->configure(mSynchronization), "configure on TSParser (PCR)");
}

bool MainController::configureVideo(Configuration& config, PIDMap& pids) {
    return done(mVideoTS->configure("VideoTS", VIDEO_TS_EXPONENT), "VideoTS RingBuffer") &&
           done(mVideoPES->configureWithSize("VideoPES", VIDEO_PES_BYTES), "VideoPES RingBuffer") &&
           done(mVideoRaw->configure("VideoRaw", VIDEO_RAW_EXPONENT), "VideoRaw RingBuffer") &&
           receivePID(config, "videoPid", PID_TYPE_VIDEO, mVideoTS,
                      "addOutput on TSReceiver (Video)", pids) &&
           done(mVideoParser->setInput(mVideoTS), "setInput on TSParser (Video)") &&
           done(mVideoParser->addOutput(mVideoPES, nullptr), "addOutput on TSParser (Video)") &&
           // Deliberate: the PCR label here and for the audio parser, too.
           done(mVideoParser->configure(mSynchronization), "configure on TSParser (PCR)") &&
           done(mVideoDecoder->setInput(mVideoPES), "setInput on VideoDecoder") &&
           done(mVideoDecoder->addOutput(mVideoRaw, nullptr), "addOutput on VideoDecoder") &&
           done(mVideoDecoder->configure(Decoder::H264), "Video Decoder") &&
           done(mVideoRenderer->setInput(mVideoRaw), "setInput on VideoRenderer");
}

bool MainController::configureAudio(Configuration& config, PIDMap& pids) {
    if (!done(mAudioTS->configure("AudioTS", AUDIO_TS_EXPONENT), "AudioTS RingBuffer") ||
        !done(mAudioPES->configure("AudioPES", AUDIO_PES_EXPONENT), "AudioPES RingBuffer") ||
        !done(mAudioRaw->configure("AudioRaw", AUDIO_RAW_EXPONENT), "AudioRaw RingBuffer") ||
        !receivePID(config, "audioPid", PID_TYPE_AUDIO, mAudioTS, "addOutput on TSReceiver (Audio)",
                    pids) ||
        !done(mAudioParser->setInput(mAudioTS), "setInput on TSParser (Audio)") ||
        !done(mAudioParser->addOutput(mAudioPES, nullptr), "addOutput on TSParser (Audio)") ||
        !done(mAudioParser->configure(mSynchronization), "configure on TSParser (PCR)")) {
        return false;
    }
    mAudioParser->setNotifyAudioPTS(mSourceType == RECORDER_SERVICE);
    return configureAudioDecoder(config);
}

bool MainController::configureAudioDecoder(Configuration& config) {
    if (!done(mAudioDecoder->setInput(mAudioPES), "setInput on AudioDecoder") ||
        !done(mAudioDecoder->addOutput(mAudioRaw, nullptr), "setOutput on AudioDecoder")) {
        return false;
    }
    Decoder::codingType_t type = Decoder::AAC_ADTS;
    if (isYes(config["IsLATMAudio"])) {
        type = Decoder::AAC_LATM;
    } else if (isYes(config["isMPEG2Audio"])) {
        type = Decoder::MPEG_AUDIO;
    }
    mAudioCodingType = type;
    return done(mAudioDecoder->configure(type), "Audio Decoder") &&
           done(mAudioRenderer->setInput(mAudioRaw), "setInput on AudioRenderer") &&
           done(mAudioRenderer->configure(), "Audio Renderer");
}

// Captions wait for the clock in their renderer; their parser does not feed it.
bool MainController::configureCaptions(Configuration& config, PIDMap& pids) {
    mPIDs[PID_TYPE_CLOSED_CAPTION] = 0;
    return done(mCCTS->configure("CCTS", CC_TS_EXPONENT), "CCTS RingBuffer") &&
           done(mCCPES->configure("CCPES", CC_PES_EXPONENT), "CCPES RingBuffer") &&
           done(mCCRaw->configure("CCRaw", CC_RAW_EXPONENT), "CCRaw RingBuffer") &&
           receivePID(config, "subtitlePid", PID_TYPE_CLOSED_CAPTION, mCCTS,
                      "addOutput on TSReceiver (Closed Caption)", pids) &&
           done(mCCParser->setInput(mCCTS), "setInput on TSParser (Closed Caption)") &&
           done(mCCParser->addOutput(mCCPES, nullptr), "addOutput on TSParser (Closed Caption)") &&
           done(mCCDecoder->setInput(mCCPES), "setInput on ClosedCaptionDecoder") &&
           done(mCCDecoder->addOutput(mCCRaw, nullptr), "addOutput on ClosedCaptionDecoder") &&
           done(mCCRenderer->setInput(mCCRaw), "setInput on ClosedCaptionRenderer");
}

}  // namespace OrvPlayer
