#include "PlotScale.h"

#include <algorithm>
#include <cmath>

namespace orvplot {

namespace {

void addColumn(const Point* begin, const Point* end, std::vector<Point>* out) {
    const auto [lowest, highest] = std::minmax_element(
        begin, end, [](const Point& a, const Point& b) { return a.value < b.value; });
    const Point* kept[] = {begin, std::min(lowest, highest), std::max(lowest, highest), end - 1};
    const Point* last = nullptr;
    for (const Point* const point : kept) {
        if (point != last) {
            out->push_back(*point);
        }
        last = point;
    }
}

}  // namespace

void Range::include(double value) {
    low = std::min(low, value);
    high = std::max(high, value);
}

std::vector<Point> thinned(const std::vector<Point>& points, Range time, size_t columns) {
    if (points.size() <= 4 * columns || columns == 0 || !(time.span() > 0.0)) {
        return points;
    }
    const auto columnOf = [&](const Point& point) {
        const double part = std::clamp(time.partOf(point.t), 0.0, 1.0);
        return static_cast<size_t>(part * static_cast<double>(columns));
    };
    std::vector<Point> out;
    out.reserve(4 * columns + 4);
    for (size_t begin = 0; begin < points.size();) {
        const size_t column = columnOf(points[begin]);
        size_t end = begin + 1;
        while (end < points.size() && columnOf(points[end]) <= column) {
            ++end;
        }
        addColumn(&points[begin], points.data() + end, &out);
        begin = end;
    }
    return out;
}

std::vector<double> ticksOf(Range range, int about) {
    const double rough = range.span() / std::max(about, 1);
    if (!(rough > 0.0) || !std::isfinite(rough)) {
        return {};
    }
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    const double digit = rough / power;
    const double step = power * (digit <= 1.0   ? 1.0
                                 : digit <= 2.0 ? 2.0
                                 : digit <= 5.0 ? 5.0
                                                : 10.0);
    std::vector<double> ticks;
    const double slack = step * 1e-6;
    for (double n = std::ceil((range.low - slack) / step); n * step <= range.high + slack;
         n += 1.0) {
        ticks.push_back(n * step);
    }
    return ticks;
}

Range widened(Range range) {
    const double margin = range.span() > 0.0 ? range.span() * 0.06 : 1.0;
    return {range.low - margin, range.high + margin};
}

}  // namespace orvplot
