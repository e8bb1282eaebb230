#include "PngEncoder.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>
#include <ctime>
#include <new>
#include <utility>

namespace orvplay {

namespace {

constexpr size_t TEXTS = 5;

// What libpng's callbacks work with. A failure leaves by longjmp, past no destructor: everything
// that has one lives outside writePng().
struct PngJob {
    const Still* still;
    png_text* texts;
    std::vector<uint8_t>* out;
    char message[128];
};

[[noreturn]] void onPngError(png_structp png, png_const_charp message) {
    auto* job = static_cast<PngJob*>(png_get_error_ptr(png));
    snprintf(job->message, sizeof job->message, "%s", message);
    png_longjmp(png, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

bool append(std::vector<uint8_t>* out, const uint8_t* bytes, size_t count) {
    try {
        out->insert(out->end(), bytes, bytes + count);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void onPngBytes(png_structp png, png_bytep bytes, size_t count) {
    if (!append(static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png)), bytes, count)) {
        png_error(png, "not enough memory");
    }
}

// Only trivial objects may live here: see PngJob.
bool writePng(PngJob* job) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, job, onPngError, onPngWarning);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr || setjmp(png_jmpbuf(png)) != 0) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    const Still& still = *job->still;
    png_set_write_fn(png, job->out, onPngBytes, nullptr);
    // Other stills may wait for this one: time counts more than bytes.
    png_set_compression_level(png, 3);
    png_set_IHDR(png, info, still.width, still.height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (still.sampleAspectWidth != 0 && still.sampleAspectHeight != 0) {
        // Pixels per unit: the wider a pixel, the fewer.
        png_set_pHYs(png, info, still.sampleAspectHeight, still.sampleAspectWidth,
                     PNG_RESOLUTION_UNKNOWN);
    }
    png_set_text(png, info, job->texts, static_cast<int>(TEXTS));
    png_write_info(png, info);
    png_set_filler(png, 0, PNG_FILLER_AFTER);  // alpha is left out
    png_set_bgr(png);
    const uint8_t* row = still.pixels.data();
    for (uint32_t y = 0; y < still.height; ++y, row += size_t{4} * still.width) {
        png_write_row(png, row);
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

}  // namespace

std::string isoTime(std::chrono::system_clock::time_point time) {
    using namespace std::chrono;
    const auto ms = duration_cast<milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm local{};
    localtime_r(&seconds, &local);
    char date[32];
    char zone[8];
    strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    strftime(zone, sizeof zone, "%z", &local);  // "-0300"
    char text[64];
    snprintf(text, sizeof text, "%s.%03d%.3s:%.2s", date, static_cast<int>(ms % 1000), zone,
             zone + 3);
    return text;
}

std::vector<uint8_t> encodePng(const Still& still, const StillLabels& labels, std::string* error) {
    std::array<std::pair<std::string, std::string>, TEXTS> lines = {{
        {"Title", labels.service},
        {"Service ID", std::to_string(labels.serviceId)},
        {"Creation Time", isoTime(still.takenAt)},
        {"Stream PTS", std::to_string(still.pts90k)},
        {"Software", "OrvPlayer"},
    }};
    std::array<png_text, TEXTS> texts{};
    std::string language;
    for (size_t i = 0; i < TEXTS; ++i) {
        auto& [key, value] = lines[i];
        const bool isAscii = std::all_of(value.begin(), value.end(),
                                         [](char c) { return static_cast<uint8_t>(c) < 0x80; });
        // Plain text chunks are Latin-1, international ones UTF-8.
        texts[i].compression = isAscii ? PNG_TEXT_COMPRESSION_NONE : PNG_ITXT_COMPRESSION_NONE;
        texts[i].key = key.data();
        texts[i].text = value.data();
        texts[i].lang = language.data();
        texts[i].lang_key = language.data();
    }
    std::vector<uint8_t> bytes;
    PngJob job{&still, texts.data(), &bytes, "not enough memory"};
    if (!writePng(&job)) {
        *error = job.message;
        bytes.clear();
    }
    return bytes;
}

}  // namespace orvplay
