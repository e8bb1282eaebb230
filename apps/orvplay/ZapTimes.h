#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace orvplay {

// Where the time of a channel change goes. Its parts follow one another, each from the end of the
// one before:
//
//   command |-tune-| source tuned |-tables-| streams known |-pcr-| clock set |-idr-| IDR picture
//           handed to the codec |-audio-| first sound decoded |-gate-| first picture at the output
enum class ZapPart { TUNE, TABLES, PCR, IDR, AUDIO, GATE };
constexpr size_t ZAP_PARTS = 6;
constexpr std::array<const char*, ZAP_PARTS> ZAP_PART_NAMES = {"tune", "tables", "pcr",
                                                               "idr",  "audio",  "gate"};

// When the ends of the parts came, on the monotonic clock.
class ZapTimes {
public:
    explicit ZapTimes(int64_t commandNs = 0) : mCommandNs(commandNs) {}

    int64_t commandNs() const { return mCommandNs; }
    // Of an end that did not come, or was told of an earlier change, nothing is kept.
    void reach(ZapPart part, int64_t timeNs) {
        mReachedNs[static_cast<size_t>(part)] = timeNs > mCommandNs ? timeNs : 0;
    }
    int64_t reachedNs(ZapPart part) const { return mReachedNs[static_cast<size_t>(part)]; }

private:
    int64_t mCommandNs;
    std::array<int64_t, ZAP_PARTS> mReachedNs{};  // 0: not
};

// Milliseconds of each part. What came out of order took no time of its own: it counts as having
// come with the end before it, and nothing comes after the picture, so that the parts add up to the
// whole. Without a picture the parts end with the last one that was reached.
struct ZapSplit {
    std::array<double, ZAP_PARTS> partMs{};
    size_t parts = 0;  // that were reached; all of them with a picture
    double totalMs = 0.0;

    bool isComplete() const { return parts == ZAP_PARTS; }
};
ZapSplit splitOf(const ZapTimes& times);

// One change as it is kept and printed:
//   {"time":"2026-11-22T14:30:15Z","channel":"News","number":"6.1","service":705,
//    "totalMs":1893.2,"tuneMs":...,"tablesMs":...,"pcrMs":...,"idrMs":...,"audioMs":...,
//    "gateMs":...}
struct ZapRecord {
    std::string time;     // UTC
    std::string channel;  // its name
    std::string number;   // empty where nothing tells it
    int serviceId = 0;
    ZapSplit split;
};
nlohmann::ordered_json toJson(const ZapSplit& split);
nlohmann::ordered_json toJson(const ZapRecord& record);
// False for what is none.
bool fromJson(const nlohmann::json& json, ZapRecord* record);

// "tune 12, tables 0, ... ms"
std::string textOf(const ZapSplit& split);

// The median, or the worst, of each part and of the whole, of those with a picture.
ZapSplit medianOf(const std::vector<ZapRecord>& records);
ZapSplit worstOf(const std::vector<ZapRecord>& records);

}  // namespace orvplay
