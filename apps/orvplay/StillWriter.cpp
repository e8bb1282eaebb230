#include "StillWriter.h"

#include <fcntl.h>
#include <png.h>
#include <unistd.h>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

#include "PictureView.h"

namespace orvplay {

namespace {

struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FrameDeleter>;

struct ScalerDeleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

Frame allocate(AVPixelFormat format, int width, int height) {
    Frame frame(av_frame_alloc());
    if (frame != nullptr) {
        frame->format = format;
        frame->width = width;
        frame->height = height;
        if (av_frame_get_buffer(frame.get(), 0) < 0) {
            frame = nullptr;
        }
    }
    return frame;
}

// The scaler reads in steps past the end of a row: it gets a copy that has room for that.
Frame copyOf(const PictureView& view, const EvenCrop& area) {
    Frame frame = allocate(AV_PIX_FMT_NV12, area.width, area.height);
    if (frame != nullptr) {
        const ptrdiff_t lumaAt = static_cast<ptrdiff_t>(area.y) * view.lumaStride + area.x;
        const ptrdiff_t chromaAt = static_cast<ptrdiff_t>(area.y / 2) * view.chromaStride + area.x;
        av_image_copy_plane(frame->data[0], frame->linesize[0], view.luma + lumaAt, view.lumaStride,
                            area.width, area.height);
        av_image_copy_plane(frame->data[1], frame->linesize[1], view.chroma + chromaAt,
                            view.chromaStride, (area.width + 1) / 2 * 2, (area.height + 1) / 2);
    }
    return frame;
}

// Replaces the rows of one field by the mean of the rows around them.
void keepField(uint8_t* plane, int stride, int width, int height, int keptParity) {
    for (int row = 1 - keptParity; row < height && height > 1; row += 2) {
        const uint8_t* above = plane + static_cast<ptrdiff_t>(row > 0 ? row - 1 : 1) * stride;
        const uint8_t* below =
            row + 1 < height ? plane + static_cast<ptrdiff_t>(row + 1) * stride : above;
        uint8_t* out = plane + static_cast<ptrdiff_t>(row) * stride;
        for (int x = 0; x < width; ++x) {
            out[x] = static_cast<uint8_t>((above[x] + below[x] + 1) / 2);
        }
    }
}

// Rows alternate between the fields counted from the top of the whole picture, in either plane.
void keepFirstField(AVFrame* frame, const PictureView& view, const EvenCrop& area) {
    const int first = view.input.topFieldFirst ? 0 : 1;
    keepField(frame->data[0], frame->linesize[0], area.width, area.height, (first + area.y) & 1);
    keepField(frame->data[1], frame->linesize[1], (area.width + 1) / 2 * 2, (area.height + 1) / 2,
              (first + area.y / 2) & 1);
}

Frame toRgb(const AVFrame* yuv, const PictureView& view) {
    Frame rgb = allocate(AV_PIX_FMT_RGB24, yuv->width, yuv->height);
    const std::unique_ptr<SwsContext, ScalerDeleter> scaler(sws_getContext(
        yuv->width, yuv->height, AV_PIX_FMT_NV12, yuv->width, yuv->height, AV_PIX_FMT_RGB24,
        SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, nullptr, nullptr,
        nullptr));
    if (rgb == nullptr || scaler == nullptr) {
        return nullptr;
    }
    int matrix = SWS_CS_ITU601;
    switch (colourMatrixOf(view)) {
        case ColourMatrix::BT601:
            break;
        case ColourMatrix::BT709:
            matrix = SWS_CS_ITU709;
            break;
        case ColourMatrix::BT2020:
            matrix = SWS_CS_BT2020;
            break;
    }
    constexpr int ONE = 1 << 16;  // contrast and saturation unchanged
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(matrix), hasFullRange(view) ? 1 : 0,
                             sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, ONE, ONE);
    if (sws_scale(scaler.get(), yuv->data, yuv->linesize, 0, yuv->height, rgb->data,
                  rgb->linesize) != yuv->height) {
        return nullptr;
    }
    return rgb;
}

// What libpng's callbacks work with. Plain data, for a failure leaves by longjmp.
struct PngJob {
    FILE* file;
    const uint8_t* firstRow;
    ptrdiff_t stride;
    png_uint_32 width;
    png_uint_32 height;
    png_uint_32 sampleAspectWidth;
    png_uint_32 sampleAspectHeight;
    char message[128];
};

[[noreturn]] void onPngError(png_structp png, png_const_charp message) {
    auto* job = static_cast<PngJob*>(png_get_error_ptr(png));
    snprintf(job->message, sizeof(job->message), "%s", message);
    png_longjmp(png, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

// Only trivial objects may live here: see PngJob.
bool writePng(PngJob* job) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, job, onPngError, onPngWarning);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr || setjmp(png_jmpbuf(png)) != 0) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, job->file);
    png_set_IHDR(png, info, job->width, job->height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (job->sampleAspectWidth != 0 && job->sampleAspectHeight != 0) {
        // Pixels per unit: the wider a pixel, the fewer.
        png_set_pHYs(png, info, job->sampleAspectHeight, job->sampleAspectWidth,
                     PNG_RESOLUTION_UNKNOWN);
    }
    char key[] = "Software";
    char value[] = "OrvPlayer";
    png_text text{};
    text.compression = PNG_TEXT_COMPRESSION_NONE;
    text.key = key;
    text.text = value;
    png_set_text(png, info, &text, 1);
    png_write_info(png, info);
    const uint8_t* row = job->firstRow;
    for (png_uint_32 y = 0; y < job->height; ++y, row += job->stride) {
        png_write_row(png, row);
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool fail(std::string* error, const std::string& path, const char* reason) {
    if (error != nullptr) {
        *error = path + ": " + reason;
    }
    return false;
}

// Creates a file beside `path` under a name that nobody uses; negative, and errno set, when that
// fails.
int createBeside(const std::string& path, std::string* temporary) {
    constexpr int ATTEMPTS = 100;
    int descriptor = -1;
    for (int i = 0; i < ATTEMPTS; ++i) {
        *temporary = path + "." + std::to_string(getpid()) + "-" + std::to_string(i) + ".part";
        descriptor = ::open(temporary->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0 || errno != EEXIST) {
            break;
        }
    }
    return descriptor;
}

bool store(PngJob* job, const std::string& path, std::string* error) {
    std::string temporary;
    const int descriptor = createBeside(path, &temporary);
    if (descriptor < 0) {
        return fail(error, path, strerror(errno));
    }
    std::unique_ptr<FILE, FileCloser> file(fdopen(descriptor, "wb"));
    if (file == nullptr) {
        close(descriptor);
        unlink(temporary.c_str());
        return fail(error, path, strerror(ENOMEM));
    }
    job->file = file.get();
    snprintf(job->message, sizeof(job->message), "%s", strerror(ENOMEM));
    errno = 0;
    bool ok = writePng(job);
    if (!ok && errno != 0) {
        snprintf(job->message, sizeof(job->message), "%s", strerror(errno));
    }
    if (fclose(file.release()) != 0 && ok) {
        snprintf(job->message, sizeof(job->message), "%s", strerror(errno));
        ok = false;
    }
    if (ok && rename(temporary.c_str(), path.c_str()) != 0) {
        snprintf(job->message, sizeof(job->message), "%s", strerror(errno));
        ok = false;
    }
    if (!ok) {
        unlink(temporary.c_str());
        return fail(error, path, job->message);
    }
    return true;
}

}  // namespace

bool writeStill(const orvhost::AcquiredBuffer& picture, const std::string& path,
                std::string* error) {
    const LockedPicture locked(picture);
    if (!locked.isValid()) {
        return fail(error, path, "there is no picture to write");
    }
    const PictureView& view = locked.view();
    const EvenCrop area = evenCropOf(view);
    const Frame yuv = copyOf(view, area);
    if (yuv == nullptr) {
        return fail(error, path, strerror(ENOMEM));
    }
    if (view.input.interlaced) {
        keepFirstField(yuv.get(), view, area);
    }
    const Frame rgb = toRgb(yuv.get(), view);
    if (rgb == nullptr) {
        return fail(error, path, "the picture's colours cannot be converted");
    }
    PngJob job{};
    job.firstRow = rgb->data[0] + static_cast<ptrdiff_t>(area.insetY) * rgb->linesize[0] +
                   static_cast<ptrdiff_t>(area.insetX) * 3;
    job.stride = rgb->linesize[0];
    job.width = static_cast<png_uint_32>(area.cropWidth());
    job.height = static_cast<png_uint_32>(area.cropHeight());
    job.sampleAspectWidth = view.input.sampleAspectWidth;
    job.sampleAspectHeight = view.input.sampleAspectHeight;
    return store(&job, path, error);
}

}  // namespace orvplay
