#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvtest {

// A PNG file as libpng reads it, which must be 8 bits of red, green and blue.
struct PngFile {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;
    std::map<std::string, std::string> texts;
    uint32_t pixelsPerUnitX = 0;  // chunk pHYs; 0 without one
    uint32_t pixelsPerUnitY = 0;

    std::array<int, 3> at(int x, int y) const;
    // What the bar code of a sample's picture says.
    std::optional<uint32_t> frameNumber() const;
};

// Fails the test, and is empty, when the bytes are no such file.
PngFile decodePng(const std::string& bytes);
std::string readFile(const std::string& path);

}  // namespace orvtest
