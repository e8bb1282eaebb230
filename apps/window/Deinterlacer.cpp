#include "Deinterlacer.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <cstdio>

namespace orvplay {

namespace {

constexpr int64_t USUAL_PERIOD_NS = 33'366'667;  // 30000 / 1001 pictures a second
constexpr int64_t LONGEST_PERIOD_NS = 100'000'000;

// bwdif wants 3 columns and 4 rows of either plane.
constexpr int SMALLEST_WIDTH = 3;
constexpr int SMALLEST_HEIGHT = 8;

struct GraphDeleter {
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};

}  // namespace

void Deinterlacer::FrameDeleter::operator()(AVFrame* frame) const {
    av_frame_free(&frame);
}

// bwdif on one plane of bytes.
class Deinterlacer::PlaneFilter {
public:
    bool open(int width, int height, Rate rate);
    Frame copyOf(const uint8_t* pixels, int stride) const;
    bool push(const Frame& frame);
    Frame pull();

private:
    std::unique_ptr<AVFilterGraph, GraphDeleter> mGraph;
    AVFilterContext* mSource = nullptr;  // the graph's own
    AVFilterContext* mSink = nullptr;
    int mWidth = 0;
    int mHeight = 0;
};

bool Deinterlacer::PlaneFilter::open(int width, int height, Rate rate) {
    mWidth = width;
    mHeight = height;
    mGraph.reset(avfilter_graph_alloc());
    if (mGraph == nullptr) {
        return false;
    }
    mGraph->nb_threads = 1;  // the other core decodes
    char size[128];
    snprintf(size, sizeof(size), "video_size=%dx%d:pix_fmt=%d:time_base=1/1:pixel_aspect=1/1",
             width, height, AV_PIX_FMT_GRAY8);
    const char* how = rate == Rate::FIELD ? "mode=send_field:parity=auto:deint=interlaced"
                                          : "mode=send_frame:parity=auto:deint=interlaced";
    AVFilterContext* bwdif = nullptr;
    AVFilterGraph* graph = mGraph.get();
    return avfilter_graph_create_filter(&mSource, avfilter_get_by_name("buffer"), nullptr, size,
                                        nullptr, graph) >= 0 &&
           avfilter_graph_create_filter(&bwdif, avfilter_get_by_name("bwdif"), nullptr, how,
                                        nullptr, graph) >= 0 &&
           avfilter_graph_create_filter(&mSink, avfilter_get_by_name("buffersink"), nullptr,
                                        nullptr, nullptr, graph) >= 0 &&
           avfilter_link(mSource, 0, bwdif, 0) >= 0 && avfilter_link(bwdif, 0, mSink, 0) >= 0 &&
           avfilter_graph_config(graph, nullptr) >= 0;
}

// The filter keeps pictures for longer than the queue could spare them, and its loops read past
// the end of a row: hence a copy with room behind each.
Deinterlacer::Frame Deinterlacer::PlaneFilter::copyOf(const uint8_t* pixels, int stride) const {
    Frame frame(av_frame_alloc());
    if (frame == nullptr) {
        return nullptr;
    }
    frame->format = AV_PIX_FMT_GRAY8;
    frame->width = mWidth;
    frame->height = mHeight;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        return nullptr;
    }
    av_image_copy_plane(frame->data[0], frame->linesize[0], pixels, stride, mWidth, mHeight);
    return frame;
}

bool Deinterlacer::PlaneFilter::push(const Frame& frame) {
    return av_buffersrc_add_frame_flags(mSource, frame.get(), AV_BUFFERSRC_FLAG_KEEP_REF) >= 0;
}

Deinterlacer::Frame Deinterlacer::PlaneFilter::pull() {
    Frame frame(av_frame_alloc());
    if (frame == nullptr || av_buffersink_get_frame(mSink, frame.get()) < 0) {
        return nullptr;
    }
    return frame;
}

Deinterlacer::Deinterlacer(Rate rate) : mRate(rate) {}

Deinterlacer::~Deinterlacer() = default;

void Deinterlacer::setRate(Rate rate) {
    if (rate == mRate) {
        return;
    }
    mRate = rate;
    if (mLuma == nullptr) {
        return;
    }
    // The picture that waits for its right neighbour goes into the new filters.
    Frame luma = std::move(mLastLuma);
    Frame chroma = std::move(mLastChroma);
    const auto waiting = mInputs.empty() ? decltype(mInputs)() : decltype(mInputs){mInputs.back()};
    const int width = mWidth;
    const int height = mHeight;
    reset();
    if (luma != nullptr && start(width, height)) {
        mInputs = waiting;
        mFirstNumber = luma->pts;
        feed(luma, chroma);
        mLastLuma = std::move(luma);
        mLastChroma = std::move(chroma);
    }
}

void Deinterlacer::reset() {
    mLuma = nullptr;
    mChroma = nullptr;
    mLastLuma = nullptr;
    mLastChroma = nullptr;
    mInputs.clear();
    mFirstNumber = 0;
}

bool Deinterlacer::start(int width, int height) {
    if (mFailed && width == mWidth && height == mHeight) {
        return false;
    }
    mWidth = width;
    mHeight = height;
    auto luma = std::make_unique<PlaneFilter>();
    auto chroma = std::make_unique<PlaneFilter>();
    const int chromaWidth = (width + 1) / 2 * 2;
    const int chromaHeight = (height + 1) / 2;
    mFailed = width < SMALLEST_WIDTH || height < SMALLEST_HEIGHT ||
              !luma->open(width, height, mRate) || !chroma->open(chromaWidth, chromaHeight, mRate);
    if (mFailed) {
        return false;
    }
    mLuma = std::move(luma);
    mChroma = std::move(chroma);
    return true;
}

bool Deinterlacer::feed(const Frame& luma, const Frame& chroma) {
    return mLuma->push(luma) && mChroma->push(chroma);
}

bool Deinterlacer::push(const PictureView& picture) {
    if (mLuma != nullptr && (picture.width != mWidth || picture.height != mHeight)) {
        reset();
    }
    if (mLuma == nullptr && !start(picture.width, picture.height)) {
        return false;
    }
    Frame luma = mLuma->copyOf(picture.luma, picture.lumaStride);
    Frame chroma = mChroma->copyOf(picture.chroma, picture.chromaStride);
    if (luma == nullptr || chroma == nullptr) {
        reset();
        return false;
    }
    for (AVFrame* frame : {luma.get(), chroma.get()}) {
        frame->pts = mFirstNumber + static_cast<int64_t>(mInputs.size());
        frame->interlaced_frame = picture.input.interlaced ? 1 : 0;
        frame->top_field_first = picture.input.topFieldFirst ? 1 : 0;
    }
    mInputs.push_back(picture.input);
    if (!feed(luma, chroma)) {
        reset();
        return false;
    }
    mLastLuma = std::move(luma);
    mLastChroma = std::move(chroma);
    return true;
}

Deinterlacer::Result Deinterlacer::pull(PictureView* picture) {
    if (mLuma == nullptr) {
        return Result::NONE;
    }
    mShownLuma = mLuma->pull();
    mShownChroma = mChroma->pull();
    if (mShownLuma == nullptr || mShownChroma == nullptr) {
        return Result::NONE;
    }
    // Results are numbered in halves of a picture.
    const int64_t number = mShownLuma->pts / 2;
    const bool isSecondField = mShownLuma->pts % 2 != 0;
    while (mFirstNumber < number && mInputs.size() > 1) {
        mInputs.pop_front();
        ++mFirstNumber;
    }
    picture->luma = mShownLuma->data[0];
    picture->chroma = mShownChroma->data[0];
    picture->lumaStride = mShownLuma->linesize[0];
    picture->chromaStride = mShownChroma->linesize[0];
    picture->width = mWidth;
    picture->height = mHeight;
    picture->input = mInputs.front();
    if (isSecondField) {
        int64_t periodNs = USUAL_PERIOD_NS;
        if (mInputs.size() > 1) {
            const int64_t distanceNs = mInputs[1].timestamp - mInputs[0].timestamp;
            periodNs = distanceNs > 0 && distanceNs < LONGEST_PERIOD_NS ? distanceNs : periodNs;
        }
        picture->input.timestamp += periodNs / 2;
    }
    picture->input.interlaced = false;
    return isSecondField ? Result::SECOND_FIELD : Result::PICTURE;
}

}  // namespace orvplay
