#pragma once

#include <system/graphics.h>

#include <cstdint>

namespace android {

using PixelFormat = int32_t;

// 8-bit 4:2:0, semi-planar: a luma plane, then one plane of interleaved Cb, Cr pairs. The only
// format of the host's graphic buffers.
constexpr PixelFormat PIXEL_FORMAT_YCBCR_420_SP = 0x105;

}  // namespace android
