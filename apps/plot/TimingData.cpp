#include "TimingData.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

namespace orvplot {

namespace {

using nlohmann::json;

constexpr size_t LONGEST_LINE = 64 << 10;
constexpr double LATEST_S = 1e7;  // months
constexpr double GREATEST = 1e9;
constexpr size_t MOST_NAMES = 32;     // of buffers, of reasons
constexpr double MERGED_PART = 0.02;  // of the run: faults of a kind that close are one
constexpr int64_t WRAP_90K = int64_t{1} << 33;
// Nothing waits for so long, nor is it so late: its time belongs to another base than the clock.
constexpr double OTHER_BASE_MS = 60'000;

// A number of a sane size.
std::optional<double> numberOf(const json& line, const char* name) {
    const auto found = line.find(name);
    if (found == line.end() || !found->is_number()) {
        return std::nullopt;
    }
    const double value = found->get<double>();
    return std::isfinite(value) && std::abs(value) <= GREATEST * 10 ? std::optional(value)
                                                                    : std::nullopt;
}

std::string textOf(const json& line, const char* name) {
    const auto found = line.find(name);
    return found != line.end() && found->is_string() ? found->get<std::string>().substr(0, 200)
                                                     : std::string();
}

// By how many milliseconds a picture was shown after its time.
std::optional<double> latenessOf(const json& line) {
    const auto pts = numberOf(line, "pts");
    const auto clock = numberOf(line, "clock");
    if (!pts || !clock) {
        return std::nullopt;
    }
    const double ticks = std::remainder(*clock - *pts, static_cast<double>(WRAP_90K));
    return ticks / 90.0;
}

class Reader {
public:
    explicit Reader(TimingData* data) : mData(*data) {}

    void add(const std::string& text) {
        const json line = json::parse(text, nullptr, false);
        if (!line.is_object() || !addLine(line)) {
            ++mData.badLines;
        }
    }

    void finish() {
        for (auto& [name, at] : mOpen) {
            mData.faults[at].to = mData.time.high;
        }
        mergeFaults();
    }

private:
    bool addLine(const json& line) {
        const std::string kind = textOf(line, "kind");
        if (kind == "missed") {
            mData.missed +=
                static_cast<uint64_t>(std::max(numberOf(line, "count").value_or(0), 0.0));
            return true;
        }
        const auto t = numberOf(line, "t");
        if (!t || std::abs(*t) > LATEST_S || !addKind(kind, *t, line)) {
            return false;
        }
        mData.time.include(*t);
        ++mData.lines;
        return true;
    }

    bool addKind(const std::string& kind, double t, const json& line) {
        if (kind == "video") {
            return addVideo(t, line);
        }
        if (kind == "audio") {
            addTo(&mData.audioMs, t, numberOf(line, "waitMs"));
            if (const auto skew = numberOf(line, "skewMs")) {
                addTo(&mData.skewMs, t, *skew - mLateMs);
            }
        } else if (kind == "buffers") {
            return addFills(t, line);
        } else if (kind == "fault") {
            addFault(t, line);
        } else if (kind == "start") {
            mData.source = textOf(line, "source");
        } else {
            return kind == "silence" || kind == "caption";
        }
        return true;
    }

    void addTo(std::vector<Point>* points, double t, std::optional<double> value) {
        if (value && std::abs(*value) > OTHER_BASE_MS) {
            ++mData.otherBases;
        } else if (value) {
            points->push_back({t, *value});
        }
    }

    bool addVideo(double t, const json& line) {
        const auto shown = line.find("shown");
        if (shown == line.end() || !shown->is_boolean()) {
            return false;
        }
        addTo(&mData.videoMs, t, numberOf(line, "waitMs"));
        if (shown->get<bool>()) {
            ++mData.shown;
            mLateMs = latenessOf(line).value_or(mLateMs);
            return true;
        }
        const std::string why = textOf(line, "why");
        const bool isKnown = mData.drops.count(why) > 0 || mData.drops.size() < MOST_NAMES;
        mData.drops[isKnown ? why : "other"].push_back(t);
        return true;
    }

    bool addFills(double t, const json& line) {
        const auto percent = line.find("percent");
        if (percent == line.end() || !percent->is_object()) {
            return false;
        }
        for (const auto& [name, value] : percent->items()) {
            const bool isKnown = mData.fills.count(name) > 0 || mData.fills.size() < MOST_NAMES;
            if (isKnown && value.is_number() && std::abs(value.get<double>()) <= GREATEST) {
                mData.fills[name].push_back({t, value.get<double>()});
            }
        }
        return true;
    }

    // What lasts has a line where it ends.
    void addFault(double t, const json& line) {
        const std::string what = textOf(line, "what");
        const std::pair<const char*, std::vector<std::string>> ends[] = {
            {"bufferingEnd", {"buffering"}},
            {"sourceBack", {"sourceGap"}},
            {"signalGood", {"signalWeak", "signalLost"}}};
        for (const auto& [end, begins] : ends) {
            if (what == end) {
                for (const std::string& begin : begins) {
                    close(begin, t);
                }
                return;
            }
        }
        TimingData::Fault fault{what, t, t, what == "injected"};
        if (fault.isInjected) {
            fault.what = textOf(line, "text");
            fault.to = t + std::clamp(numberOf(line, "ms").value_or(0.0) / 1000, 0.0, LATEST_S);
        }
        const bool lasts = std::any_of(std::begin(ends), std::end(ends), [&](const auto& end) {
            return std::find(end.second.begin(), end.second.end(), what) != end.second.end();
        });
        if (lasts) {
            close(what, t);
            mOpen[what] = mData.faults.size();
        }
        mData.faults.push_back(std::move(fault));
    }

    void close(const std::string& what, double t) {
        if (const auto open = mOpen.find(what); open != mOpen.end()) {
            mData.faults[open->second].to = t;
            mOpen.erase(open);
        }
    }

    void mergeFaults() {
        std::stable_sort(mData.faults.begin(), mData.faults.end(),
                         [](const auto& a, const auto& b) { return a.from < b.from; });
        std::map<std::string, size_t> last;
        std::vector<TimingData::Fault> merged;
        for (TimingData::Fault& fault : mData.faults) {
            const auto before = last.find(fault.what);
            if (before != last.end() && !fault.isInjected &&
                fault.from - merged[before->second].to < MERGED_PART * mData.time.span()) {
                merged[before->second].to = std::max(merged[before->second].to, fault.to);
                continue;
            }
            last[fault.what] = merged.size();
            merged.push_back(std::move(fault));
        }
        mData.faults = std::move(merged);
    }

    TimingData& mData;
    double mLateMs = 0.0;                 // the picture that was shown last
    std::map<std::string, size_t> mOpen;  // faults that last
};

}  // namespace

TimingData TimingData::read(std::istream& in) {
    TimingData data;
    Reader reader(&data);
    std::string buffer(LONGEST_LINE, '\0');
    while (in.getline(buffer.data(), static_cast<std::streamsize>(buffer.size())) ||
           in.gcount() > 0) {
        if (in.fail() && !in.eof()) {
            ++data.badLines;  // too long
            in.clear();
            in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
            continue;
        }
        const std::string line(buffer.data());
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            reader.add(line);
        }
    }
    reader.finish();
    return data;
}

}  // namespace orvplot
