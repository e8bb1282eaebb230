// A broadcast that is recorded, whatever is sent: packets, and tables with a good CRC, which chance
// alone would hardly make. What is recorded must be packets of the programme's PIDs under tables
// that can be read back.
//
// A sequence of steps, the first byte of each modulo 4 says which:
//   0   a packet: its PID's number in the programme, header byte 3, then its bytes
//   1   a PMT: the length of its body in two bytes, the body
//   2   a PAT: the same
//   3   the end of a batch, milliseconds later

#include <algorithm>
#include <cstdlib>

#include "dtv/Demultiplexer.h"
#include "recording/RecordingTap.h"
#include "support/TsBuilder.h"

namespace {

using orvtest::Bytes;
using orvtest::operator+;

void require(bool condition) {
    if (!condition) {
        abort();
    }
}

class StepClock : public orvhost::HostClock {
public:
    int64_t nowNs() override { return mNowNs; }
    void waitUntil(std::unique_lock<std::mutex>&, std::condition_variable&, int64_t) override {}

    int64_t mNowNs = 0;
};

class Input {
public:
    Input(const uint8_t* data, size_t size) : mAt(data), mLeft(size) {}

    bool isOver() const { return mLeft == 0; }
    uint8_t byte() { return mLeft == 0 ? 0 : (--mLeft, *mAt++); }
    Bytes bytes(size_t most) {
        const size_t size = std::min(most, mLeft);
        const Bytes taken(mAt, mAt + size);
        mAt += size;
        mLeft -= size;
        return taken;
    }
    Bytes sized() {
        const size_t high = byte();
        return bytes(std::min<size_t>(high << 8 | byte(), 1012));
    }

private:
    const uint8_t* mAt;
    size_t mLeft;
};

Bytes section(uint16_t pid, const Bytes& whole) {
    return orvtest::TsBuilder().section(pid, whole).build();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    orvhost::TunedProgramme programme;
    programme.pmt = input.sized();
    programme.service = orvhost::readPmt(1, 0x100, programme.pmt.data(), programme.pmt.size());
    StepClock clock;
    orvhost::PacketQueue queue(64);
    orvhost::RecordingTap tap(programme, 0x111, queue, clock);
    orvhost::Demultiplexer demultiplexer;
    require(demultiplexer.startTap(tap));
    uint64_t written = 0;
    while (!input.isOver()) {
        const auto& pids = tap.pids();
        require(pids.size() >= 2 && pids[0] == 0);
        Bytes fed;
        switch (input.byte() % 4) {
            case 0: {
                const uint16_t pid = pids[input.byte() % pids.size()];
                const uint8_t flags = input.byte();
                fed = Bytes{0x47, static_cast<uint8_t>((flags & 0xC0) | pid >> 8),
                            static_cast<uint8_t>(pid)} +
                      input.bytes(185);
                fed.resize(188);
                break;
            }
            case 1:
                fed = section(pids[1], orvtest::section(2, 1, input.sized()));
                break;
            case 2:
                fed = section(0, orvtest::section(0, 1, input.sized()));
                break;
            default:
                clock.mNowNs += input.byte() * int64_t{10'000'000};
                break;
        }
        demultiplexer.feedLive(fed.data(), fed.size() / 188);
        for (auto part = queue.wait(0, 64, 0); part.packets > 0; part = queue.wait(0, 64, 0)) {
            for (size_t i = 0; i < part.packets; ++i) {
                require(part.data[i * 188] == 0x47);
            }
            written += part.packets * 188;
            queue.release(part.packets);
        }
    }
    demultiplexer.stopTap(tap);
    require(written <= queue.pushedBytes());
    for (const auto& unit : tap.openUnits()) {
        require(unit.offset < queue.pushedBytes());
    }
    return 0;
}
