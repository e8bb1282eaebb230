#include "damage/TsDamage.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

#include "damage/PacketView.h"

namespace orvtest {

namespace {

constexpr size_t PES_HEADER_BYTES = 9;
constexpr size_t PMT_FIXED_BYTES = 12;  // up to program_info_length

// The payload loses its first `bytes`; stuffing in the adaptation field takes their place.
void dropPayloadHead(uint8_t* packet, size_t bytes) {
    const size_t start = payloadOf(packet);
    if (start + bytes > PACKET_BYTES || bytes == 0) {
        return;
    }
    if ((packet[3] & HAS_FIELD) == 0) {
        packet[3] |= HAS_FIELD;
        std::memset(packet + 4, 0xFF, bytes);
        packet[4] = static_cast<uint8_t>(bytes - 1);
        if (bytes > 1) {
            packet[5] = 0;  // no flags
        }
        return;
    }
    std::memset(packet + start, 0xFF, bytes);
    if (packet[4] == 0) {
        packet[5] = 0;
    }
    packet[4] = static_cast<uint8_t>(packet[4] + bytes);
}

uint32_t tableCrc(const uint8_t* data, size_t bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < bytes; ++i) {
        crc ^= uint32_t{data[i]} << 24;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80000000) != 0 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
        }
    }
    return crc;
}

// A PMT section at the start of a payload becomes one without streams.
void emptyPmt(uint8_t* payload, size_t bytes) {
    uint8_t* section = payload + 1 + payload[0];
    if (payload[0] + 1 + PMT_FIXED_BYTES + 4 > bytes || section[0] != 0x02) {
        return;
    }
    const size_t infoBytes = (section[10] & 0x0FU) << 8 | section[11];
    const size_t end = PMT_FIXED_BYTES + infoBytes;
    if (payload[0] + 1 + end + 4 > bytes) {
        return;
    }
    const size_t length = end + 4 - 3;
    section[1] = static_cast<uint8_t>((section[1] & 0xF0) | length >> 8);
    section[2] = static_cast<uint8_t>(length);
    const uint32_t crc = tableCrc(section, end);
    for (size_t i = 0; i < 4; ++i) {
        section[end + i] = static_cast<uint8_t>(crc >> (24 - 8 * i));
    }
    std::memset(section + end + 4, 0xFF, static_cast<size_t>(payload + bytes - section) - end - 4);
}

constexpr int64_t WRAP_90K = int64_t{1} << 33;
constexpr int64_t PER_90K = 300;  // ticks of 27 MHz
constexpr int64_t TICKS_PER_S = 27'000'000;

int64_t wrapped(int64_t value, int64_t wrap) {
    return (value % wrap + wrap) % wrap;
}

int64_t readPcr(const uint8_t* field) {
    const int64_t base = int64_t{field[0]} << 25 | int64_t{field[1]} << 17 |
                         int64_t{field[2]} << 9 | int64_t{field[3]} << 1 | field[4] >> 7;
    return base * PER_90K + ((field[4] & 1) << 8 | field[5]);
}

void writePcr(uint8_t* field, int64_t ticks27M) {
    const int64_t pcr = wrapped(ticks27M, WRAP_90K * PER_90K);
    const int64_t base = pcr / PER_90K;
    const int64_t extension = pcr % PER_90K;
    for (int i = 0; i < 4; ++i) {
        field[i] = static_cast<uint8_t>(base >> (25 - 8 * i));
    }
    field[4] = static_cast<uint8_t>((base & 1) << 7 | 0x7E | extension >> 8);
    field[5] = static_cast<uint8_t>(extension);
}

int64_t readStamp(const uint8_t* b) {
    return int64_t{b[0] & 0x0E} << 29 | int64_t{b[1]} << 22 | int64_t{b[2] & 0xFE} << 14 |
           int64_t{b[3]} << 7 | b[4] >> 1;
}

void writeStamp(uint8_t* b, int64_t ticks90k) {
    const int64_t stamp = wrapped(ticks90k, WRAP_90K);
    b[0] = static_cast<uint8_t>((b[0] & 0xF0) | (stamp >> 29 & 0x0E) | 1);
    b[1] = static_cast<uint8_t>(stamp >> 22);
    b[2] = static_cast<uint8_t>((stamp >> 14 & 0xFE) | 1);
    b[3] = static_cast<uint8_t>(stamp >> 7);
    b[4] = static_cast<uint8_t>((stamp << 1 & 0xFE) | 1);
}

// The time stamps of a PES packet that begins here: none, the PTS, or PTS and DTS. *header is where
// the PES header begins.
size_t stampsOf(const uint8_t* packet, size_t* header) {
    *header = payloadOf(packet);
    const uint8_t* pes = packet + *header;
    if (!startsUnit(packet) || *header + PES_HEADER_BYTES + 10 > PACKET_BYTES || pes[0] != 0 ||
        pes[1] != 0 || pes[2] != 1 || pes[3] < 0xBD || (pes[6] & 0xC0) != 0x80) {
        return 0;
    }
    return (pes[7] & 0x80) == 0 ? 0 : (pes[7] & 0x40) == 0 ? 1 : 2;
}

// How long a packet takes, by the PCRs of the first PID that has some. Jumps do not count.
double packetSeconds(const std::vector<uint8_t>& bytes) {
    int pid = -1;
    size_t lastAt = 0;
    int64_t last = 0;
    int64_t ticks = 0;
    size_t packets = 0;
    for (size_t at = 0; at + PACKET_BYTES <= bytes.size(); at += PACKET_BYTES) {
        const uint8_t* packet = bytes.data() + at;
        if (!hasPcr(packet) || (pid >= 0 && pidOf(packet) != pid)) {
            continue;
        }
        const int64_t pcr = readPcr(packet + 6);
        if (pid >= 0 && pcr > last && pcr - last < TICKS_PER_S) {
            ticks += pcr - last;
            packets += (at - lastAt) / PACKET_BYTES;
        }
        pid = pidOf(packet);
        last = pcr;
        lastAt = at;
    }
    return packets == 0 ? 0.0
                        : static_cast<double>(ticks) / TICKS_PER_S / static_cast<double>(packets);
}

}  // namespace

TsDamage::TsDamage(std::vector<uint8_t> stream, uint64_t seed)
    : mBytes(std::move(stream)), mRandom(seed) {
    mBytes.resize(mBytes.size() / PACKET_BYTES * PACKET_BYTES);
    for (size_t i = 0; i < count(); ++i) {
        mRemnants.push_back({i, i * PACKET_BYTES});
    }
    mPacketS = packetSeconds(mBytes);
}

size_t TsDamage::count() const {
    return mBytes.size() / PACKET_BYTES;
}

TsDamage::Packet TsDamage::packet(size_t index) {
    return mBytes.data() + index * PACKET_BYTES;
}

bool TsDamage::chance(double rate) {
    return std::uniform_real_distribution<double>()(mRandom) < rate;
}

void TsDamage::forEach(uint16_t pid, const std::function<void(Packet)>& change) {
    for (size_t i = 0; i < count(); ++i) {
        if (pidOf(packet(i)) == pid) {
            change(packet(i));
        }
    }
}

void TsDamage::keepIf(const std::function<bool(size_t, Packet)>& keep) {
    multiply([&keep](size_t index, Packet p) { return keep(index, p) ? 1 : 0; });
}

void TsDamage::multiply(const std::function<int(size_t, Packet)>& copies) {
    std::vector<uint8_t> bytes;
    std::vector<Remnant> remnants;
    bytes.reserve(mBytes.size());
    for (size_t i = 0; i < count(); ++i) {
        for (int left = copies(i, packet(i)); left > 0; --left) {
            remnants.push_back({mRemnants[i].origin, bytes.size()});
            bytes.insert(bytes.end(), packet(i), packet(i) + PACKET_BYTES);
        }
    }
    mBytes = std::move(bytes);
    mRemnants = std::move(remnants);
}

bool TsDamage::isInside(size_t index, double from, double to) const {
    const double part = static_cast<double>(index) / static_cast<double>(count());
    return part >= from && part < to;
}

void TsDamage::flipBits(double ratePerBit) {
    flipBits(0, mBytes.size() * 8, ratePerBit);
}

void TsDamage::flipBits(size_t firstBit, size_t endBit, double ratePerBit) {
    if (ratePerBit <= 0.0) {
        return;
    }
    std::geometric_distribution<uint64_t> gap(ratePerBit);
    for (uint64_t bit = firstBit + gap(mRandom); bit < endBit; bit += gap(mRandom) + 1) {
        mBytes[bit / 8] = static_cast<uint8_t>(mBytes[bit / 8] ^ 1U << bit % 8);
    }
}

void TsDamage::losePart(double from, double to) {
    keepIf([=, this](size_t index, Packet) { return !isInside(index, from, to); });
}

void TsDamage::losePart(double from, double to, uint16_t pid) {
    keepIf([=, this](size_t index, Packet p) {
        return pidOf(p) != pid || !isInside(index, from, to);
    });
}

double TsDamage::timeOf(size_t index) const {
    return static_cast<double>(mRemnants[index].origin) * mPacketS;
}

void TsDamage::loseSpan(double fromS, double lengthS) {
    keepIf([=, this](size_t index, Packet) {
        const double time = timeOf(index);
        return time < fromS || time >= fromS + lengthS;
    });
}

void TsDamage::corruptPart(double from, double to, double ratePerBit) {
    const auto bits = static_cast<double>(mBytes.size() * 8);
    flipBits(static_cast<size_t>(bits * from), static_cast<size_t>(bits * to), ratePerBit);
}

void TsDamage::losePackets(double rate) {
    keepIf([this, rate](size_t, Packet) { return !chance(rate); });
}

void TsDamage::loseBursts(size_t packets, size_t bursts) {
    const size_t distance = count() / (bursts + 1);
    keepIf([=](size_t index, Packet) {
        return distance == 0 || index < distance || index % distance >= packets;
    });
}

void TsDamage::setTransportErrors(double rate) {
    for (size_t i = 0; i < count(); ++i) {
        packet(i)[1] |= chance(rate) ? 0x80 : 0;
    }
}

void TsDamage::setScramblingBits(double rate) {
    for (size_t i = 0; i < count(); ++i) {
        packet(i)[3] |= chance(rate) ? 0x80 : 0;
    }
}

void TsDamage::swapNeighbours(double rate) {
    for (size_t i = 0; i + 1 < count(); ++i) {
        if (chance(rate)) {
            std::swap_ranges(packet(i), packet(i) + PACKET_BYTES, packet(i + 1));
            std::swap(mRemnants[i].origin, mRemnants[i + 1].origin);
        }
    }
}

void TsDamage::duplicatePackets(double rate) {
    multiply([this, rate](size_t, Packet) { return chance(rate) ? 2 : 1; });
}

void TsDamage::slip(double at, size_t bytes) {
    const size_t begin =
        std::min(static_cast<size_t>(static_cast<double>(mBytes.size()) * at), mBytes.size());
    const size_t end = std::min(begin + bytes, mBytes.size());
    mBytes.erase(mBytes.begin() + static_cast<ptrdiff_t>(begin),
                 mBytes.begin() + static_cast<ptrdiff_t>(end));
    std::erase_if(mRemnants, [begin, end](const Remnant& remnant) {
        return remnant.offset < end && remnant.offset + PACKET_BYTES > begin;
    });
    for (Remnant& remnant : mRemnants) {
        remnant.offset -= remnant.offset >= end ? end - begin : 0;
    }
}

void TsDamage::slipBytes(size_t slips) {
    std::uniform_int_distribution<size_t> lost(1, PACKET_BYTES - 1);
    for (size_t left = slips; left > 0; --left) {
        slip(static_cast<double>(left) / static_cast<double>(slips + 1), lost(mRandom));
    }
}

void TsDamage::cutHead(size_t packets) {
    keepIf([packets](size_t index, Packet) { return index >= packets; });
}

void TsDamage::removePid(uint16_t pid) {
    keepIf([pid](size_t, Packet p) { return pidOf(p) != pid; });
}

void TsDamage::jumpPcr(int64_t ticks27M) {
    for (size_t i = count() / 2; i < count(); ++i) {
        if (hasPcr(packet(i))) {
            writePcr(packet(i) + 6, readPcr(packet(i) + 6) + ticks27M);
        }
    }
}

void TsDamage::jumpPcr(int64_t ticks27M, double fromS) {
    for (size_t i = 0; i < count(); ++i) {
        if (timeOf(i) >= fromS && hasPcr(packet(i))) {
            writePcr(packet(i) + 6, readPcr(packet(i) + 6) + ticks27M);
        }
    }
}

void TsDamage::forEachTime(const std::function<int64_t(int64_t)>& change) {
    for (size_t i = 0; i < count(); ++i) {
        Packet p = packet(i);
        if (hasPcr(p)) {
            writePcr(p + 6, change(readPcr(p + 6)));
        }
        size_t header = 0;
        const size_t stamps = stampsOf(p, &header);
        for (size_t stamp = 0; stamp < stamps; ++stamp) {
            uint8_t* const at = p + header + PES_HEADER_BYTES + 5 * stamp;
            writeStamp(at, change(readStamp(at) * PER_90K) / PER_90K);
        }
    }
}

void TsDamage::shiftTimes(int64_t ticks90k) {
    forEachTime([ticks90k](int64_t time) { return time + ticks90k * PER_90K; });
}

void TsDamage::skewClock(double ppm) {
    int64_t first = -1;
    forEachTime([ppm, &first](int64_t time) {
        first = first < 0 ? time : first;
        return time + static_cast<int64_t>(static_cast<double>(time - first) * ppm * 1e-6);
    });
}

void TsDamage::removePcrs(double from, double to) {
    for (size_t i = 0; i < count(); ++i) {
        if (isInside(i, from, to) && hasPcr(packet(i))) {
            packet(i)[5] = static_cast<uint8_t>(packet(i)[5] & ~0x10);
        }
    }
}

void TsDamage::removePts(uint16_t pid, double rate) {
    forEach(pid, [this, rate](Packet p) {
        size_t header = 0;
        if (stampsOf(p, &header) > 0 && chance(rate)) {
            p[header + 7] = static_cast<uint8_t>(p[header + 7] & ~0xC0);  // stuffing is left
        }
    });
}

void TsDamage::randomizePts(uint16_t pid, double rate) {
    forEach(pid, [this, rate](Packet p) {
        size_t header = 0;
        if (stampsOf(p, &header) > 0 && chance(rate)) {
            writeStamp(p + header + PES_HEADER_BYTES, static_cast<int64_t>(mRandom() >> 1));
        }
    });
}

void TsDamage::lieAboutPesLengths(uint16_t pid) {
    forEach(pid, [this](Packet p) {
        const size_t start = payloadOf(p);
        if (startsUnit(p) && start + PES_HEADER_BYTES <= PACKET_BYTES) {
            const uint64_t wrong = mRandom();
            p[start + 4] = static_cast<uint8_t>(wrong >> 8);
            p[start + 5] = static_cast<uint8_t>(wrong);
        }
    });
}

void TsDamage::setStreamId(uint16_t pid, uint8_t streamId) {
    forEach(pid, [streamId](Packet p) {
        const size_t start = payloadOf(p);
        if (startsUnit(p) && start + 4 <= PACKET_BYTES) {
            p[start + 3] = streamId;
        }
    });
}

void TsDamage::mergePesPackets(uint16_t pid) {
    bool second = true;
    forEach(pid, [&second](Packet p) {
        const size_t start = payloadOf(p);
        if (!startsUnit(p) || start + PES_HEADER_BYTES > PACKET_BYTES) {
            return;
        }
        second = !second;
        const size_t header = PES_HEADER_BYTES + p[start + 8];
        if (second && start + header <= PACKET_BYTES) {
            p[1] = static_cast<uint8_t>(p[1] & ~UNIT_START);
            dropPayloadHead(p, header);
        } else {
            p[start + 4] = 0;  // the length is open now
            p[start + 5] = 0;
        }
    });
}

void TsDamage::hideAccessUnitDelimiters(uint16_t pid) {
    static constexpr uint8_t DELIMITER[] = {0x00, 0x00, 0x01, 0x09};
    static constexpr uint8_t FILLER = 0x0C;
    forEach(pid, [](Packet p) {
        uint8_t* const end = p + PACKET_BYTES;
        uint8_t* at = p + payloadOf(p);
        while ((at = std::search(at, end, DELIMITER, DELIMITER + sizeof DELIMITER)) != end) {
            at[3] = FILLER;
            at += sizeof DELIMITER;
        }
    });
}

void TsDamage::emptyPmts() {
    std::set<uint16_t> pmtPids;
    forEach(0, [&pmtPids](Packet p) {
        const size_t start = payloadOf(p);
        if (!startsUnit(p) || start + 1 + p[start] + 8 > PACKET_BYTES) {
            return;
        }
        const uint8_t* section = p + start + 1 + p[start];
        const size_t length = (section[1] & 0x0FU) << 8 | section[2];
        const uint8_t* end = std::min<const uint8_t*>(section + 3 + length - 4, p + PACKET_BYTES);
        for (const uint8_t* entry = section + 8; entry + 4 <= end; entry += 4) {
            if (entry[0] != 0 || entry[1] != 0) {
                pmtPids.insert(static_cast<uint16_t>((entry[2] & 0x1F) << 8 | entry[3]));
            }
        }
    });
    for (const uint16_t pid : pmtPids) {
        forEach(pid, [](Packet p) {
            if (const size_t start = payloadOf(p); startsUnit(p) && start < PACKET_BYTES) {
                emptyPmt(p + start, PACKET_BYTES - start);
            }
        });
    }
}

void TsDamage::toTimestampedPackets() {
    std::vector<uint8_t> out;
    for (size_t i = 0; i < count(); ++i) {
        const auto time = static_cast<uint32_t>(i * 2700);
        for (int shift = 24; shift >= 0; shift -= 8) {
            out.push_back(static_cast<uint8_t>(time >> shift));
        }
        mRemnants[i].offset = out.size();
        out.insert(out.end(), packet(i), packet(i) + PACKET_BYTES);
    }
    mBytes = std::move(out);
}

void TsDamage::prependGarbage(size_t bytes) {
    std::vector<uint8_t> garbage(bytes);
    for (uint8_t& byte : garbage) {
        byte = static_cast<uint8_t>(mRandom());
        byte = byte == SYNC_BYTE ? 0 : byte;
    }
    mBytes.insert(mBytes.begin(), garbage.begin(), garbage.end());
    for (Remnant& remnant : mRemnants) {
        remnant.offset += bytes;
    }
}

}  // namespace orvtest
