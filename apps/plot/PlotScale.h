#pragma once

#include <cstddef>
#include <vector>

namespace orvplot {

struct Point {
    double t = 0.0;  // seconds
    double value = 0.0;
};

// From where to where an axis goes.
struct Range {
    double low = 0.0;
    double high = 0.0;

    double span() const { return high - low; }
    // Where a value is on it, 0 to 1.
    double partOf(double value) const { return (value - low) / span(); }
    void include(double value);
};

// The same curve in so many columns of pixels: of each column the first point, the lowest, the
// highest and the last, in their order. Nothing that stands out is lost, however long the run.
// Points come by time; those that are out of order stay in the column of the time before.
std::vector<Point> thinned(const std::vector<Point>& points, Range time, size_t columns);

// Round numbers within the range, about so many, the distance of two being 1, 2 or 5 times a power
// of ten.
std::vector<double> ticksOf(Range range, int about);

// A little wider, so that no curve lies on the frame, and never empty.
Range widened(Range range);

}  // namespace orvplot
