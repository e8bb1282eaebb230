#include <cstdint>
#include <vector>

#include "support/H264Builder.h"
#include "support/TestStreams.h"

// libx264 codes interlaced frames only as frames. Field pictures, which broadcasts are full of, are
// simple enough to write by hand as long as no sample is compressed (ITU-T H.264, 7.3).
namespace orvtest {

namespace {

using namespace OrvPlayer::h264;

constexpr unsigned MACROBLOCKS_OF_FIELD = 4 * 2;

Bytes parameterSets() {
    SpsFields fields;                 // 64 x 64
    fields.poc = Bits().ue(0).ue(4);  // pic_order_cnt_lsb has 8 bits
    fields.refFrames = 1;
    fields.widthMbs = 4;
    fields.mapUnits = 2;
    fields.frameMbsOnly = false;
    fields.mbAdaptive = false;
    fields.vui = false;
    Bits set;
    set.ue(0).ue(0).u(2, 0);        // CAVLC, no order of the bottom field
    set.ue(0).ue(0).ue(0).u(3, 0);  // one slice group, no weighting
    set.ue(0).ue(0).ue(0).u(3, 0);  // QP 26
    return sps(fields) + nal(8, set.trailing().bytes());
}

Bytes field(int frame, bool bottom) {
    const bool idr = frame == 0 && !bottom;
    Bits slice;
    slice.ue(0).ue(7).ue(0);                                             // the first; all I
    slice.u(4, static_cast<unsigned>(frame % 16)).u(1, 1).u(1, bottom);  // a field
    if (idr) {
        slice.ue(0);  // idr_pic_id
    }
    slice.u(8, static_cast<unsigned>(2 * frame + (bottom ? 1 : 0)));  // pic_order_cnt_lsb
    slice.u(idr ? 2 : 1, 0).ue(0);                                    // marking, QP
    const unsigned luma = static_cast<unsigned>(lumaOfFrame(frame) + (bottom ? 20 : 0));
    for (unsigned macroblock = 0; macroblock < MACROBLOCKS_OF_FIELD; ++macroblock) {
        slice.ue(25).align();  // I_PCM
        for (unsigned sample = 0; sample < 384; ++sample) {
            slice.u(8, sample < 256 ? luma : 128);
        }
    }
    return nal(idr ? 5 : 1, slice.trailing().bytes());
}

}  // namespace

Stream makeFieldPairs(int frames) {
    Stream stream;
    for (int number = 0; number < 2 * frames; ++number) {
        const Bytes sets = number == 0 ? parameterSets() : Bytes();
        stream.units.push_back(
            {aud() + sets + field(number / 2, number % 2 != 0), number * FRAME_US / 2});
    }
    return stream;
}

}  // namespace orvtest
