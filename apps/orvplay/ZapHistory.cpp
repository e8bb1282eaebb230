#include "ZapHistory.h"

#include <algorithm>

#include "ChannelSource.h"
#include "StateFiles.h"

namespace orvplay {

namespace {

using nlohmann::json;

constexpr char ZAPS[] = "zaps.jsonl";
constexpr char CHANNEL[] = "channel.json";

template <typename Object>
std::string toLine(const Object& object) {
    return object.dump(-1, ' ', false, Object::error_handler_t::replace) + "\n";
}

// The last lines, whole ones alone.
std::string lastLines(const std::string& text, size_t count) {
    const size_t end = text.find_last_of('\n');
    size_t begin = end;
    for (; begin != std::string::npos && begin != 0 && count > 0; --count) {
        begin = text.find_last_of('\n', begin - 1);
    }
    return end == std::string::npos     ? ""
           : begin == std::string::npos ? text.substr(0, end + 1)
                                        : text.substr(begin + 1, end - begin);
}

}  // namespace

bool keepZap(const ZapRecord& record, std::string* error) {
    return changeStateFile(
        ZAPS,
        [&record](const std::string& text) {
            return lastLines(text, MOST_ZAPS_KEPT - 1) + toLine(toJson(record));
        },
        error);
}

std::vector<ZapRecord> lastZaps(size_t count) {
    std::vector<ZapRecord> records;
    const std::string text = lastLines(readStateFile(ZAPS), count);
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        ZapRecord record;
        if (fromJson(json::parse(text.substr(at, end - at), nullptr, false), &record)) {
            records.push_back(std::move(record));
        }
        at = end + 1;
    }
    return records;
}

bool keepChannel(const Channel& channel, std::string* error) {
    const json kept = {{"name", channel.name},
                       {"number", channel.number},
                       {"source", sourceOf(channel)},
                       {"service", channel.serviceId}};
    const std::string line = toLine(kept);
    return readStateFile(CHANNEL) == line ||
           changeStateFile(
               CHANNEL, [&line](const std::string&) { return line; }, error);
}

bool lastChannel(Channel* channel) {
    const json kept = json::parse(readStateFile(CHANNEL), nullptr, false);
    const auto textAt = [&kept](const char* key) {
        const auto found = kept.is_object() ? kept.find(key) : kept.end();
        return found != kept.end() && found->is_string() ? found->get<std::string>() : "";
    };
    *channel = {};
    channel->name = textAt("name");
    channel->number = textAt("number");
    channel->source = textAt("source");
    if (kept.is_object() && kept.contains("service") && kept["service"].is_number_unsigned()) {
        channel->serviceId = kept["service"].get<uint16_t>();
    }
    return !channel->source.empty();
}

}  // namespace orvplay
