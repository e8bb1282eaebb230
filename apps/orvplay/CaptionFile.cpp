#include "CaptionFile.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

namespace orvplay {

namespace {

constexpr int64_t PTS_MASK = 0x1FFFFFFFF;
constexpr int64_t PTS_SIGN = 0x100000000;
constexpr int64_t PER_MS = 90;
constexpr int64_t AFTER_JUMP_MS = 1000;
// So far back a caption may lie that was only sent out of order.
constexpr int64_t OUT_OF_ORDER_90K = 90'000;

int64_t distance90k(int64_t from, int64_t to) {
    const int64_t difference = (to - from) & PTS_MASK;
    return (difference & PTS_SIGN) != 0 ? difference - PTS_MASK - 1 : difference;
}

// A row without blanks at its end and codes that are no characters.
std::string cleaned(std::string row) {
    std::erase_if(row, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
    row.erase(row.find_last_not_of(' ') + 1);
    return row;
}

// Where the row that begins at `at` ends: at a line feed, behind so many characters, or at the end.
size_t rowEnd(const std::string& text, size_t at) {
    int columns = 0;
    for (; at < text.size() && text[at] != '\n'; ++at) {
        const bool startsCharacter = (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80;
        if (startsCharacter && columns++ == CaptionFile::COLUMNS) {
            break;
        }
    }
    return at;
}

// The rows that show something. A full row has no line feed.
std::vector<std::string> rowsOf(const std::string& text) {
    std::vector<std::string> rows;
    for (size_t at = 0; at < text.size();) {
        const size_t end = rowEnd(text, at);
        if (const std::string row = cleaned(text.substr(at, end - at)); !row.empty()) {
            rows.push_back(row);
        }
        at = end < text.size() && text[end] == '\n' ? end + 1 : end;
    }
    return rows;
}

std::string clockTime(int64_t ms, char beforeMs) {
    char text[32];
    ms = std::max<int64_t>(ms, 0);
    snprintf(text, sizeof text, "%02d:%02d:%02d%c%03d", static_cast<int>(ms / 3'600'000),
             static_cast<int>(ms / 60'000 % 60), static_cast<int>(ms / 1000 % 60), beforeMs,
             static_cast<int>(ms % 1000));
    return text;
}

// WebVTT gives these characters a meaning (W3C WebVTT, 4.2.2).
std::string escaped(const std::string& row) {
    std::string out;
    for (const char c : row) {
        out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    return out;
}

}  // namespace

std::optional<CaptionFormat> captionFormatNamed(const std::string& name) {
    return name == "txt"     ? std::optional(CaptionFormat::TXT)
           : name == "srt"   ? std::optional(CaptionFormat::SRT)
           : name == "vtt"   ? std::optional(CaptionFormat::VTT)
           : name == "jsonl" ? std::optional(CaptionFormat::JSONL)
                             : std::nullopt;
}

std::optional<CaptionFormat> captionFormatOf(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot == std::string::npos ? std::nullopt : captionFormatNamed(path.substr(dot + 1));
}

CaptionFile::~CaptionFile() {
    finish();
}

int CaptionFile::open(const std::string& path) {
    std::lock_guard<std::mutex> guard(mLock);
    mFile = path == "-" ? stdout : fopen(path.c_str(), "wbe");
    if (mFile == nullptr) {
        return errno;
    }
    if (mFormat == CaptionFormat::VTT) {
        put("WEBVTT\n\n");
    }
    return 0;
}

void CaptionFile::setOrigin(int64_t pts90k) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mOrigin90k.has_value()) {
        return;
    }
    mOrigin90k = pts90k;
    for (const Caption& caption : std::exchange(mWaiting, {})) {
        place(caption.pts90k, caption.text);
    }
}

uint64_t CaptionFile::count() {
    std::lock_guard<std::mutex> guard(mLock);
    return mCount;
}

int CaptionFile::error() {
    std::lock_guard<std::mutex> guard(mLock);
    return mError;
}

void CaptionFile::add(int64_t pts90k, const std::string& text) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mOrigin90k.has_value()) {
        place(pts90k, text);
    } else {
        mWaiting.push_back({pts90k, 0, text});
    }
}

int64_t CaptionFile::timeOf(int64_t pts90k) {
    const int64_t step90k = distance90k(mLastPts90k.value_or(*mOrigin90k), pts90k);
    const bool jumped = mLastPts90k.has_value() && step90k < -OUT_OF_ORDER_90K;
    mLastMs += jumped ? AFTER_JUMP_MS : step90k / PER_MS;
    mLastPts90k = jumped ? pts90k : (pts90k - step90k % PER_MS) & PTS_MASK;
    return mLastMs;
}

void CaptionFile::place(int64_t pts90k, const std::string& text) {
    const int64_t timeMs = timeOf(pts90k);
    if (mPending.has_value()) {
        const int64_t latestMs = mPending->timeMs + LONGEST_MS;
        write(*mPending, std::clamp(timeMs, mPending->timeMs, latestMs));
        mPending.reset();
    }
    if (!rowsOf(text).empty()) {
        ++mCount;
        mPending = Caption{pts90k, timeMs, text};
    }
}

void CaptionFile::write(const Caption& caption, int64_t endMs) {
    std::string rows;
    const std::string indent = mFormat == CaptionFormat::TXT ? "              " : "";
    for (const std::string& row : rowsOf(caption.text)) {
        rows += (rows.empty() ? "" : indent) +
                (mFormat == CaptionFormat::VTT ? escaped(row) : row) + "\n";
    }
    ++mWritten;
    switch (mFormat) {
        case CaptionFormat::TXT:
            put(clockTime(caption.timeMs, '.') + "  " + rows);
            break;
        case CaptionFormat::SRT:
            put(std::to_string(mWritten) + "\n" + clockTime(caption.timeMs, ',') + " --> " +
                clockTime(endMs, ',') + "\n" + rows + "\n");
            break;
        case CaptionFormat::VTT:
            put(clockTime(caption.timeMs, '.') + " --> " + clockTime(endMs, '.') + "\n" + rows +
                "\n");
            break;
        case CaptionFormat::JSONL: {
            const nlohmann::ordered_json line = {
                {"pts", caption.pts90k},
                {"time", static_cast<double>(caption.timeMs) / 1000},
                {"text", caption.text}};
            put(line.dump() + "\n");
            break;
        }
    }
}

void CaptionFile::put(const std::string& text) {
    if (mFile != nullptr && mError == 0 &&
        (fputs(text.c_str(), mFile) == EOF || fflush(mFile) != 0)) {
        mError = errno;
    }
}

int CaptionFile::finish() {
    std::unique_lock<std::mutex> guard(mLock);
    if (!mOrigin90k.has_value() && !mWaiting.empty()) {
        const int64_t first90k = mWaiting.front().pts90k;
        guard.unlock();
        setOrigin(first90k);
        guard.lock();
    }
    if (mPending.has_value()) {
        write(*mPending, mPending->timeMs + LONGEST_MS);
        mPending.reset();
    }
    FILE* file = std::exchange(mFile, nullptr);
    if (file != nullptr && file != stdout && fclose(file) != 0 && mError == 0) {
        mError = errno;
    }
    return mError;
}

}  // namespace orvplay
