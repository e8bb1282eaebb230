#include "UnitFlow.h"

#include <map>

#include "Interrupt.h"
#include "dtv/Tuner.h"

namespace orvplay {

namespace {

constexpr int PASSES_PER_LOOK = 64;

UnitChain::Extraction audioExtraction(orvhost::StreamKind kind) {
    switch (kind) {
        case orvhost::StreamKind::AudioAdts:
            return UnitChain::Extraction::AAC_ADTS;
        case orvhost::StreamKind::AudioMpeg:
            return UnitChain::Extraction::MPEG_AUDIO;
        default:
            return UnitChain::Extraction::AAC_LATM;
    }
}

}  // namespace

UnitFlow::UnitFlow(const StreamSelection& selection, Cut cut, Sink sink) : mSink(std::move(sink)) {
    const auto extraction = [cut](UnitChain::Extraction usual) {
        return cut == Cut::UNITS ? usual : UnitChain::Extraction::NONE;
    };
    // In the order of the roles, as the receiver pairs its outputs.
    if (selection.videoPid != 0) {
        addStream("video", OrvPlayer::PID_TYPE_VIDEO, selection.videoPid,
                  extraction(UnitChain::Extraction::H264));
    }
    if (selection.audioPid != 0) {
        addStream("audio", OrvPlayer::PID_TYPE_AUDIO, selection.audioPid,
                  extraction(audioExtraction(selection.audioKind)));
    }
    if (selection.captionPid != 0) {
        addStream("captions", OrvPlayer::PID_TYPE_CLOSED_CAPTION, selection.captionPid,
                  cut == Cut::PES ? UnitChain::Extraction::NONE : UnitChain::Extraction::CAPTIONS);
    }
}

void UnitFlow::addStream(const char* name, OrvPlayer::TSReceiverPIDType role, uint16_t pid,
                         UnitChain::Extraction extraction) {
    mStreams.push_back(std::make_unique<Stream>());
    Stream& stream = *mStreams.back();
    stream.name = name;
    stream.role = role;
    stream.pid = pid;
    stream.chain = std::make_unique<UnitChain>(
        role, extraction, [this, &stream](const Unit& unit) { return mSink(stream, unit); });
}

UnitFlow::End UnitFlow::run(const std::function<void()>& progress) {
    if (!open()) {
        return End::NO_MEMORY;
    }
    const End end = work(progress);
    mReceiver->stop();
    return end;
}

bool UnitFlow::open() {
    mReceiver = new OrvPlayer::TSReceiver;
    std::map<OrvPlayer::TSReceiverPIDType, unsigned short> pids;
    for (const auto& stream : mStreams) {
        if (!stream->chain->open()) {
            return false;
        }
        mReceiver->addOutput(stream->chain->input(), nullptr);
        pids[stream->role] = stream->pid;
    }
    return mReceiver->configure(pids) == 0 && mReceiver->open() == 0;
}

UnitFlow::End UnitFlow::work(const std::function<void()>& progress) {
    orvhost::Tuner& tuner = orvhost::Tuner::instance();
    int passes = 0;
    bool ended = false;
    while (!ended) {
        if (Interrupt::requested()) {
            return End::INTERRUPTED;
        }
        ended = tuner.atEnd() && tuner.demultiplexer().isDrained();
        if (!ended) {
            mReceiver->receivePass();
        }
        for (const auto& stream : mStreams) {
            if (const End end = workOff(*stream); end != End::WORKED_OFF) {
                return end;
            }
        }
        if (++passes % PASSES_PER_LOOK == 0) {
            progress();
        }
    }
    return End::WORKED_OFF;
}

// WORKED_OFF: as far as it was received.
UnitFlow::End UnitFlow::workOff(Stream& stream) {
    switch (stream.chain->workOff()) {
        case UnitChain::State::SCRAMBLED:
            mScrambledPid = stream.pid;
            return End::SCRAMBLED;
        case UnitChain::State::SINK_CLOSED:
            return End::NO_MORE_WANTED;
        default:
            return End::WORKED_OFF;
    }
}

}  // namespace orvplay
