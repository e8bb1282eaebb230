#include "FigureTable.h"

#include <cstdio>

namespace orvplay {

namespace {

using nlohmann::json;
using Type = OpenMetrics::Type;

constexpr FigureKind FIGURES[] = {
    {"player", "player", Type::INFO, "", "", "What plays"},
    {"signal", "signal", Type::STATESET, "", "", "Signal"},
    {"paused", "paused", Type::GAUGE, "", "", "Playback is paused"},
    {"recording", "recording", Type::GAUGE, "", "", "What plays is recorded"},
    {"uptimeSeconds", "uptime", Type::GAUGE, "seconds", "", "Time since playback began"},
    {"picturesShown", "pictures_shown", Type::COUNTER, "", "", "Pictures shown"},
    {"picturesDropped", "pictures_dropped", Type::COUNTER, "", "",
     "Pictures whose time came and that were not shown"},
    {"picturesMissing", "pictures_missing", Type::COUNTER, "", "",
     "Pictures missing between the numbers of a test broadcast"},
    {"audioFrames", "audio_frames", Type::COUNTER, "", "", "Sample frames of sound played"},
    {"captions", "captions", Type::COUNTER, "", "", "Captions"},
    {"bufferedRatio", "buffered", Type::GAUGE, "ratio", "",
     "How full the buffers are while it waits for them, 1 otherwise"},
    {"skewSeconds", "av_skew", Type::GAUGE, "seconds", "",
     "Sound against picture, mean; positive: sound is late"},
    {"skewMagnitudeSeconds", "av_skew_magnitude", Type::SUMMARY, "seconds", "quantile",
     "Sound against picture without its sign"},
    {"pictureJitterSeconds", "picture_jitter", Type::SUMMARY, "seconds", "quantile",
     "Pictures against their time stamps"},
    {"longestGapSeconds", "longest_gap", Type::GAUGE, "seconds", "",
     "The longest time that a picture stood"},
    {"outputLatencySeconds", "output_latency", Type::GAUGE, "seconds", "",
     "From sound written to sound heard"},
    {"packets", "packets_received", Type::COUNTER, "", "", "Packets received"},
    {"bytes", "received", Type::COUNTER, "bytes", "", "Bytes received"},
    {"continuityErrors", "continuity_errors", Type::COUNTER, "", "",
     "Breaks of the packets' continuity counters"},
    {"transportErrors", "transport_errors", Type::COUNTER, "", "", "Packets that came damaged"},
    {"scrambledPackets", "packets_scrambled", Type::COUNTER, "", "", "Packets that are scrambled"},
    {"droppedPackets", "packets_dropped", Type::COUNTER, "", "",
     "Packets that the player did not take in time"},
    {"syncLosses", "sync_losses", Type::COUNTER, "", "", "Losses of packet synchronization"},
    {"datagrams", "datagrams_received", Type::COUNTER, "", "", "Datagrams received"},
    {"datagramsBad", "datagrams_bad", Type::COUNTER, "", "", "Datagrams that hold no packets"},
    {"datagramsLost", "datagrams_lost", Type::COUNTER, "", "", "Datagrams lost on the way"},
    {"datagramsReordered", "datagrams_reordered", Type::COUNTER, "", "",
     "Datagrams that came late and were put in their place"},
    {"datagramsDuplicate", "datagrams_duplicate", Type::COUNTER, "", "",
     "Datagrams that came twice"},
    {"datagramsDropped", "datagrams_dropped", Type::COUNTER, "", "",
     "Datagrams that came and were not taken in time"},
    {"senderRestarts", "sender_restarts", Type::COUNTER, "", "", "How often the sender began anew"},
    {"receptionJitterSeconds", "reception_jitter", Type::GAUGE, "seconds", "",
     "Arrival of datagrams against the clock in them"},
    {"channelChanges", "channel_changes", Type::COUNTER, "", "", "Changes of the channel"},
    {"serviceRestarts", "service_restarts", Type::COUNTER, "", "",
     "Player services that ended by themselves and were replaced"},
    {"cpuSeconds", "cpu", Type::COUNTER, "seconds", "process", "Processor time"},
    {"residentMemoryBytes", "resident_memory", Type::GAUGE, "bytes", "process",
     "Memory in use, shared memory included"},
};

constexpr const char* SIGNALS[] = {"good", "weak", "lost"};

std::string nameOf(const FigureKind& kind) {
    const std::string name = std::string("orvplay_") + kind.metric;
    return *kind.unit != '\0' ? name + "_" + kind.unit : name;
}

// Of a value that another program told: empty for what is none.
std::string numberText(const json& value) {
    if (value.is_boolean()) {
        return value.get<bool>() ? "1" : "0";
    }
    return value.is_number() ? value.dump() : "";
}

std::string plainText(const json& value) {
    return value.is_string() ? value.get<std::string>()
                             : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

void addSamples(OpenMetrics& text, const FigureKind& kind, const std::string& pid,
                const json& value) {
    const OpenMetrics::Labels labels{{"pid", pid}};
    const auto with = [&](const std::string& name, const std::string& what) {
        OpenMetrics::Labels more = labels;
        more.emplace_back(name, what);
        return more;
    };
    const auto addNumber = [&](const OpenMetrics::Labels& of, const json& number) {
        if (const std::string told = numberText(number); !told.empty()) {
            text.sample(of, told);
        }
    };
    if (kind.type == Type::INFO) {
        OpenMetrics::Labels all = labels;
        for (const auto& [name, what] : value.items()) {
            all.emplace_back(name, plainText(what));
        }
        text.sample(all, "1");
    } else if (kind.type == Type::STATESET) {
        for (const char* const state : SIGNALS) {
            text.sample(with(nameOf(kind), state), value == state ? "1" : "0");
        }
    } else if (*kind.label == '\0') {
        addNumber(labels, value);
    } else {
        for (const auto& [member, number] : value.items()) {
            addNumber(with(kind.label, member), number);
        }
    }
}

std::string line(const std::string& what, const std::string& value) {
    constexpr int WIDTH = 62;
    char text[WIDTH + 2];
    snprintf(text, sizeof text, "%-*s ", WIDTH, what.c_str());
    return text + value + "\n";
}

}  // namespace

std::span<const FigureKind> figureTable() {
    return FIGURES;
}

std::string figuresText(const Figures& player) {
    std::string text;
    for (const FigureKind& kind : FIGURES) {
        const auto value = player.find(kind.key);
        const std::string unit = std::string(kind.unit) == "seconds" ? " s" : "";
        if (value == player.end()) {
            continue;
        }
        if (!value->is_object()) {
            text += line(kind.help, plainText(*value) + unit);
            continue;
        }
        for (const auto& [member, number] : value->items()) {
            const std::string which = (*kind.label != '\0' ? std::string(kind.label) + " " : "");
            text += line(std::string(kind.help) + ", " + which + member, plainText(number) + unit);
        }
    }
    return text;
}

std::string figuresOpenMetrics(std::span<const Figures> players) {
    OpenMetrics text;
    for (const FigureKind& kind : FIGURES) {
        text.family(nameOf(kind), kind.type, kind.unit, kind.help);
        for (const Figures& player : players) {
            if (const auto value = player.find(kind.key); value != player.end()) {
                addSamples(text, kind, plainText(player.value("pid", Figures(0))), *value);
            }
        }
    }
    return text.finish();
}

}  // namespace orvplay
