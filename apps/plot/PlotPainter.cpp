#include "PlotPainter.h"

#include <cairo-svg.h>
#include <cairo.h>

namespace orvplot {

namespace {

constexpr double LINE_WIDTH = 1.2;
constexpr double DASH[] = {5.0, 3.0};
constexpr Colour TEXT = {0.13, 0.13, 0.13};

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

bool PlotPainter::canWrite(const std::string& path) {
    return endsWith(path, ".png") || endsWith(path, ".svg");
}

PlotPainter::PlotPainter(const std::string& path, int width, int height)
    : mPath(path),
      mSurface(endsWith(path, ".svg")
                   ? cairo_svg_surface_create(path.c_str(), width, height)
                   : cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)),
      mSheet(cairo_create(mSurface)) {
    fill({0, 0, static_cast<double>(width), static_cast<double>(height)}, {1, 1, 1});
    cairo_set_line_join(mSheet, CAIRO_LINE_JOIN_ROUND);
}

PlotPainter::~PlotPainter() {
    cairo_destroy(mSheet);
    cairo_surface_destroy(mSurface);
}

void PlotPainter::use(Colour colour) {
    cairo_set_source_rgba(mSheet, colour.red, colour.green, colour.blue, colour.alpha);
}

void PlotPainter::fill(const Box& box, Colour colour) {
    use(colour);
    cairo_rectangle(mSheet, box.x, box.y, box.width, box.height);
    cairo_fill(mSheet);
}

void PlotPainter::frame(const Box& box, Colour colour) {
    use(colour);
    cairo_set_dash(mSheet, nullptr, 0, 0);
    cairo_set_line_width(mSheet, 1.0);
    cairo_rectangle(mSheet, box.x, box.y, box.width, box.height);
    cairo_stroke(mSheet);
}

void PlotPainter::line(double x1, double y1, double x2, double y2, Colour colour, bool isDashed) {
    use(colour);
    cairo_set_dash(mSheet, DASH, isDashed ? 2 : 0, 0);
    cairo_set_line_width(mSheet, 1.0);
    cairo_move_to(mSheet, x1, y1);
    cairo_line_to(mSheet, x2, y2);
    cairo_stroke(mSheet);
}

void PlotPainter::curve(const std::vector<Point>& pixels, double longest, const Box& box,
                        Colour colour, bool isDashed) {
    cairo_save(mSheet);
    cairo_rectangle(mSheet, box.x, box.y, box.width, box.height);
    cairo_clip(mSheet);
    use(colour);
    cairo_set_dash(mSheet, DASH, isDashed ? 2 : 0, 0);
    cairo_set_line_width(mSheet, LINE_WIDTH);
    double last = 0.0;
    for (const Point& pixel : pixels) {
        if (pixel.t - last > longest) {
            cairo_move_to(mSheet, pixel.t, pixel.value);
        }
        cairo_line_to(mSheet, pixel.t, pixel.value);
        last = pixel.t;
    }
    cairo_stroke(mSheet);
    cairo_restore(mSheet);
}

void PlotPainter::useFont(double size, bool isBold) {
    cairo_select_font_face(mSheet, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(mSheet, size);
    use(TEXT);
}

double PlotPainter::widthOf(const std::string& utf8, double size) {
    useFont(size, false);
    cairo_text_extents_t extents = {};
    cairo_text_extents(mSheet, utf8.c_str(), &extents);
    return extents.x_advance;
}

void PlotPainter::text(double x, double y, const std::string& utf8, Align align, double size,
                       bool isBold) {
    const double width = align == Align::LEFT ? 0.0 : widthOf(utf8, size);
    useFont(size, isBold);
    cairo_move_to(mSheet,
                  align == Align::LEFT    ? x
                  : align == Align::RIGHT ? x - width
                                          : x - width / 2,
                  y);
    cairo_show_text(mSheet, utf8.c_str());
}

void PlotPainter::textUpwards(double x, double y, const std::string& utf8) {
    cairo_save(mSheet);
    cairo_translate(mSheet, x, y);
    cairo_rotate(mSheet, -1.5707963267948966);
    text(0, 0, utf8, Align::CENTRE);
    cairo_restore(mSheet);
}

std::string PlotPainter::finish() {
    cairo_status_t status = cairo_status(mSheet);
    if (status == CAIRO_STATUS_SUCCESS && !endsWith(mPath, ".svg")) {
        status = cairo_surface_write_to_png(mSurface, mPath.c_str());
    }
    cairo_surface_finish(mSurface);
    if (status == CAIRO_STATUS_SUCCESS) {
        status = cairo_surface_status(mSurface);
    }
    return status == CAIRO_STATUS_SUCCESS ? std::string() : cairo_status_to_string(status);
}

}  // namespace orvplot
