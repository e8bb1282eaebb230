#include "ZapTimes.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace orvplay {

namespace {

double toMs(int64_t ns) {
    return std::round(static_cast<double>(ns) * 1e-5) / 10;
}

std::string keyOf(size_t part) {
    return std::string(ZAP_PART_NAMES[part]) + "Ms";
}

template <typename Choose>
ZapSplit eachOf(const std::vector<ZapRecord>& records, Choose choose) {
    ZapSplit chosen;
    const auto of = [&](const auto& valueOf) {
        std::vector<double> values;
        for (const ZapRecord& record : records) {
            if (record.split.isComplete()) {
                values.push_back(valueOf(record.split));
            }
        }
        std::sort(values.begin(), values.end());
        return values.empty() ? 0.0 : choose(values);
    };
    for (size_t part = 0; part < ZAP_PARTS; ++part) {
        chosen.partMs[part] = of([part](const ZapSplit& split) { return split.partMs[part]; });
    }
    chosen.totalMs = of([](const ZapSplit& split) { return split.totalMs; });
    chosen.parts = ZAP_PARTS;
    return chosen;
}

}  // namespace

ZapSplit splitOf(const ZapTimes& times) {
    const int64_t pictureNs = times.reachedNs(ZapPart::GATE);
    ZapSplit split;
    int64_t beforeNs = times.commandNs();
    for (size_t part = 0; part < ZAP_PARTS; ++part) {
        int64_t reachedNs = times.reachedNs(static_cast<ZapPart>(part));
        if (reachedNs != 0) {
            split.parts = part + 1;
        }
        reachedNs = std::max(reachedNs, beforeNs);
        if (pictureNs != 0) {
            reachedNs = std::min(reachedNs, pictureNs);
        }
        split.partMs[part] = toMs(reachedNs - beforeNs);
        beforeNs = reachedNs;
    }
    split.totalMs = toMs(beforeNs - times.commandNs());
    return split;
}

nlohmann::ordered_json toJson(const ZapSplit& split) {
    nlohmann::ordered_json json = {{"totalMs", nullptr}};
    if (split.isComplete()) {
        json["totalMs"] = split.totalMs;
    }
    for (size_t part = 0; part < split.parts; ++part) {
        json[keyOf(part)] = split.partMs[part];
    }
    return json;
}

nlohmann::ordered_json toJson(const ZapRecord& record) {
    nlohmann::ordered_json json = {{"time", record.time}, {"channel", record.channel}};
    if (!record.number.empty()) {
        json["number"] = record.number;
    }
    json["service"] = record.serviceId;
    json.update(toJson(record.split));
    return json;
}

bool fromJson(const nlohmann::json& json, ZapRecord* record) {
    const auto textAt = [&json](const char* key) {
        const auto found = json.find(key);
        return found != json.end() && found->is_string() ? found->get<std::string>() : "";
    };
    if (!json.is_object()) {
        return false;
    }
    *record = {};
    record->time = textAt("time");
    record->channel = textAt("channel");
    record->number = textAt("number");
    if (const auto id = json.find("service"); id != json.end() && id->is_number_integer()) {
        record->serviceId = id->get<int>();
    }
    ZapSplit& split = record->split;
    for (; split.parts < ZAP_PARTS; ++split.parts) {
        const auto found = json.find(keyOf(split.parts));
        if (found == json.end() || !found->is_number()) {
            break;
        }
        split.partMs[split.parts] = found->get<double>();
        split.totalMs += split.partMs[split.parts];
    }
    if (const auto total = json.find("totalMs"); total != json.end() && total->is_number()) {
        split.totalMs = total->get<double>();
    }
    return !record->time.empty();
}

std::string textOf(const ZapSplit& split) {
    std::string text;
    char part[48];
    for (size_t i = 0; i < split.parts; ++i) {
        snprintf(part, sizeof part, "%s%s %.0f", i > 0 ? ", " : "", ZAP_PART_NAMES[i],
                 split.partMs[i]);
        text += part;
    }
    return text.empty() ? "nothing was reached" : text + " ms";
}

ZapSplit medianOf(const std::vector<ZapRecord>& records) {
    return eachOf(records, [](const std::vector<double>& sorted) {
        const size_t half = sorted.size() / 2;
        return sorted.size() % 2 != 0 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
    });
}

ZapSplit worstOf(const std::vector<ZapRecord>& records) {
    return eachOf(records, [](const std::vector<double>& sorted) { return sorted.back(); });
}

}  // namespace orvplay
