#pragma once

#include <memory>
#include <string>
#include <vector>

#include "PlotScale.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;

namespace orvplot {

struct Colour {
    double red, green, blue;
    double alpha = 1.0;
};

struct Box {
    double x, y, width, height;

    double right() const { return x + width; }
    double bottom() const { return y + height; }
};

// A sheet to draw on: a PNG of pixels or an SVG, by the name of its file. What goes wrong shows in
// finish().
class PlotPainter {
public:
    enum class Align { LEFT, CENTRE, RIGHT };

    static bool canWrite(const std::string& path);

    PlotPainter(const std::string& path, int width, int height);
    ~PlotPainter();
    PlotPainter(const PlotPainter&) = delete;  // it owns the sheet
    PlotPainter& operator=(const PlotPainter&) = delete;

    void fill(const Box& box, Colour colour);
    void frame(const Box& box, Colour colour);
    void line(double x1, double y1, double x2, double y2, Colour colour, bool isDashed = false);
    // Points in pixels; what is outside the box is cut off. Where two are further apart in x than
    // `longest`, there is nothing between them.
    void curve(const std::vector<Point>& pixels, double longest, const Box& box, Colour colour,
               bool isDashed);

    // `x` is where the text begins, its middle or its end; `y` its base line.
    void text(double x, double y, const std::string& utf8, Align align = Align::LEFT,
              double size = 12.0, bool isBold = false);
    // Upwards, centred at y.
    void textUpwards(double x, double y, const std::string& utf8);
    double widthOf(const std::string& utf8, double size = 12.0);

    // Writes the file. Empty, or why it cannot be written.
    std::string finish();

private:
    void use(Colour colour);
    void useFont(double size, bool isBold);

    const std::string mPath;
    cairo_surface_t* mSurface = nullptr;
    cairo_t* mSheet = nullptr;
};

}  // namespace orvplot
