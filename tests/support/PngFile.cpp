#include "support/PngFile.h"

#include <gtest/gtest.h>
#include <png.h>

#include <csetjmp>
#include <cstring>
#include <fstream>
#include <iterator>

#include "pattern/TestPattern.h"

namespace orvtest {
namespace {

struct Reader {
    const std::string* bytes;
    size_t at;
};

void readBytes(png_structp png, png_bytep to, size_t count) {
    auto* reader = static_cast<Reader*>(png_get_io_ptr(png));
    if (count > reader->bytes->size() - reader->at) {
        png_error(png, "the file ends early");
    }
    memcpy(to, reader->bytes->data() + reader->at, count);
    reader->at += count;
}

// Only trivial objects may live here: a failure leaves by longjmp.
bool read(png_structp png, png_infop info, Reader* reader) {
    if (setjmp(png_jmpbuf(png)) != 0) {
        return false;
    }
    png_set_read_fn(png, reader, readBytes);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    return png_get_color_type(png, info) == PNG_COLOR_TYPE_RGB && png_get_bit_depth(png, info) == 8;
}

void take(png_structp png, png_infop info, PngFile* file) {
    file->width = static_cast<int>(png_get_image_width(png, info));
    file->height = static_cast<int>(png_get_image_height(png, info));
    png_bytepp rows = png_get_rows(png, info);
    for (int y = 0; y < file->height; ++y) {
        file->pixels.insert(file->pixels.end(), rows[y], rows[y] + 3 * file->width);
    }
    png_textp texts = nullptr;
    const int count = png_get_text(png, info, &texts, nullptr);
    for (int i = 0; i < count; ++i) {
        file->texts[texts[i].key] = texts[i].text;
    }
    int unit = 0;
    png_get_pHYs(png, info, &file->pixelsPerUnitX, &file->pixelsPerUnitY, &unit);
}

}  // namespace

std::array<int, 3> PngFile::at(int x, int y) const {
    const uint8_t* pixel = &pixels[static_cast<size_t>(3 * (y * width + x))];
    return {pixel[0], pixel[1], pixel[2]};
}

// The bar code is grey: one channel is as good as luma.
std::optional<uint32_t> PngFile::frameNumber() const {
    std::vector<uint8_t> green;
    for (size_t i = 1; i < pixels.size(); i += 3) {
        green.push_back(pixels[i]);
    }
    return green.empty() ? std::nullopt : readFrameNumber(green.data(), width, width, height);
}

PngFile decodePng(const std::string& bytes) {
    PngFile file;
    Reader reader{&bytes, 0};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (read(png, info, &reader)) {
        take(png, info, &file);
    } else {
        ADD_FAILURE() << "no PNG file of " << bytes.size() << " bytes";
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return file;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << path;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace orvtest
