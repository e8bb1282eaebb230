// Decodes one service of a file with libavformat and libavcodec and reads the marks of the test
// pattern in what comes out.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

struct AVFrame;

namespace orvtest {

struct DecodedFrame {
    std::optional<uint32_t> number;
    bool flash = false;
    bool interlaced = false;
    int64_t ptsUs = 0;
};

struct DecodedService {
    std::vector<DecodedFrame> frames;  // in presentation order
    std::vector<int64_t> beepsUs;
    std::string audioCodec;
    int64_t audioSamples = 0;
    int errors = 0;  // messages of error level and results below zero
};

// Throws std::runtime_error when the file or the service cannot be opened. `look` is shown each
// picture with its planes.
DecodedService decodeService(
    const std::string& path, int serviceId,
    const std::function<void(const DecodedFrame&, const AVFrame&)>& look = {});

}  // namespace orvtest
