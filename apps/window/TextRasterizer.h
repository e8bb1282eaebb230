#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Panel.h"

struct ass_library;
struct ass_renderer;

namespace orvplay {

// Where text goes in the picture: captions at the bottom, the player's own status in the upper left
// corner, smaller.
enum class TextPlace { BOTTOM, CORNER };

// A text as pixels: 0xAARRGGBB, colours not multiplied by alpha, and where they go in the
// picture.
struct TextBitmap {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    std::vector<uint32_t> pixels;
};

// Text as libass reads it: a row ends at a line feed and, of captions, after 32 characters, for a
// full row of the broadcast (ARIB STD-B24) carries no line feed. Nothing in the text acts as a
// command.
std::string assTextOf(const std::string& utf8, TextPlace place);

// Draws text with libass and the system's sans-serif font: white rows on a dark box at its place in
// the title-safe area, which leaves out a twentieth of the picture on each side. A row that is too
// wide for that is wrapped, a word that is makes all of it smaller. Not thread-safe.
class TextRasterizer {
public:
    // Looks for fonts, which may read files.
    TextRasterizer();
    ~TextRasterizer();
    TextRasterizer(const TextRasterizer&) = delete;  // owns handles
    TextRasterizer& operator=(const TextRasterizer&) = delete;

    // Draws UTF-8 text for a picture of that size. False, and nothing in the bitmap, when there is
    // nothing to be seen; where that is for want of a font, standard error says so once.
    bool rasterize(const std::string& utf8, TextPlace place, int pictureWidth, int pictureHeight,
                   TextBitmap* bitmap);

    // Draws a panel of a window of that size; the bitmap is its area.
    void rasterize(const Panel& panel, int windowWidth, int windowHeight, TextBitmap* bitmap);

private:
    struct LibraryDeleter {
        void operator()(ass_library* library) const;
    };
    struct RendererDeleter {
        void operator()(ass_renderer* renderer) const;
    };

    bool draw(std::string header, const std::string& text, TextBitmap* bitmap);

    std::unique_ptr<ass_library, LibraryDeleter> mLibrary;
    std::unique_ptr<ass_renderer, RendererDeleter> mRenderer;  // before the library
    bool mFontMissed = false;                                  // said so once
};

}  // namespace orvplay
