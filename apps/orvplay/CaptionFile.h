#pragma once

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvplay {

enum class CaptionFormat { TXT, SRT, VTT, JSONL };

// By name, "srt", or by the ending of a path; nothing for another one.
std::optional<CaptionFormat> captionFormatNamed(const std::string& name);
std::optional<CaptionFormat> captionFormatOf(const std::string& path);

// Writes captions as subtitles: a file that a media player shows beside the picture (SubRip,
// WebVTT), text for people, or JSON lines.
//
//   CaptionFile file(CaptionFormat::SRT);
//   file.open("news.srt");
//   file.setOrigin(firstPicture90k);     // the time that is 00:00:00 in the file
//   file.add(pts90k, text);              // ... in the order in which they came
//   file.finish();
//
// A caption ends when the next one begins, and after LONGEST_MS at the latest: a broadcast that
// clears its screen sends no text for it. One of blanks alone ends the one before and shows
// nothing. Time stamps of 33 bits may wrap; after a jump back, to another time base, the next
// caption begins a second after the one before. Captions wait for the origin; without one the first
// caption is it. Any thread.
class CaptionFile {
public:
    static constexpr int64_t LONGEST_MS = 5000;
    static constexpr int COLUMNS = 32;  // of a row; a full one runs on into the next

    explicit CaptionFile(CaptionFormat format) : mFormat(format) {}
    ~CaptionFile();
    CaptionFile(const CaptionFile&) = delete;  // owns a stream
    CaptionFile& operator=(const CaptionFile&) = delete;

    // "-" is standard output. 0, or an errno.
    int open(const std::string& path);
    // The first call counts.
    void setOrigin(int64_t pts90k);
    void add(int64_t pts90k, const std::string& text);
    // Writes what waits and closes. 0, or the errno of the first thing that went wrong.
    int finish();

    // Of captions that show something.
    uint64_t count();
    // Nothing more can be written: why, as an errno.
    int error();

private:
    struct Caption {
        int64_t pts90k;
        int64_t timeMs;
        std::string text;
    };

    void place(int64_t pts90k, const std::string& text);
    int64_t timeOf(int64_t pts90k);
    void write(const Caption& caption, int64_t endMs);
    void put(const std::string& text);

    const CaptionFormat mFormat;
    std::mutex mLock;  // all below
    FILE* mFile = nullptr;
    int mError = 0;
    std::optional<int64_t> mOrigin90k;
    std::vector<Caption> mWaiting;    // for the origin
    std::optional<Caption> mPending;  // for the next one, which ends it
    std::optional<int64_t> mLastPts90k;
    int64_t mLastMs = 0;
    uint64_t mCount = 0;
    uint64_t mWritten = 0;
};

}  // namespace orvplay
