#include "mksample/Options.h"

#include <getopt.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "pattern/TestPattern.h"

namespace mksample {
namespace {

constexpr uint64_t kPtsModulo = 1ULL << 33;
// Where a stream with --near-wrap starts: this much before its time stamps begin again at 0.
constexpr uint64_t kBeforeWrap = 4 * 90000;

enum Id : int {
    kDuration = 256,
    kOut,
    kSize,
    kFps,
    kProgressive,
    kGop,
    kHrd,
    kVideoBitRate,
    kAudio,
    kAudioBitRate,
    kNoSecondAudio,
    kAudioAligned,
    kSilentAudio,
    kWrongFraming,
    kLatmConfigEvery,
    kNoCaptions,
    kCaptionsList,
    kGuide,
    kMuxRate,
    kPcrOnVideo,
    kNoPcr,
    kNoSmallService,
    kStartPts,
    kNearWrap,
    kCutAt,
    kSmall,
    kHelp,
};

const option kLongOptions[] = {
    {"duration", required_argument, nullptr, kDuration},
    {"out", required_argument, nullptr, kOut},
    {"size", required_argument, nullptr, kSize},
    {"fps", required_argument, nullptr, kFps},
    {"progressive", no_argument, nullptr, kProgressive},
    {"gop", required_argument, nullptr, kGop},
    {"hrd", no_argument, nullptr, kHrd},
    {"video-bitrate", required_argument, nullptr, kVideoBitRate},
    {"audio", required_argument, nullptr, kAudio},
    {"audio-bitrate", required_argument, nullptr, kAudioBitRate},
    {"no-second-audio", no_argument, nullptr, kNoSecondAudio},
    {"audio-aligned", no_argument, nullptr, kAudioAligned},
    {"silent-audio", no_argument, nullptr, kSilentAudio},
    {"wrong-framing", no_argument, nullptr, kWrongFraming},
    {"latm-config-every", required_argument, nullptr, kLatmConfigEvery},
    {"no-captions", no_argument, nullptr, kNoCaptions},
    {"captions-list", required_argument, nullptr, kCaptionsList},
    {"guide", required_argument, nullptr, kGuide},
    {"mux-rate", required_argument, nullptr, kMuxRate},
    {"pcr-on-video", no_argument, nullptr, kPcrOnVideo},
    {"no-pcr-pid", no_argument, nullptr, kNoPcr},
    {"no-small-service", no_argument, nullptr, kNoSmallService},
    {"start-pts", required_argument, nullptr, kStartPts},
    {"near-wrap", no_argument, nullptr, kNearWrap},
    {"cut-at", required_argument, nullptr, kCutAt},
    {"small", no_argument, nullptr, kSmall},
    {"help", no_argument, nullptr, kHelp},
    {nullptr, 0, nullptr, 0},
};

[[noreturn]] void refuse(const std::string& what) {
    throw UsageError(what + " (mksample --help tells the options)");
}

[[noreturn]] void refuseValue(const char* name, const char* text, const char* expected) {
    refuse(std::string("--") + name + " " + text + ": expected " + expected);
}

double parseSeconds(const char* name, const char* text, double low, double high) {
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(value) || value < low || value > high) {
        char range[64];
        std::snprintf(range, sizeof(range), "seconds from %g to %g", low, high);
        refuseValue(name, text, range);
    }
    return value;
}

// A whole number; "k" and "M" multiply by a thousand and a million.
int64_t parseNumber(const char* name, const char* text, int64_t low, int64_t high) {
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text, &end);
    double factor = 1.0;
    if (end != text && (*end == 'k' || *end == 'M')) {
        factor = *end == 'k' ? 1e3 : 1e6;
        ++end;
    }
    const double number = value * factor;
    if (end == text || *end != '\0' || !std::isfinite(number) ||
        number < static_cast<double>(low) || number > static_cast<double>(high)) {
        const std::string range =
            "a number from " + std::to_string(low) + " to " + std::to_string(high);
        refuseValue(name, text, range.c_str());
    }
    return std::llround(number);
}

// Two whole numbers around a separator; false when the text is anything else.
bool parsePair(const char* text, char separator, int* first, int* second) {
    char* end = nullptr;
    const long a = std::strtol(text, &end, 10);
    if (end == text || *end != separator) {
        return false;
    }
    const char* rest = end + 1;
    const long b = std::strtol(rest, &end, 10);
    if (end == rest || *end != '\0' || a < 1 || b < 1 || a > 1'000'000 || b > 1'000'000) {
        return false;
    }
    *first = static_cast<int>(a);
    *second = static_cast<int>(b);
    return true;
}

FrameRate parseFps(const char* text) {
    struct Named {
        std::string_view text;
        FrameRate rate;
    };
    static constexpr std::array<Named, 4> kNamed{{{"23.976", {24000, 1001}},
                                                  {"14.985", {15000, 1001}},
                                                  {"29.97", {30000, 1001}},
                                                  {"59.94", {60000, 1001}}}};
    for (const Named& named : kNamed) {
        if (named.text == text) {
            return named.rate;
        }
    }
    FrameRate rate;
    const bool fraction = parsePair(text, '/', &rate.num, &rate.den);
    if (!fraction) {
        char* end = nullptr;
        const long whole = std::strtol(text, &end, 10);
        rate = {
            end != text && *end == '\0' && whole > 0 && whole < 1000 ? static_cast<int>(whole) : 0,
            1};
    }
    if (rate.num < 5 * rate.den || rate.num > 120 * rate.den) {
        refuseValue("fps", text, "29.97, 25, 30000/1001 ... from 5 to 120");
    }
    return rate;
}

AudioFormat parseAudio(const std::string& text) {
    if (text == "latm") {
        return AudioFormat::Latm;
    }
    if (text == "adts") {
        return AudioFormat::Adts;
    }
    if (text == "mpeg") {
        return AudioFormat::Mpeg;
    }
    refuseValue("audio", text.c_str(), "latm, adts or mpeg");
}

Country parseCountry(const std::string& text) {
    if (text == "br") {
        return Country::Brazil;
    }
    if (text == "jp") {
        return Country::Japan;
    }
    refuseValue("guide", text.c_str(), "br or jp");
}

// The sample for tests: everything that the large one has, in a second or two and 1.5 MB.
void makeSmall(Options* options) {
    options->width = 320;
    options->height = 240;
    options->durationS = 10.0;
    options->videoBitRate = 560'000;
    options->audioBitRate = 96'000;
    options->secondAudioBitRate = 64'000;
    options->smallVideoBitRate = 120'000;
    options->smallAudioBitRate = 48'000;
    options->muxRate = 1'200'000;
}

void applyPictureOption(int id, const char* value, Options* options) {
    switch (id) {
        case kSize:
            if (!parsePair(value, 'x', &options->width, &options->height)) {
                refuseValue("size", value, "WIDTHxHEIGHT");
            }
            break;
        case kFps:
            options->fps = parseFps(value);
            break;
        case kProgressive:
            options->progressive = true;
            break;
        case kGop:
            options->gop = static_cast<int>(parseNumber("gop", value, 1, 300));
            break;
        case kHrd:
            options->hrd = true;
            break;
        case kVideoBitRate:
            options->videoBitRate = parseNumber("video-bitrate", value, 50'000, 60'000'000);
            break;
        default:
            break;
    }
}

void applySoundOption(int id, const char* value, Options* options) {
    switch (id) {
        case kAudio:
            options->audio = parseAudio(value);
            break;
        case kAudioBitRate:
            options->audioBitRate = parseNumber("audio-bitrate", value, 32'000, 384'000);
            break;
        case kNoSecondAudio:
            options->secondAudio = false;
            break;
        case kAudioAligned:
            options->audioAligned = true;
            break;
        case kSilentAudio:
            options->silentAudio = true;
            break;
        case kWrongFraming:
            options->wrongFraming = true;
            break;
        case kLatmConfigEvery:
            options->latmConfigEvery =
                static_cast<int>(parseNumber("latm-config-every", value, 1, 1000));
            break;
        default:
            break;
    }
}

void applyStreamOption(int id, const char* value, Options* options) {
    switch (id) {
        case kDuration:
            options->durationS = parseSeconds("duration", value, 0.5, 6 * 3600);
            break;
        case kOut:
            options->out = value;
            break;
        case kNoCaptions:
            options->captions = false;
            break;
        case kCaptionsList:
            options->captionsList = value;
            break;
        case kGuide:
            options->guide = parseCountry(value);
            break;
        case kMuxRate:
            options->muxRate = parseNumber("mux-rate", value, 300'000, 100'000'000);
            break;
        case kPcrOnVideo:
            options->pcrOnVideo = true;
            break;
        case kNoPcr:
            options->noPcr = true;
            break;
        case kNoSmallService:
            options->smallService = false;
            break;
        case kStartPts:
            options->startPts = static_cast<uint64_t>(
                parseNumber("start-pts", value, 0, static_cast<int64_t>(kPtsModulo) - 1));
            break;
        case kNearWrap:
            options->startPts = kPtsModulo - kBeforeWrap;
            break;
        case kCutAt:
            options->cutAtS = parseSeconds("cut-at", value, 0.5, 6 * 3600);
            break;
        default:
            break;
    }
}

void checkTogether(const Options& options) {
    if (options.out.empty()) {
        refuse("no output: name a file with --out FILE, or --out - for standard output");
    }
    if (!options.captions && !options.captionsList.empty()) {
        refuse("--captions-list and --no-captions exclude each other");
    }
    const int heightUnit = options.progressive ? 2 : 4;
    if (options.width < orvtest::kMinWidth || options.height < orvtest::kMinHeight ||
        options.width > 4096 || options.height > 2304 || options.width % 2 != 0 ||
        options.height % heightUnit != 0) {
        refuse(
            "--size: expected 128x96 to 4096x2304, an even width and a height that is a "
            "multiple of " +
            std::to_string(heightUnit));
    }
    if (options.wrongFraming && options.audio == AudioFormat::Mpeg) {
        refuse("--wrong-framing goes with --audio latm or adts");
    }
    if (options.pcrOnVideo && options.noPcr) {
        refuse("--pcr-on-video and --no-pcr-pid exclude each other");
    }
    if (options.cutAtS && *options.cutAtS >= options.durationS) {
        refuse("--cut-at must come before the end of the stream (--duration)");
    }
}

}  // namespace

Options parseOptions(int argc, char** argv) {
    Options options;
    // --small sets many values at once; those given beside it win wherever they stand.
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--small") {
            makeSmall(&options);
        }
    }
    opterr = 0;
    optind = 1;
    int id = 0;
    while ((id = getopt_long(argc, argv, ":h", kLongOptions, nullptr)) != -1) {
        if (id == ':') {
            refuse(std::string(argv[optind - 1]) + " needs a value");
        }
        if (id == '?') {
            refuse(std::string("unknown option ") + argv[optind - 1]);
        }
        if (id == kHelp || id == 'h') {
            options.help = true;
            return options;
        }
        applyStreamOption(id, optarg, &options);
        applyPictureOption(id, optarg, &options);
        applySoundOption(id, optarg, &options);
    }
    if (optind < argc) {
        refuse(std::string("unexpected argument ") + argv[optind]);
    }
    checkTogether(options);
    return options;
}

std::string helpText() {
    return R"(Usage: mksample --out FILE [options]

Makes a transport stream like an ISDB-T full-segment service, with a frame number that a program
can read in every picture and a flash and a beep every second. The same options give the same
bytes.

  --out FILE             where to write; - is standard output
  --duration S           seconds of programme (30)
  --small                a small sample for tests: 320x240, 10 s, 1.2 Mbit/s

Picture of the main service
  --size WxH             (1920x1080)
  --fps RATE             29.97, 25, 30000/1001 ... (29.97)
  --progressive          progressive instead of interlaced, top field first
  --gop N                frames from one IDR picture to the next (15)
  --video-bitrate N      bit/s, with k or M (12M)
  --hrd                  buffer model parameters in the sequence parameter set

Sound of the main service
  --audio KIND           latm (AAC in LOAS), adts (AAC) or mpeg (Layer II) (latm)
  --audio-bitrate N      bit/s (192k)
  --no-second-audio      leave out the second language (the same beeps, another background)
  --audio-aligned        PES packets hold whole audio frames; else frames run over their ends
  --latm-config-every N  StreamMuxConfig in every Nth LOAS frame (1)
  --wrong-framing        the table declares ADTS for LATM, or LATM for ADTS
  --silent-audio         no beeps and no background sound

Captions of the main service
  --no-captions          leave them out
  --captions-list FILE   write there what each shows: {"pts":...,"text":"..."}, one a line

Tables
  --guide br|jp          names in that country's character coding, what is on air and comes next,
                         and a clock

Multiplex
  --mux-rate N           bit/s, filled up with null packets (17M)
  --no-small-service     leave out the second service (320x240, ADTS)
  --pcr-on-video         PCR in the video packets instead of on its own PID
  --no-pcr-pid           no PCR at all
  --start-pts N          time stamp of the first picture, 90 kHz units (3240000000)
  --near-wrap            time stamps pass the 33-bit wrap four seconds into the stream
  --cut-at S             after S seconds, jump: content is missing and another time base begins
)";
}

}  // namespace mksample
