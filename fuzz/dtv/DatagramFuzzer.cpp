// Arbitrary datagrams, one after the other, as a source takes them: what they hold, and the order
// of their numbers. Each is a length (one byte, times 8), the milliseconds since the last one, and
// its bytes.

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "dtv/TsPacket.h"
#include "dtv/network/DatagramContent.h"
#include "dtv/network/RtpReorder.h"

namespace {

using orvhost::DatagramContent;
using orvhost::RtpReorder;

constexpr int64_t MS = 1'000'000;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Everything that was kept comes out, in the order of its numbers as long as there is one sender.
void takeAll(RtpReorder& reorder, int64_t nowNs, std::vector<bool>* kept) {
    for (int packet = reorder.take(nowNs); packet != RtpReorder::NONE;
         packet = reorder.take(nowNs)) {
        const auto index = static_cast<size_t>(packet);
        require(index < kept->size() && (*kept)[index]);
        (*kept)[index] = false;
    }
    require(reorder.held() <= RtpReorder::WINDOW);
    require(reorder.deadlineNs(INT64_MAX) > nowNs);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RtpReorder reorder;
    std::vector<bool> kept;
    int64_t nowNs = MS;
    while (size >= 2) {
        nowNs += data[1] * MS;
        const size_t length = std::min<size_t>(data[0] * 8u, size - 2);
        std::vector<uint8_t> datagram(data + 2, data + 2 + length);
        data += 2 + length;
        size -= 2 + length;
        const DatagramContent content = DatagramContent::of(datagram.data(), datagram.size());
        require(content.begin + content.size <= datagram.size());
        uint8_t* const payload = datagram.data() + content.begin;
        const bool any = orvhost::hasPackets(payload, content.size);
        const size_t packets = orvhost::compactPackets(payload, content.size);
        require(any == (packets > 0) && packets * orvhost::TS_PACKET_BYTES <= content.size);
        for (size_t i = 0; i < packets; ++i) {
            require(payload[i * orvhost::TS_PACKET_BYTES] == orvhost::TS_SYNC_BYTE);
        }
        if (content.kind == DatagramContent::Kind::Rtp) {
            takeAll(reorder, nowNs, &kept);
            kept.push_back(true);
            kept.back() = reorder.offer(content.ssrc, content.number, nowNs,
                                        static_cast<int>(kept.size() - 1));
            takeAll(reorder, nowNs, &kept);
        }
    }
    takeAll(reorder, nowNs + RtpReorder::WAIT_NS, &kept);
    require(std::find(kept.begin(), kept.end(), true) == kept.end());
    return 0;
}
