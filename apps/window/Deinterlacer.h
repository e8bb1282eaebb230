#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

#include "PictureView.h"

struct AVFrame;

namespace orvplay {

// Makes whole pictures out of interlaced ones with libavfilter's bwdif.
//
//   push(1)                    nothing yet: a picture is seen together with both its neighbours
//   push(2)   pull() -> 1      and, at field rate, pull() -> 1 as it was half a picture later
//   push(3)   pull() -> 2      ...
//
// Results therefore come one picture late. Progressive pictures that come in between take the same
// way, unchanged and in their place. A change of size begins anew.
//
// bwdif works on columns alone, so the interleaved chroma of NV12 goes through it as it is, as a
// picture of its own: nothing is converted to planes and back. Not thread-safe.
class Deinterlacer {
public:
    enum class Rate { FRAME, FIELD };
    enum class Result { NONE, PICTURE, SECOND_FIELD };

    explicit Deinterlacer(Rate rate);
    ~Deinterlacer();
    Deinterlacer(const Deinterlacer&) = delete;  // owns filters
    Deinterlacer& operator=(const Deinterlacer&) = delete;

    // From the next push() on; no picture is lost by it.
    void setRate(Rate rate);

    // Takes a copy of a picture. False when it cannot be filtered: show it as it is.
    bool push(const PictureView& picture);

    // The next result, where there is one, readable until the next call. Its time stamp is that of
    // the picture, for a second field half a picture later. The work is done here, so a second
    // field costs nothing before it is due; one not pulled is made with the next picture.
    Result pull(PictureView* picture);

    // Forgets every picture.
    void reset();

private:
    class PlaneFilter;
    struct FrameDeleter {
        void operator()(AVFrame* frame) const;
    };
    using Frame = std::unique_ptr<AVFrame, FrameDeleter>;

    bool start(int width, int height);
    bool feed(const Frame& luma, const Frame& chroma);

    Rate mRate;
    int mWidth = 0;
    int mHeight = 0;
    bool mFailed = false;                // no filter could be made for pictures of this size
    std::unique_ptr<PlaneFilter> mLuma;  // both or none
    std::unique_ptr<PlaneFilter> mChroma;
    Frame mLastLuma;  // pushed last, not yet pulled: what a new filter starts from
    Frame mLastChroma;
    Frame mShownLuma;  // behind the view that pull() gave out
    Frame mShownChroma;

    // What goes with the pictures inside the filters, the oldest first; they are told apart by
    // their numbers.
    std::deque<android::IGraphicBufferProducer::QueueBufferInput> mInputs;
    int64_t mFirstNumber = 0;  // of mInputs.front()
};

}  // namespace orvplay
