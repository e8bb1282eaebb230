#include "mksample/CaptionFraming.h"

extern "C" {
#include <libavutil/crc.h>
}

namespace mksample {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kSynchronizedPes = 0x80;  // data_identifier
constexpr uint8_t kPrivateStreamId = 0xFF;
constexpr uint8_t kGroupManagement = 0x00;  // data_group_id, set A
constexpr uint8_t kGroupFirstLanguage = 0x01;
constexpr uint8_t kUnitSeparator = 0x1F;
constexpr uint8_t kStatementBody = 0x20;

constexpr uint8_t kChosenByViewer = 0x0A;     // DMF, on air and from a recording
constexpr uint8_t kHorizontal960x540 = 0x08;  // format; 8-bit codes and no roll-up are 0
constexpr char kLanguage[] = "por";

void put16(size_t value, Bytes* out) {
    out->push_back(static_cast<uint8_t>(value >> 8));
    out->push_back(static_cast<uint8_t>(value));
}

void put24(size_t value, Bytes* out) {
    out->push_back(static_cast<uint8_t>(value >> 16));
    put16(value, out);
}

uint8_t timingByte(CaptionTiming timing) {
    return static_cast<uint8_t>(static_cast<unsigned>(timing) << 6 | 0x3F);
}

// STM: hours, minutes, seconds and milliseconds as nine decimal digits, and four reserved bits.
void putTime(int64_t timeMs, Bytes* out) {
    const int64_t seconds = timeMs / 1000;
    const int64_t digits = ((seconds / 3600 % 24 * 100 + seconds / 60 % 60) * 100 + seconds % 60);
    int64_t rest = digits * 1000 + timeMs % 1000;
    uint64_t coded = 0x0F;
    for (int shift = 4; shift < 40; shift += 4) {
        coded |= static_cast<uint64_t>(rest % 10) << shift;
        rest /= 10;
    }
    for (int shift = 32; shift >= 0; shift -= 8) {
        out->push_back(static_cast<uint8_t>(coded >> shift));
    }
}

Bytes pesPayload(uint8_t groupId, const Bytes& data, size_t privateBytes) {
    Bytes out;
    out.reserve(data.size() + privateBytes + 10);
    put16(kSynchronizedPes << 8 | kPrivateStreamId, &out);
    out.push_back(static_cast<uint8_t>(0xF0 | privateBytes));
    out.insert(out.end(), privateBytes, 0xFF);
    const size_t group = out.size();
    out.push_back(static_cast<uint8_t>(groupId << 2));  // version 0
    out.push_back(0);                                   // link number, and the last one
    out.push_back(0);
    put16(data.size(), &out);
    out.insert(out.end(), data.begin(), data.end());
    const uint32_t crc =
        av_crc(av_crc_get_table(AV_CRC_16_CCITT), 0, out.data() + group, out.size() - group);
    out.push_back(static_cast<uint8_t>(crc));  // the library keeps its first byte lowest
    out.push_back(static_cast<uint8_t>(crc >> 8));
    return out;
}

}  // namespace

Bytes captionManagementPes() {
    Bytes data;
    data.reserve(16);
    put16(timingByte(CaptionTiming::Free) << 8 | 1, &data);  // one language
    data.push_back(0x10 | kChosenByViewer);                  // its tag is 0; a reserved bit
    data.insert(data.end(), kLanguage, kLanguage + 3);
    data.push_back(kHorizontal960x540 << 4);
    put24(0, &data);  // no data units
    return pesPayload(kGroupManagement, data, 0);
}

Bytes captionStatementPes(const CaptionStatement& statement, size_t privateBytes) {
    constexpr size_t kUnitHeader = 5;
    Bytes data;
    data.reserve(statement.body.size() + 16);
    data.push_back(timingByte(statement.timing));
    if (statement.timing != CaptionTiming::Free) {
        putTime(statement.timeMs, &data);
    }
    put24(kUnitHeader + statement.body.size(), &data);
    data.push_back(kUnitSeparator);
    data.push_back(kStatementBody);
    put24(statement.body.size(), &data);
    data.insert(data.end(), statement.body.begin(), statement.body.end());
    return pesPayload(kGroupFirstLanguage, data, privateBytes);
}

}  // namespace mksample
