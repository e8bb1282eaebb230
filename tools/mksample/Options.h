// What the command line asks for, checked and completed with defaults.

#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace mksample {

// Ends the program with one line on standard error: exit status 1.
class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A wrong command line: exit status 2.
class UsageError : public Failure {
    using Failure::Failure;
};

struct FrameRate {
    int num = 30000;
    int den = 1001;

    // 30 for 30000/1001: what a time code and the flash count by.
    uint32_t nominal() const { return static_cast<uint32_t>((num + den - 1) / den); }
    // Time of a frame in 90 kHz units after frame 0.
    int64_t ticks90k(int64_t frames) const { return frames * 90000 * den / num; }
};

// Whose programme guide the stream has, in its character coding.
enum class Country { None, Brazil, Japan };

enum class AudioFormat { Latm, Adts, Mpeg };

struct Options {
    bool help = false;
    std::string out;
    double durationS = 30.0;

    int width = 1920;
    int height = 1080;
    FrameRate fps;
    bool progressive = false;
    int gop = 15;
    bool hrd = false;
    int64_t videoBitRate = 12'000'000;

    AudioFormat audio = AudioFormat::Latm;
    int64_t audioBitRate = 192'000;
    bool secondAudio = true;
    int64_t secondAudioBitRate = 128'000;
    bool audioAligned = false;
    bool silentAudio = false;
    bool wrongFraming = false;
    int latmConfigEvery = 1;

    bool captions = true;
    std::string captionsList;  // what they show, one JSON object a line; empty: not written

    Country guide = Country::None;

    int64_t muxRate = 17'000'000;
    bool pcrOnVideo = false;
    bool noPcr = false;
    bool smallService = true;
    int64_t smallVideoBitRate = 280'000;
    int64_t smallAudioBitRate = 64'000;
    uint64_t startPts = 10ULL * 3600 * 90000;
    std::optional<double> cutAtS;
};

// Throws UsageError with the line to print.
Options parseOptions(int argc, char** argv);

std::string helpText();

}  // namespace mksample
