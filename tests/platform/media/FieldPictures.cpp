#include <cstdint>
#include <vector>

#include "TestStreams.h"

// libx264 codes interlaced frames only as frames. Field pictures, which broadcasts are full of, are
// simple enough to write by hand as long as no sample is compressed (ITU-T H.264, 7.3).
namespace orvtest {

namespace {

constexpr unsigned MACROBLOCKS_OF_FIELD = 4 * 2;

class BitWriter {
public:
    void u(unsigned count, unsigned value) {
        while (count-- > 0) {
            mCurrent = static_cast<uint8_t>(mCurrent << 1 | (value >> count & 1));
            if (++mBits == 8) {
                mBytes.push_back(mCurrent);
                mBits = 0;
            }
        }
    }
    void ue(unsigned value) {
        unsigned bits = 0;
        while ((value + 1) >> (bits + 1) != 0) {
            ++bits;
        }
        u(bits, 0);
        u(bits + 1, value + 1);
    }
    void align() {
        while (mBits != 0) {
            u(1, 0);
        }
    }
    // With the stop bit, the start code and the bytes that prevent a start code inside.
    void appendNal(unsigned header, std::vector<uint8_t>* out) {
        u(1, 1);
        align();
        out->insert(out->end(), {0, 0, 0, 1, static_cast<uint8_t>(header)});
        int zeros = 0;
        for (const uint8_t byte : mBytes) {
            if (zeros == 2 && byte <= 3) {
                out->push_back(3);
                zeros = 0;
            }
            out->push_back(byte);
            zeros = byte == 0 ? zeros + 1 : 0;
        }
    }

private:
    std::vector<uint8_t> mBytes;
    uint8_t mCurrent = 0;
    int mBits = 0;
};

void appendParameterSets(std::vector<uint8_t>* out) {
    BitWriter sps;
    sps.u(8, 77);  // Main profile
    sps.u(8, 0);
    sps.u(8, 30);  // level 3
    sps.ue(0);     // seq_parameter_set_id
    sps.ue(0);     // frame_num has 4 bits
    sps.ue(0);     // pic_order_cnt_type
    sps.ue(4);     // pic_order_cnt_lsb has 8 bits
    sps.ue(1);     // max_num_ref_frames
    sps.u(1, 0);
    sps.ue(3);    // 4 macroblocks wide
    sps.ue(1);    // 2 map units of a field high
    sps.u(1, 0);  // frame_mbs_only_flag
    sps.u(1, 0);  // mb_adaptive_frame_field_flag
    sps.u(1, 1);  // direct_8x8_inference_flag
    sps.u(1, 0);  // no cropping
    sps.u(1, 0);  // no VUI
    sps.appendNal(0x67, out);

    BitWriter pps;
    pps.ue(0);
    pps.ue(0);
    pps.u(2, 0);  // CAVLC, no order of the bottom field
    pps.ue(0);    // one slice group
    pps.ue(0);
    pps.ue(0);
    pps.u(3, 0);  // no weighting
    pps.ue(0);    // QP 26
    pps.ue(0);
    pps.ue(0);
    pps.u(3, 0);
    pps.appendNal(0x68, out);
}

void appendField(int frame, bool bottom, std::vector<uint8_t>* out) {
    const bool idr = frame == 0 && !bottom;
    BitWriter slice;
    slice.ue(0);  // first_mb_in_slice
    slice.ue(7);  // all I
    slice.ue(0);
    slice.u(4, static_cast<unsigned>(frame % 16));  // frame_num
    slice.u(1, 1);                                  // field_pic_flag
    slice.u(1, bottom ? 1 : 0);
    if (idr) {
        slice.ue(0);  // idr_pic_id
    }
    slice.u(8, static_cast<unsigned>(2 * frame + (bottom ? 1 : 0)));  // pic_order_cnt_lsb
    slice.u(idr ? 2 : 1, 0);                                          // dec_ref_pic_marking
    slice.ue(0);                                                      // slice_qp_delta
    const unsigned luma = static_cast<unsigned>(lumaOfFrame(frame) + (bottom ? 20 : 0));
    for (unsigned macroblock = 0; macroblock < MACROBLOCKS_OF_FIELD; ++macroblock) {
        slice.ue(25);  // I_PCM
        slice.align();
        for (unsigned sample = 0; sample < 384; ++sample) {
            slice.u(8, sample < 256 ? luma : 128);
        }
    }
    slice.appendNal(idr ? 0x65 : 0x61, out);
}

}  // namespace

Stream makeFieldPairs(int frames) {
    Stream stream;
    for (int field = 0; field < 2 * frames; ++field) {
        Unit unit;
        unit.timeUs = field * FRAME_US / 2;
        unit.bytes = {0, 0, 0, 1, 9, 0x10};  // access unit delimiter
        if (field == 0) {
            appendParameterSets(&unit.bytes);
        }
        appendField(field / 2, field % 2 != 0, &unit.bytes);
        stream.units.push_back(unit);
    }
    return stream;
}

}  // namespace orvtest
