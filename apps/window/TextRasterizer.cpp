#include "TextRasterizer.h"

#include <ass/ass.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <utility>

namespace orvplay {

namespace {

constexpr int ROW_CHARACTERS = 32;

// Sizes are given for a picture of 1080 rows and scaled by libass.
constexpr int SCRIPT_HEIGHT = 1080;
constexpr std::array FONT_SIZES = {60, 40, 24, 12};  // the largest that fits is taken
constexpr std::array SMALL_FONT_SIZES = {44, 32, 24, 12};
constexpr int BOTTOM_CENTRE = 2;  // alignments of the format
constexpr int TOP_LEFT = 7;
constexpr uint32_t TEXT_COLOUR = 0xFFFFFF;
constexpr int BOX_PADDING = 12;
constexpr int SAFE_AREA_DIVISOR = 20;  // of width and height, on each side

struct TrackDeleter {
    void operator()(ASS_Track* track) const { ass_free_track(track); }
};

std::string headerFor(TextPlace place, int pictureWidth, int pictureHeight, int fontSize) {
    const int64_t width = std::max<int64_t>(int64_t{SCRIPT_HEIGHT} * pictureWidth / pictureHeight,
                                            4 * SAFE_AREA_DIVISOR);
    const auto sideMargin = static_cast<int>(width / SAFE_AREA_DIVISOR + BOX_PADDING);
    char text[900];
    snprintf(text, sizeof text,
             "[Script Info]\nScriptType: v4.00+\nPlayResX: %d\nPlayResY: %d\nWrapStyle: 0\n"
             "ScaledBorderAndShadow: yes\n"
             "[V4+ Styles]\n"
             "Format: Name, Fontname, Fontsize, PrimaryColour, OutlineColour, BackColour, "
             "BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV\n"
             // A box around the whole, three quarters opaque; its padding is the "shadow".
             "Style: Default,sans-serif,%d,&H00%06X,&H00000000,&H40000000,4,2,%d,%d,%d,%d,%d\n"
             "[Events]\n"
             "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n",
             static_cast<int>(width), SCRIPT_HEIGHT, fontSize, TEXT_COLOUR, BOX_PADDING,
             place == TextPlace::BOTTOM ? BOTTOM_CENTRE : TOP_LEFT, sideMargin, sideMargin,
             SCRIPT_HEIGHT / SAFE_AREA_DIVISOR + BOX_PADDING);
    return text;
}

bool isBlank(const std::string& text) {
    return text.find_first_not_of(" \n\r\t") == std::string::npos;
}

// Puts one colour over a pixel, `alpha` of 255 parts of it.
uint32_t over(uint32_t below, uint32_t colour, uint32_t alpha) {
    if (alpha == 0) {
        return below;
    }
    if (below == 0) {
        return alpha << 24 | colour;
    }
    const uint32_t keptAlpha = (below >> 24) * (255 - alpha) / 255;
    const uint32_t sumAlpha = alpha + keptAlpha;
    if (sumAlpha == 0) {
        return 0;
    }
    uint32_t result = sumAlpha << 24;
    for (const int shift : {0, 8, 16}) {
        const uint32_t upper = colour >> shift & 0xFF;
        const uint32_t lower = below >> shift & 0xFF;
        result |= (upper * alpha + lower * keptAlpha) / sumAlpha << shift;
    }
    return result;
}

void blend(const ASS_Image& image, TextBitmap* bitmap) {
    const uint32_t colour = image.color >> 8;  // red, green, blue
    const uint32_t opacity = 255 - (image.color & 0xFF);
    for (int y = 0; y < image.h; ++y) {
        const uint8_t* coverage = image.bitmap + static_cast<ptrdiff_t>(y) * image.stride;
        uint32_t* row =
            &bitmap->pixels[static_cast<size_t>(image.dst_y + y - bitmap->y) * bitmap->width +
                            static_cast<size_t>(image.dst_x - bitmap->x)];
        for (int x = 0; x < image.w; ++x) {
            row[x] = over(row[x], colour, coverage[x] * opacity / 255);
        }
    }
}

// The same for what may reach beyond the bitmap.
void blendInside(const ASS_Image& image, TextBitmap* bitmap) {
    const int left = std::max(image.dst_x, bitmap->x);
    const int top = std::max(image.dst_y, bitmap->y);
    const int right = std::min(image.dst_x + image.w, bitmap->x + bitmap->width);
    const int bottom = std::min(image.dst_y + image.h, bitmap->y + bitmap->height);
    if (left >= right || top >= bottom) {
        return;
    }
    ASS_Image part = image;
    part.bitmap += static_cast<ptrdiff_t>(top - image.dst_y) * image.stride + (left - image.dst_x);
    part.dst_x = left;
    part.dst_y = top;
    part.w = right - left;
    part.h = bottom - top;
    blend(part, bitmap);
}

void fill(const PanelBox& box, TextBitmap* bitmap) {
    const int left = std::max(box.place.x - bitmap->x, 0);
    const int top = std::max(box.place.y - bitmap->y, 0);
    const int right = std::min(box.place.x + box.place.width - bitmap->x, bitmap->width);
    const int bottom = std::min(box.place.y + box.place.height - bitmap->y, bitmap->height);
    for (int y = top; y < bottom; ++y) {
        uint32_t* const row = &bitmap->pixels[static_cast<size_t>(y) * bitmap->width];
        for (int x = left; x < right; ++x) {
            row[x] = over(row[x], box.colour, box.opacity);
        }
    }
}

std::string panelHeader(int width, int height) {
    char text[600];
    snprintf(text, sizeof text,
             "[Script Info]\nScriptType: v4.00+\nPlayResX: %d\nPlayResY: %d\nWrapStyle: 2\n"
             "[V4+ Styles]\n"
             "Format: Name, Fontname, Fontsize, PrimaryColour, OutlineColour, BackColour, "
             "BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV\n"
             "Style: Default,sans-serif,20,&H00FFFFFF,&H00000000,&H00000000,1,0,0,7,0,0,0\n"
             "[Events]\n"
             "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n",
             width, height);
    return text;
}

// Where it stands, how it looks, and no more of it than the cell has room for.
std::string panelEvent(const PanelText& text) {
    constexpr int TOP_CENTRE = 8;
    constexpr int TOP_RIGHT = 9;
    const PanelRect& cell = text.cell;
    const int right = cell.x + cell.width;
    const bool isLeft = text.side == PanelText::Side::LEFT;
    const bool isRight = text.side == PanelText::Side::RIGHT;
    const int x = isLeft ? cell.x : isRight ? right : cell.x + cell.width / 2;
    char commands[200];
    snprintf(commands, sizeof commands,
             "{\\an%d\\pos(%d,%d)\\fs%d\\b%d\\1c&H%02X%02X%02X&\\clip(%d,%d,%d,%d)}",
             isLeft    ? TOP_LEFT
             : isRight ? TOP_RIGHT
                       : TOP_CENTRE,
             x, cell.y, cell.height, text.isBold ? 1 : 0, text.colour & 0xFF,
             text.colour >> 8 & 0xFF, text.colour >> 16 & 0xFF, cell.x, cell.y - cell.height / 4,
             right, cell.y + cell.height * 3 / 2);
    return commands + assTextOf(panel::fitted(text), TextPlace::CORNER);
}

// Makes the bitmap as large as all images together.
void cover(const ASS_Image* images, TextBitmap* bitmap) {
    int left = images->dst_x;
    int top = images->dst_y;
    int right = left;
    int bottom = top;
    for (const ASS_Image* image = images; image != nullptr; image = image->next) {
        left = std::min(left, image->dst_x);
        top = std::min(top, image->dst_y);
        right = std::max(right, image->dst_x + image->w);
        bottom = std::max(bottom, image->dst_y + image->h);
    }
    bitmap->x = left;
    bitmap->y = top;
    bitmap->width = right - left;
    bitmap->height = bottom - top;
    bitmap->pixels.assign(static_cast<size_t>(bitmap->width) * bitmap->height, 0);
}

// Told by their colour: libass leaves the type of the box's image unset.
bool hasCharacters(const ASS_Image* images) {
    for (const ASS_Image* image = images; image != nullptr; image = image->next) {
        if (image->color >> 8 == TEXT_COLOUR && image->w > 0 && image->h > 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string assTextOf(const std::string& utf8, TextPlace place) {
    const int rowCharacters = place == TextPlace::BOTTOM ? ROW_CHARACTERS : INT_MAX;
    std::string text;
    int column = 0;
    const size_t end = utf8.find_last_not_of('\n') + 1;  // 0 when there is nothing else
    for (size_t i = 0; i < end; ++i) {
        const char byte = utf8[i];
        if (byte == '\n') {
            text += "\\N";
            column = 0;
            continue;
        }
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x20 || value == 0x7F) {
            continue;
        }
        if ((value & 0xC0) != 0x80 && column++ == rowCharacters) {
            text += "\\N";
            column = 1;
        }
        if (byte == '{' || byte == '}') {
            text += '\\';
        }
        text += byte;
        if (byte == '\\') {
            text += "\u2060";  // a word joiner, unseen, parts it from what follows
        }
    }
    return text;
}

void TextRasterizer::LibraryDeleter::operator()(ass_library* library) const {
    ass_library_done(library);
}

void TextRasterizer::RendererDeleter::operator()(ass_renderer* renderer) const {
    ass_renderer_done(renderer);
}

TextRasterizer::TextRasterizer() : mLibrary(ass_library_init()) {
    if (mLibrary == nullptr) {
        return;
    }
    ass_set_message_cb(
        mLibrary.get(), [](int, const char*, va_list, void*) {}, nullptr);
    mRenderer.reset(ass_renderer_init(mLibrary.get()));
    if (mRenderer != nullptr) {
        ass_set_fonts(mRenderer.get(), nullptr, "sans-serif", ASS_FONTPROVIDER_AUTODETECT, nullptr,
                      1);
    }
}

TextRasterizer::~TextRasterizer() = default;

bool TextRasterizer::rasterize(const std::string& utf8, TextPlace place, int pictureWidth,
                               int pictureHeight, TextBitmap* bitmap) {
    *bitmap = {};
    if (isBlank(utf8) || mRenderer == nullptr || pictureWidth < 1 || pictureHeight < 1) {
        return false;
    }
    const std::string text = assTextOf(utf8, place);
    ass_set_frame_size(mRenderer.get(), pictureWidth, pictureHeight);
    for (const int fontSize : place == TextPlace::BOTTOM ? FONT_SIZES : SMALL_FONT_SIZES) {
        if (!draw(headerFor(place, pictureWidth, pictureHeight, fontSize), text, bitmap)) {
            return false;
        }
        if (bitmap->width <= pictureWidth - 2 * (pictureWidth / SAFE_AREA_DIVISOR)) {
            break;
        }
    }
    // Rows of a font that stands in for missing characters reach deeper.
    const int lowest = pictureHeight - pictureHeight / SAFE_AREA_DIVISOR - bitmap->height;
    bitmap->y = std::max(std::min(bitmap->y, lowest), 0);
    return true;
}

void TextRasterizer::rasterize(const Panel& panel, int windowWidth, int windowHeight,
                               TextBitmap* bitmap) {
    *bitmap = {panel.area.x, panel.area.y, panel.area.width, panel.area.height, {}};
    bitmap->pixels.assign(static_cast<size_t>(bitmap->width) * bitmap->height, 0);
    for (const PanelBox& box : panel.boxes) {
        fill(box, bitmap);
    }
    const std::unique_ptr<ASS_Track, TrackDeleter> track(
        mRenderer != nullptr ? ass_new_track(mLibrary.get()) : nullptr);
    if (track == nullptr) {
        return;
    }
    std::string header = panelHeader(windowWidth, windowHeight);
    ass_process_codec_private(track.get(), header.data(), static_cast<int>(header.size()));
    int number = 0;
    for (const PanelText& text : panel.texts) {
        std::string event = std::to_string(number++) + ",0,Default,,0,0,0,," + panelEvent(text);
        ass_process_chunk(track.get(), event.data(), static_cast<int>(event.size()), 0, 1);
    }
    ass_set_frame_size(mRenderer.get(), windowWidth, windowHeight);
    const ASS_Image* image = ass_render_frame(mRenderer.get(), track.get(), 0, nullptr);
    for (; image != nullptr; image = image->next) {
        blendInside(*image, bitmap);
    }
}

bool TextRasterizer::draw(std::string header, const std::string& text, TextBitmap* bitmap) {
    const std::unique_ptr<ASS_Track, TrackDeleter> track(ass_new_track(mLibrary.get()));
    if (track == nullptr) {
        return false;
    }
    ass_process_codec_private(track.get(), header.data(), static_cast<int>(header.size()));
    std::string event = "0,0,Default,,0,0,0,," + text;
    ass_process_chunk(track.get(), event.data(), static_cast<int>(event.size()), 0, 1);
    const ASS_Image* images = ass_render_frame(mRenderer.get(), track.get(), 0, nullptr);
    if (!hasCharacters(images)) {
        if (!std::exchange(mFontMissed, true)) {
            fprintf(stderr,
                    "orvplay: texts cannot be shown: no font has their characters; "
                    "install fonts-dejavu-core\n");
        }
        return false;
    }
    cover(images, bitmap);
    for (const ASS_Image* image = images; image != nullptr; image = image->next) {
        blend(*image, bitmap);
    }
    return true;
}

}  // namespace orvplay
