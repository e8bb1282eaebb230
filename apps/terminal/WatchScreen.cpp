#include "WatchScreen.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <sstream>

#include "HumanText.h"
#include "RowWriter.h"
#include "TextColumns.h"

namespace orvplay {

namespace {

constexpr int TWO_COLUMNS_FROM = 64;
constexpr int LABEL_COLUMNS = 11;
constexpr int TIMES_COLUMNS = 13;  // "20:00-20:30  "
constexpr int START_COLUMNS = 7;
constexpr int TIMES_FROM = 32;
constexpr size_t TEXT_LINES = 2;  // of what is on
constexpr size_t CAPTION_LINES = 4;
constexpr size_t CAPTION_LINES_KEPT = 2;  // free, so that little moves when one comes

// A row that gives way to more important ones.
struct Line {
    int importance;
    ScreenRow row;
};

struct Fact {
    int importance;
    const char* label;
    std::string value;
    Tone tone = Tone::NORMAL;
};

__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...) {
    char text[160];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

class WatchLayout {
public:
    WatchLayout(const WatchView& view, int columns, int64_t nowNs)
        : mView(view), mState(view.state), mColumns(columns) {
        const int64_t ageMs = std::max<int64_t>(nowNs - mState.madeNs, 0) / 1'000'000;
        mClockUtcS = mState.clockUtcS < 0 ? -1 : mState.clockUtcS + ageMs / 1000;
        mPositionMs = mState.positionMs + (mState.isPaused || mState.width == 0 ? 0 : ageMs);
        if (mState.durationMs > 0) {
            mPositionMs = std::min(mPositionMs, mState.durationMs);
        }
    }

    std::vector<ScreenRow> rows(int count) const;

private:
    std::vector<Line> programme() const;
    std::vector<Line> figures() const;
    std::vector<Fact> facts() const;
    std::vector<ScreenRow> caption() const;
    ScreenRow header() const;
    ScreenRow footer() const;
    ScreenRow rule() const;
    ScreenRow transport() const;
    ScreenRow programmeRow(const char* what, const Programme& programme, Tone tone) const;
    ScreenRow progress(const Programme& programme) const;
    std::string localTime(int64_t utcS, bool withSeconds) const;

    const WatchView& mView;
    const ScreenState& mState;
    const int mColumns;
    int64_t mClockUtcS = -1;
    int64_t mPositionMs = 0;
};

std::string WatchLayout::localTime(int64_t utcS, bool withSeconds) const {
    constexpr int64_t DAY_S = 86'400;
    const int64_t local = utcS + int64_t(mState.localOffsetMinutes) * 60;
    const auto second = static_cast<int>((local % DAY_S + DAY_S) % DAY_S);
    return withSeconds ? formatted("%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60)
                       : formatted("%02d:%02d", second / 3600, second / 60 % 60);
}

ScreenRow WatchLayout::header() const {
    RowWriter row(mColumns);
    const std::string recording =
        mState.recordingNumber != 0 ? "REC " + timeText(mState.recordingMs) : "";
    const std::string clock = mClockUtcS >= 0 ? localTime(mClockUtcS, true) : "";
    const std::string gap = recording.empty() || clock.empty() ? "" : "  ";
    const int edge = static_cast<int>(recording.size() + gap.size() + clock.size());
    // The name gives way: what is at the edge is short.
    RowWriter name(std::max(mColumns - edge - 1, mColumns / 3));
    name.add(mState.channelNumber.empty() ? "" : mState.channelNumber + "  ", Tone::STRONG);
    name.add(mState.name, Tone::STRONG);
    for (const Span& span : name.row()) {
        row.add(span.text, span.tone);
    }
    row.skipTo(mColumns - edge);
    return row.add(recording, Tone::ALARM).add(gap).add(clock).row();
}

ScreenRow WatchLayout::rule() const {
    std::string line;
    for (int i = 0; i < mColumns; ++i) {
        line += mView.hasBlocks ? "─" : "-";
    }
    return {{line, Tone::FAINT}};
}

ScreenRow WatchLayout::programmeRow(const char* what, const Programme& programme, Tone tone) const {
    RowWriter row(mColumns);
    std::string times = what;
    if (programme.startUtcS >= 0) {
        times = localTime(programme.startUtcS, false);
        times += programme.endUtcS >= 0 && mColumns >= TIMES_FROM
                     ? "-" + localTime(programme.endUtcS, false)
                     : "";
    }
    row.add(times, Tone::FAINT).skipTo(mColumns >= TIMES_FROM ? TIMES_COLUMNS : START_COLUMNS);
    return row.add(programme.title, tone).row();
}

ScreenRow WatchLayout::progress(const Programme& programme) const {
    const int64_t durationS = programme.endUtcS - programme.startUtcS;
    const int64_t goneS = std::clamp<int64_t>(mClockUtcS - programme.startUtcS, 0, durationS);
    const std::string rest = formatted("  %" PRId64 " min left", (durationS - goneS + 59) / 60);
    RowWriter row(mColumns);
    row.addBar(mColumns - static_cast<int>(rest.size()),
               static_cast<double>(goneS) / static_cast<double>(durationS), mView.hasBlocks);
    return row.add(rest, Tone::FAINT).row();
}

ScreenRow WatchLayout::transport() const {
    RowWriter row(mColumns);
    const std::string length = mState.durationMs > 0 ? " / " + timeText(mState.durationMs) : "";
    row.add(timeText(mPositionMs) + length, Tone::STRONG);
    if (mState.isPaused) {
        row.add("  paused", Tone::ALARM);
    }
    if (mState.durationMs > 0) {
        row.add("  ").addBar(
            row.left(), static_cast<double>(mPositionMs) / static_cast<double>(mState.durationMs),
            mView.hasBlocks);
    }
    return row.row();
}

std::vector<Line> WatchLayout::programme() const {
    std::vector<Line> lines = {{100, header()}, {20, rule()}};
    if (mState.kind != SourceKind::LIVE) {
        lines.push_back({80, transport()});
    }
    if (mState.now.has_value()) {
        const Programme& now = *mState.now;
        lines.push_back({90, programmeRow("Now", now, Tone::STRONG)});
        if (mClockUtcS >= 0 && now.startUtcS >= 0 && now.endUtcS > now.startUtcS) {
            lines.push_back({60, progress(now)});
        }
        for (const std::string& text :
             wrapToColumns(terminalText(now.text), mColumns, TEXT_LINES)) {
            lines.push_back({10, {{text, Tone::NORMAL}}});
        }
    }
    if (mState.next.has_value()) {
        lines.push_back({50, programmeRow("Next", *mState.next, Tone::NORMAL)});
    }
    return lines;
}

std::vector<Fact> WatchLayout::facts() const {
    std::vector<Fact> facts;
    const bool isLive = mState.kind == SourceKind::LIVE;
    const bool hasPicture = mState.width > 0;
    if (!mState.signalText.empty()) {
        facts.push_back({75, "Signal", mState.signalText, Tone::ALARM});
    } else if (isLive) {
        facts.push_back({55, "Signal", "good", Tone::GOOD});
    }
    std::string picture = hasPicture ? formatted("%dx%d%c", mState.width, mState.height,
                                                 mState.isInterlaced ? 'i' : 'p')
                                     : "none so far";
    if (hasPicture && mState.picturesPerSecond > 0) {
        picture += formatted(", %.4g/s", mState.picturesPerSecond);
    }
    facts.push_back({45, "Picture", picture});
    if (isLive) {
        const orvhost::TunerSignal& reception = mState.reception;
        const uint64_t bad = reception.continuityErrors + reception.transportErrors;
        facts.push_back({54, "Packets",
                         formatted("%" PRIu64 " holes, %" PRIu64 " damaged",
                                   reception.continuityErrors, reception.transportErrors),
                         bad > 0 ? Tone::ALARM : Tone::NORMAL});
        if (const auto& network = reception.network; network.datagrams > 0) {
            facts.push_back(
                {53, "Network",
                 formatted("%" PRIu64 " lost, jitter %.1f ms", network.lost + network.kernelDrops,
                           static_cast<double>(network.jitterUs) / 1000)});
        }
    }
    facts.push_back({48, "Sound",
                     mState.isMuted ? "muted" : formatted("volume %d %%", mState.volumePercent),
                     mState.isMuted ? Tone::ALARM : Tone::NORMAL});
    if (hasPicture) {
        facts.push_back({43, "Dropped", formatted("%" PRIu64 " pictures", mState.picturesDropped),
                         mState.picturesDropped > 0 ? Tone::ALARM : Tone::NORMAL});
    }
    if (mState.skewMs.has_value()) {
        facts.push_back({40, "Lip sync", formatted("%+.0f ms", *mState.skewMs)});
    }
    if (isLive && mState.isPaused) {
        facts.push_back({80, "Time", timeText(mPositionMs) + "  paused", Tone::ALARM});
    } else if (isLive) {
        facts.push_back({30, "Time", timeText(mPositionMs)});
    }
    return facts;
}

std::vector<Line> WatchLayout::figures() const {
    std::vector<Line> lines;
    const std::vector<Fact> all = facts();
    const size_t abreast = mColumns >= TWO_COLUMNS_FROM ? 2 : 1;
    for (size_t i = 0; i < all.size(); i += abreast) {
        RowWriter row(mColumns);
        int importance = 0;
        for (size_t j = i; j < std::min(i + abreast, all.size()); ++j) {
            const int from = static_cast<int>(j - i) * (mColumns / 2);
            row.skipTo(from).add(all[j].label, Tone::FAINT).skipTo(from + LABEL_COLUMNS);
            RowWriter value(abreast == 2 && j == i ? mColumns / 2 - LABEL_COLUMNS - 1 : mColumns);
            for (const Span& span : value.add(all[j].value, all[j].tone).row()) {
                row.add(span.text, span.tone);
            }
            importance = std::max(importance, all[j].importance);
        }
        lines.push_back({importance, row.row()});
    }
    return lines;
}

std::vector<ScreenRow> WatchLayout::caption() const {
    std::vector<ScreenRow> rows;
    std::istringstream lines(mView.caption);
    for (std::string line; rows.size() < CAPTION_LINES && std::getline(lines, line);) {
        for (const std::string& part :
             wrapToColumns(terminalText(line), mColumns, CAPTION_LINES - rows.size())) {
            rows.push_back(centred(part, mColumns, Tone::STRONG));
        }
    }
    return rows;
}

ScreenRow WatchLayout::footer() const {
    RowWriter row(mColumns);
    if (!mView.message.empty()) {
        return row.add(mView.message, Tone::ALARM).row();
    }
    for (const char* key :
         {"? help", "q quit", "c channels", "m mute", "r record", "v captions", "# sound"}) {
        const std::string text = std::string(row.row().empty() ? "" : "   ") + key;
        if (columnsOf(text) <= row.left()) {
            row.add(text, Tone::FAINT);
        }
    }
    return row.row();
}

// Removes the least important one of both, the lowest of equals.
bool removeLeast(std::vector<Line>* upper, std::vector<Line>* lower) {
    std::vector<Line>* from = nullptr;
    size_t at = 0;
    for (std::vector<Line>* lines : {upper, lower}) {
        for (size_t i = 0; i < lines->size(); ++i) {
            if (from == nullptr || (*lines)[i].importance <= (*from)[at].importance) {
                from = lines;
                at = i;
            }
        }
    }
    if (from != nullptr) {
        from->erase(from->begin() + static_cast<std::ptrdiff_t>(at));
    }
    return from != nullptr;
}

std::vector<ScreenRow> WatchLayout::rows(int count) const {
    const auto height = static_cast<size_t>(std::max(count, 1));
    std::vector<Line> upper = programme();
    std::vector<Line> lower = figures();
    std::vector<ScreenRow> captionRows = caption();
    const size_t kept = mState.kind == SourceKind::MEDIA ? 0 : CAPTION_LINES_KEPT;
    const size_t middle = std::min(std::max(captionRows.size(), kept), height / 4);
    captionRows.resize(std::min(captionRows.size(), middle));
    while (upper.size() + lower.size() + middle + 1 > height && removeLeast(&upper, &lower)) {
    }
    std::vector<ScreenRow> screen;
    for (Line& line : upper) {
        screen.push_back(std::move(line.row));
    }
    const size_t below = lower.size() + 1;
    const size_t space = height - std::min(height, screen.size() + below + captionRows.size());
    screen.resize(screen.size() + space - std::min<size_t>(space, 1));
    for (ScreenRow& row : captionRows) {
        screen.push_back(std::move(row));
    }
    screen.resize(height - std::min(height, below));
    for (Line& line : lower) {
        screen.push_back(std::move(line.row));
    }
    screen.push_back(footer());
    return screen;
}

}  // namespace

std::vector<ScreenRow> watchRows(const WatchView& view, int columns, int rows, int64_t nowNs) {
    return WatchLayout(view, std::max(columns, 1), nowNs).rows(rows);
}

}  // namespace orvplay
