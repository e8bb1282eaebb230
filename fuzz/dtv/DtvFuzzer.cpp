// Arbitrary bytes as a source: through packet search, counting, pacing, tables and filters. The
// first byte chooses between the bytes as they are and the bytes as bodies of sections with a good
// CRC, which chance alone would hardly make.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "dtv/Demultiplexer.h"
#include "dtv/EventTables.h"
#include "dtv/PacketCounter.h"
#include "dtv/PacketWindow.h"
#include "dtv/PcrPacer.h"
#include "dtv/ServiceTables.h"
#include "support/TsBuilder.h"

namespace {

using orvhost::TS_PACKET_BYTES;

class MemorySource : public orvhost::ByteSource {
public:
    explicit MemorySource(const orvtest::Bytes& bytes) : mBytes(bytes) {}

    ssize_t read(uint8_t* data, size_t size, int) override {
        const size_t n = std::min(size, mBytes.size() - mAt);
        std::copy_n(mBytes.begin() + static_cast<std::ptrdiff_t>(mAt), n, data);
        mAt += n;
        return static_cast<ssize_t>(n);
    }
    bool rewind() override { return false; }
    bool seek(uint64_t) override { return false; }
    int duplicate() const override { return -1; }
    void interrupt() override {}

private:
    const orvtest::Bytes& mBytes;
    size_t mAt = 0;
};

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Each section: where it goes, its extension, its length, its body.
orvtest::Bytes asSections(const uint8_t* data, size_t size) {
    static constexpr struct {
        unsigned pid;
        uint8_t tableId;
    } TABLES[] = {{0, 0x00},    {0x100, 0x02}, {0x1FC8, 0x02}, {0x10, 0x40}, {0x11, 0x42},
                  {0x11, 0x46}, {0x12, 0x4E},  {0x27, 0x4E},   {0x14, 0x73}, {0x14, 0x70}};
    orvtest::TsBuilder builder;
    builder.section(0, orvtest::pat({{1, 0x100}}));
    size_t at = 0;
    while (size - at >= 4) {
        const auto& table = TABLES[data[at] % std::size(TABLES)];
        const size_t length = std::min<size_t>(size - at - 4, data[at + 2] << 2);
        const orvtest::Bytes body(data + at + 4, data + at + 4 + length);
        builder.section(table.pid,
                        orvtest::section(table.tableId, data[at + 1] & 7, body, data[at + 3] & 31));
        at += 4 + length;
    }
    return builder.build();
}

void run(const orvtest::Bytes& bytes, size_t slice) {
    MemorySource source(bytes);
    orvhost::PacketWindow window;
    orvhost::PacketCounter counter;
    orvhost::ServiceTables tables;
    orvhost::EventTables events;
    orvhost::PcrPacer pacer;
    // Kept over the runs: its queues are large.
    static orvhost::Demultiplexer demultiplexer;
    static const int pcr = demultiplexer.startFiltering(0x100, DEMUX_FILTER_PCR);
    static const int pes = demultiplexer.startFiltering(0x100, DEMUX_FILTER_PES);
    demultiplexer.flush();
    int64_t nowNs = 0;
    uint8_t out[TS_PACKET_BYTES * 8];
    ssize_t got = 1;
    while (got > 0) {
        got = window.fill(source, slice, 0);
        const uint8_t* packet = window.fresh();
        for (size_t i = 0; i < window.freshCount(); ++i, packet += TS_PACKET_BYTES) {
            require(packet[0] == orvhost::TS_SYNC_BYTE);
            counter.count(packet);
            if (tables.wants(orvhost::pidOf(packet))) {
                tables.push(packet);
            }
            if (orvhost::EventTables::wants(orvhost::pidOf(packet))) {
                events.push(packet);
            }
        }
        pacer.add(window.fresh(), window.freshCount());
        nowNs += 20'000'000;
        const size_t due = pacer.takeDue(nowNs);
        require(due <= window.count() && pacer.bufferedNs() >= 0);
        demultiplexer.feedLive(window.packets(), due);
        window.release(due);
        for (int handle : {pcr, pes}) {
            const int n = demultiplexer.readData(handle, out, sizeof(out));
            require(n >= 0 && n % static_cast<int>(TS_PACKET_BYTES) == 0);
        }
    }
    // What is left comes due at a bounded rate: the feed never stalls on what a stream says.
    pacer.finish();
    for (int i = 0; window.count() > 0; ++i) {
        require(i < 1'000'000);
        nowNs += 400'000'000;
        window.release(pacer.takeDue(nowNs));
    }
    tables.services();
    orvhost::BroadcastInformation information;
    tables.addTo(&information);
    events.addTo(&information);
    require(information.events.size() <= 512 && information.oneSegment.size() <= 64);
    counter.pids();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    const size_t slice = (data[0] >> 1) * 64 + 1;
    run(data[0] & 1 ? asSections(data + 1, size - 1) : orvtest::Bytes(data + 1, data + size),
        slice);
    return 0;
}
