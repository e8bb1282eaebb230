#include "RecordingText.h"

#include <cstdio>
#include <filesystem>

#include "HumanText.h"

using orvhost::RecordingDetails;
using orvhost::RecordingState;

namespace orvplay {

namespace {

constexpr size_t CHANNEL_WIDTH = 16;
constexpr size_t PROGRAMME_WIDTH = 28;

const char* nameOf(RecordingState state) {
    switch (state) {
        case RecordingState::Recording:
            return "recording";
        case RecordingState::Whole:
            return "whole";
        case RecordingState::Repaired:
            return "repaired";
        case RecordingState::Missing:
            return "missing";
    }
    return "unknown";
}

// ISO 8601 in UTC, as programs read it; null for a time that is not known.
nlohmann::ordered_json isoTime(int64_t secondsSince1970) {
    const auto time = static_cast<time_t>(secondsSince1970);
    tm utc = {};
    char text[32];
    if (time <= 0 || gmtime_r(&time, &utc) == nullptr ||
        strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc) == 0) {
        return nullptr;
    }
    return text;
}

std::string withoutTrailingBlanks(const std::string& row) {
    return row.substr(0, row.find_last_not_of(' ') + 1);
}

std::string rowOf(const RecordingDetails& recording) {
    char figures[96];
    snprintf(figures, sizeof figures, "%5d  %-16s  %8s  %8s  ", recording.number,
             dateText(recording.startTimeS).c_str(), timeText(recording.durationMs).c_str(),
             sizeText(recording.sizeBytes).c_str());
    std::string remark = recording.state == RecordingState::Whole ? "" : nameOf(recording.state);
    if (recording.positionMs > 0) {
        remark += (remark.empty() ? "" : ", ") + ("seen to " + timeText(recording.positionMs));
    }
    return withoutTrailingBlanks(
               figures + column(printable(recording.stationName), CHANNEL_WIDTH) + "  " +
               column(printable(recording.programmeName), PROGRAMME_WIDTH) + "  " + remark) +
           "\n";
}

std::string line(const char* name, const std::string& value) {
    return column(name, 12) + printable(value) + "\n";
}

}  // namespace

std::string tableOf(const std::vector<RecordingDetails>& recordings) {
    if (recordings.empty()) {
        return "No recordings.\n";
    }
    char heading[128];
    snprintf(heading, sizeof heading, "%5s  %-16s  %8s  %8s  %s  %s\n", "No", "Recorded", "Length",
             "Size", column("Channel", CHANNEL_WIDTH).c_str(), "Programme");
    std::string table = heading;
    for (const RecordingDetails& recording : recordings) {
        table += rowOf(recording);
    }
    return table;
}

std::string describe(const RecordingDetails& recording) {
    std::string text =
        line("Number", std::to_string(recording.number)) + line("Channel", recording.stationName) +
        line("Programme", recording.programmeName) +
        line("Recorded", dateText(recording.startTimeS) + " to " + dateText(recording.endTimeS)) +
        line("Length", timeText(recording.durationMs)) +
        line("Size", sizeText(recording.sizeBytes)) + line("State", nameOf(recording.state)) +
        line("File", recording.path);
    if (recording.positionMs > 0) {
        text += line("Seen to", timeText(recording.positionMs));
    }
    return text + line("Play", "orvplay play recording:" + std::to_string(recording.number));
}

nlohmann::ordered_json toJson(const RecordingDetails& recording) {
    return {{"event", "recording"},
            {"number", recording.number},
            {"channel", recording.stationName},
            {"programme", recording.programmeName},
            {"start", isoTime(recording.startTimeS)},
            {"end", isoTime(recording.endTimeS)},
            {"durationMs", recording.durationMs},
            {"sizeBytes", recording.sizeBytes},
            {"state", nameOf(recording.state)},
            {"canPlay", recording.canPlay},
            {"storage", recording.storageType},
            {"positionMs", recording.positionMs},
            {"path", recording.path}};
}

std::string titleOf(const RecordingDetails& recording) {
    const std::string between =
        recording.programmeName.empty() || recording.stationName.empty() ? "" : ", ";
    const std::string title = recording.programmeName + between + recording.stationName;
    return printable(title.empty() ? std::filesystem::path(recording.path).stem().string() : title);
}

}  // namespace orvplay
