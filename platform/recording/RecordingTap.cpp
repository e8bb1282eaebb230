#include "recording/RecordingTap.h"

#include <algorithm>
#include <utility>

namespace orvhost {

namespace {

// By the programme's clock, and by ours where it has none.
constexpr int64_t TABLES_EVERY = PCR_HZ / 5;
constexpr int64_t TABLES_AT_LEAST_NS = 300'000'000;

constexpr size_t MAX_STREAMS = 255;

// Whether a stream consists of PES packets.
bool isPes(const ElementaryStream& stream) {
    return stream.kind != StreamKind::Unknown;
}

size_t payloadOffset(const uint8_t* packet) {
    const bool hasField = (packet[3] & 0x20) != 0;
    return std::min<size_t>(hasField ? 5u + packet[4] : 4u, TS_PACKET_BYTES);
}

}  // namespace

RecordingTap::RecordingTap(TunedProgramme programme, uint16_t videoPid, PacketQueue& queue,
                           HostClock& clock)
    : mQueue(queue),
      mClock(clock),
      mTables(std::move(programme)),
      mWantedVideoPid(videoPid),
      mDeadlineNs(clock.nowNs() + START_WAIT_NS) {
    followStreams();
}

// After a new PMT: a stream that stays keeps its state.
void RecordingTap::followStreams() {
    const auto& listed = mTables.service().streams;
    std::vector<Stream> streams;
    for (const ElementaryStream& stream : listed) {
        if (isPes(stream) && !mTables.isTable(stream.pid) && streams.size() < MAX_STREAMS) {
            const uint8_t known = mStreamOf[stream.pid];
            streams.push_back(known != 0 ? mStreams[known - 1u] : Stream{stream.pid});
        }
    }
    mStreams = std::move(streams);
    mStreamOf.fill(0);
    for (size_t i = 0; i < mStreams.size(); ++i) {
        mStreamOf[mStreams[i].pid] = static_cast<uint8_t>(i + 1);
    }
    const ElementaryStream* video = nullptr;
    for (const ElementaryStream& stream : listed) {
        if (stream.kind == StreamKind::Video &&
            (video == nullptr || stream.pid == mWantedVideoPid)) {
            video = &stream;
        }
    }
    mVideoPid = video == nullptr ? PID_NONE : video->pid;
    if (mPhase == Phase::Doubtful) {
        goOnWaiting();
    }
    if (video != nullptr) {
        mPictureStart.emplace(video->streamType);
    }
}

// ---- packets ---------------------------------------------------------------------------------

bool RecordingTap::onPacket(const uint8_t* packet) {
    const uint16_t pid = pidOf(packet);
    if (mTables.isTable(pid)) {
        const bool changed = mTables.push(packet);
        if (changed) {
            followStreams();
            mTablesDue = true;
        }
        return changed;
    }
    if (mPhase != Phase::Begun) {
        lookForStart(pid, packet);
    }
    if (mPhase != Phase::Waiting) {
        take(pid, packet);
        if (mPhase == Phase::Doubtful && mLost.load(std::memory_order_relaxed) != 0) {
            begin();  // more than the queue holds: it has to be written
        }
    }
    return false;
}

void RecordingTap::lookForStart(uint16_t pid, const uint8_t* packet) {
    if (mVideoPid == PID_NONE) {
        begin();
    } else if (pid == mVideoPid && startsUnit(packet)) {
        goOnWaiting();  // a picture that was not told yet is none
        settle(mPictureStart->begin(packet));
    } else if (pid == mVideoPid && mPhase == Phase::Doubtful) {
        settle(mPictureStart->next(packet));
    }
}

void RecordingTap::settle(PictureStart::Verdict verdict) {
    switch (verdict) {
        case PictureStart::Verdict::Yes:
            begin();
            break;
        case PictureStart::Verdict::No:
            goOnWaiting();
            break;
        case PictureStart::Verdict::Undecided:
            mTablesDue = mTablesDue || mPhase == Phase::Waiting;
            mPhase = Phase::Doubtful;
            break;
    }
}

void RecordingTap::goOnWaiting() {
    mQueue.rollBack();
    mPhase = Phase::Waiting;
    mTablesPcr = -1;
    for (Stream& stream : mStreams) {
        stream.begun = false;
        stream.open = false;
    }
}

void RecordingTap::begin() {
    mTablesDue = mTablesDue || mPhase == Phase::Waiting;
    mPhase = Phase::Begun;
}

// The end of a PES packet whose start is not there is of no use; a clock is.
bool RecordingTap::isOfUnit(uint16_t pid, const uint8_t* packet) {
    const uint8_t stream = mStreamOf[pid];
    if (stream == 0 || mStreams[stream - 1u].begun) {
        return true;
    }
    const bool begins = startsUnit(packet) && !hasTransportError(packet);
    mStreams[stream - 1u].begun = begins;
    return begins || (pid == mTables.service().pcrPid && hasPcr(packet));
}

void RecordingTap::take(uint16_t pid, const uint8_t* packet) {
    if (!isOfUnit(pid, packet)) {
        return;
    }
    if (pid == mTables.service().pcrPid && hasPcr(packet)) {
        const int64_t pcr = pcrOf(packet);
        if (mTablesDue || mTablesPcr < 0 || pcrDistance(mTablesPcr, pcr) >= TABLES_EVERY) {
            mTablesPcr = pcr;
            mTablesDue = true;
        }
    }
    if (mTablesDue) {
        putTables();
    }
    const uint64_t offset = mQueue.pushedBytes();
    const bool isThere = put(packet);
    if (const uint8_t stream = mStreamOf[pid]; stream != 0) {
        Stream& of = mStreams[stream - 1u];
        if (isThere) {
            trackUnit(of, packet, offset);
        } else {
            of.open = false;
        }
    }
}

bool RecordingTap::put(const uint8_t* packet) {
    if (mQueue.push(packet)) {
        return true;
    }
    mLost.fetch_add(1, std::memory_order_relaxed);
    return false;
}

void RecordingTap::putTables() {
    mTablesDue = false;
    mTablesNs = 0;
    const std::vector<uint8_t>& packets = mTables.nextPackets();
    for (size_t at = 0; at < packets.size(); at += TS_PACKET_BYTES) {
        put(packets.data() + at);
    }
}

// PES_packet_length, ISO/IEC 13818-1 2.4.3.7: what follows the six bytes that end with it; 0, of
// video alone, tells nothing.
void RecordingTap::trackUnit(Stream& stream, const uint8_t* packet, uint64_t offset) {
    if (!hasPayload(packet) || hasTransportError(packet)) {
        return;
    }
    const size_t at = payloadOffset(packet);
    const auto payload = static_cast<uint32_t>(TS_PACKET_BYTES - at);
    if (startsUnit(packet)) {
        const uint32_t length =
            payload < 6 ? 0 : static_cast<uint32_t>(packet[at + 4] << 8 | packet[at + 5]);
        stream.start = offset;
        stream.bytesLeft = length == 0 ? 0 : length + 6;
        stream.open = true;
    }
    if (stream.open && stream.bytesLeft > 0) {
        stream.open = stream.bytesLeft > payload;
        stream.bytesLeft -= std::min(stream.bytesLeft, payload);
    }
}

std::vector<RecordingTap::OpenUnit> RecordingTap::openUnits() const {
    std::vector<OpenUnit> units;
    for (const Stream& stream : mStreams) {
        if (stream.open) {
            units.push_back({stream.pid, stream.start});
        }
    }
    return units;
}

std::vector<uint16_t> RecordingTap::soundPids() const {
    std::vector<uint16_t> pids;
    for (const ElementaryStream& stream : mTables.service().streams) {
        const bool isSound = stream.kind == StreamKind::AudioLatm ||
                             stream.kind == StreamKind::AudioAdts ||
                             stream.kind == StreamKind::AudioMpeg;
        if (isSound && mStreamOf[stream.pid] != 0) {
            pids.push_back(stream.pid);
        }
    }
    return pids;
}

// ---- batches ---------------------------------------------------------------------------------

void RecordingTap::onBatchEnd() {
    const int64_t nowNs = mClock.nowNs();
    if (mPhase != Phase::Begun && nowNs >= mDeadlineNs) {
        begin();
    }
    if (mPhase != Phase::Begun) {
        return;
    }
    if (mTablesNs == 0) {
        mTablesNs = nowNs;
    } else if (nowNs - mTablesNs >= TABLES_AT_LEAST_NS) {
        mTablesDue = true;
    }
    mQueue.publish();
}

void RecordingTap::onSourceLeft() {
    mSourceLeft.store(true, std::memory_order_release);
    mQueue.wake();
}

}  // namespace orvhost
