#include "mksample/TsMuxer.h"

#include <algorithm>
#include <cstdio>

namespace mksample {
namespace {

constexpr int64_t kClock = 27'000'000;
constexpr int64_t kTicksPer90k = 300;
constexpr int64_t kPacketBits = kTsPacketSize * 8;
// A PCR tells the time of the last bit of its base, in the packet's eleventh byte.
constexpr int64_t kPcrBits = 11 * 8;
constexpr int64_t kPcrPeriod27M = kClock / 40;

constexpr int64_t kStampModulo = int64_t{1} << 33;
constexpr int64_t kPcrModulo = kStampModulo * kTicksPer90k;

// What a cut does: this much content is missing, counters are ahead by more than one, and the
// clock is back by 7 h 20 min.
constexpr int64_t kCutSkip27M = kClock * 14 / 10;
constexpr uint8_t kCutCounterJump = 5;
constexpr int64_t kCutStampJump90k = -int64_t{440} * 60 * 90000;

constexpr int64_t kProgressPackets = 2048;

uint8_t advance(uint8_t* counter) {
    const uint8_t value = *counter;
    *counter = (*counter + 1) & 0x0F;
    return value;
}

void jump(uint8_t* counter) {
    *counter = (*counter + kCutCounterJump) & 0x0F;
}

uint64_t modulo(int64_t value, int64_t modulus) {
    const int64_t rest = value % modulus;
    return static_cast<uint64_t>(rest < 0 ? rest + modulus : rest);
}

}  // namespace

TsMuxer::TsMuxer(const MuxSettings& settings, PacketSink& sink)
    : mSettings(settings), mSink(sink) {}

void TsMuxer::addStream(uint16_t pid, uint8_t streamId, PesSource& source, int64_t lead90k,
                        int64_t peakRate) {
    Stream stream{};
    stream.pid = pid;
    stream.streamId = streamId;
    stream.source = &source;
    stream.lead90k = lead90k;
    stream.packetGap27M = peakRate > 0 ? kPacketBits * kClock / peakRate : 0;
    stream.earliest27M = INT64_MIN;
    mStreams.push_back(std::move(stream));
}

void TsMuxer::addTable(const Table& table) {
    TableState state{};
    state.table = table;
    state.nextDue27M = INT64_MIN;
    packetize(&state);
    state.period27M = kClock / 1000 * table.periodMs;
    mTables.push_back(std::move(state));
}

void TsMuxer::packetize(TableState* state) {
    state->packets.clear();
    for (const auto& section : state->table.sections) {
        const auto packets = sectionPackets(state->table.pid, section);
        state->packets.insert(state->packets.end(), packets.begin(), packets.end());
    }
}

void TsMuxer::addPcrPid(uint16_t pid) {
    mPcrs.push_back({pid});
}

int64_t TsMuxer::elapsed27M(int64_t extraBits) const {
    const int64_t bits = mPacketsSent * kPacketBits + extraBits;
    return bits / mSettings.rate * kClock + bits % mSettings.rate * kClock / mSettings.rate;
}

uint64_t TsMuxer::stamp90k(int64_t time90k) const {
    return modulo(static_cast<int64_t>(mSettings.startPts) + mStampOffset90k + time90k,
                  kStampModulo);
}

uint64_t TsMuxer::pcr27M() const {
    const int64_t origin90k = static_cast<int64_t>(mSettings.startPts) + mStampOffset90k;
    return modulo(origin90k * kTicksPer90k + mBase27M + elapsed27M(kPcrBits), kPcrModulo);
}

void TsMuxer::fetch(Stream& stream) {
    stream.hasUnit = stream.source->next(&stream.unit);
    stream.sent = 0;
}

TsMuxer::Stream* TsMuxer::streamOf(uint16_t pid) {
    const auto found = std::find_if(mStreams.begin(), mStreams.end(),
                                    [pid](const Stream& stream) { return stream.pid == pid; });
    return found == mStreams.end() ? nullptr : &*found;
}

// The released stream with the earliest decoding time, or null.
TsMuxer::Stream* TsMuxer::chooseStream(int64_t now27M) {
    Stream* best = nullptr;
    for (Stream& stream : mStreams) {
        const bool released =
            stream.hasUnit && stream.earliest27M <= now27M &&
            (stream.sent > 0 || (stream.unit.due - stream.lead90k) * kTicksPer90k <= now27M);
        if (released && (best == nullptr || stream.unit.due < best->unit.due)) {
            best = &stream;
        }
    }
    return best;
}

void TsMuxer::sendStream(Stream& stream, int64_t now27M, bool withPcr) {
    if (now27M > stream.unit.due * kTicksPer90k) {
        char text[160];
        std::snprintf(text, sizeof(text),
                      "PID 0x%X comes too late %.2f s into the stream: raise --mux-rate or lower "
                      "the bit rates",
                      static_cast<unsigned>(stream.pid),
                      static_cast<double>(now27M) / static_cast<double>(kClock));
        throw Failure(text);
    }
    const bool start = stream.sent == 0;
    PesUnit& unit = stream.unit;
    if (start) {
        // Video packets hold exactly one access unit; audio packets promise nothing.
        const bool aligned = (stream.streamId & 0xF0) == 0xE0;
        const auto header = pesHeader(stream.streamId, stamp90k(unit.pts), stamp90k(unit.dts),
                                      aligned, unit.payload.size());
        unit.payload.insert(unit.payload.begin(), header.begin(), header.end());
    }
    TsPacketFields fields;
    fields.pid = stream.pid;
    fields.continuityCounter = advance(&stream.counter);
    fields.unitStart = start;
    fields.randomAccess = start && unit.randomAccess;
    if (withPcr) {
        fields.pcr27M = pcr27M();
    }
    TsPacket packet;
    stream.sent += buildTsPacket(fields, unit.payload.data() + stream.sent,
                                 unit.payload.size() - stream.sent, &packet);
    mSink.write(packet);
    stream.earliest27M = now27M + stream.packetGap27M;
    if (stream.sent == unit.payload.size()) {
        if (!unit.caption.empty()) {
            mSink.captionWritten(stamp90k(unit.pts), unit.caption);
        }
        fetch(stream);
    }
}

bool TsMuxer::sendPcr(int64_t now27M) {
    for (PcrState& pcr : mPcrs) {
        if (now27M < pcr.nextDue27M) {
            continue;
        }
        pcr.nextDue27M = now27M + kPcrPeriod27M;
        Stream* stream = streamOf(pcr.pid);
        if (stream != nullptr && stream == chooseStream(now27M)) {
            sendStream(*stream, now27M, true);
            return true;
        }
        TsPacketFields fields;
        fields.pid = pcr.pid;
        // A packet without payload repeats the counter of the last one with payload.
        fields.continuityCounter = stream != nullptr ? (stream->counter + 15) & 0x0F : pcr.counter;
        fields.pcr27M = pcr27M();
        TsPacket packet;
        buildTsPacket(fields, nullptr, 0, &packet);
        mSink.write(packet);
        return true;
    }
    return false;
}

bool TsMuxer::sendTable(int64_t now27M) {
    for (TableState& table : mTables) {
        if (table.nextPacket == 0 && now27M < table.nextDue27M) {
            continue;
        }
        if (table.nextPacket == 0) {
            table.nextDue27M = now27M + table.period27M;
            if (table.table.renew) {
                table.table.sections = table.table.renew(static_cast<double>(elapsed27M(0)) /
                                                         static_cast<double>(kClock));
                packetize(&table);
            }
        }
        TsPacket packet = table.packets[table.nextPacket];
        packet[3] = static_cast<uint8_t>((packet[3] & 0xF0) | advance(&table.counter));
        table.nextPacket = (table.nextPacket + 1) % table.packets.size();
        mSink.write(packet);
        return true;
    }
    return false;
}

void TsMuxer::cut(int64_t now27M) {
    mCutDone = true;
    mBase27M += kCutSkip27M;
    mStampOffset90k += kCutStampJump90k;
    const int64_t after27M = now27M + kCutSkip27M;
    for (Stream& stream : mStreams) {
        if (stream.hasUnit && stream.sent > 0) {
            fetch(stream);
        }
        while (stream.hasUnit && (stream.unit.due - stream.lead90k) * kTicksPer90k < after27M) {
            fetch(stream);
        }
        jump(&stream.counter);
        stream.earliest27M = INT64_MIN;
    }
    for (TableState& table : mTables) {
        table.nextPacket = 0;
        table.nextDue27M = INT64_MIN;
        jump(&table.counter);
    }
    for (PcrState& pcr : mPcrs) {
        pcr.nextDue27M = INT64_MIN;
        jump(&pcr.counter);
    }
}

void TsMuxer::run(const std::function<void(double)>& progress) {
    mBase27M = INT64_MAX;
    for (Stream& stream : mStreams) {
        fetch(stream);
        if (stream.hasUnit) {
            mBase27M = std::min(mBase27M, (stream.unit.due - stream.lead90k) * kTicksPer90k);
        }
    }
    const auto cutAt27M = static_cast<int64_t>(mSettings.cutAtS.value_or(0.0) * kClock);
    while (std::any_of(mStreams.begin(), mStreams.end(),
                       [](const Stream& stream) { return stream.hasUnit; })) {
        if (mSettings.cutAtS && !mCutDone && elapsed27M(0) >= cutAt27M) {
            cut(mBase27M + elapsed27M(0));
        }
        const int64_t now27M = mBase27M + elapsed27M(0);
        if (!sendPcr(now27M) && !sendTable(now27M)) {
            Stream* stream = chooseStream(now27M);
            if (stream != nullptr) {
                sendStream(*stream, now27M, false);
            } else {
                mSink.write(mNull);
            }
        }
        ++mPacketsSent;
        if (mPacketsSent % kProgressPackets == 0) {
            progress(static_cast<double>(now27M) / static_cast<double>(kClock));
        }
    }
}

}  // namespace mksample
