#pragma once

#include <string>
#include <vector>

#include "TimingData.h"

namespace orvplot {

// Where the label of a fault stands above the panels.
struct FaultLabel {
    size_t fault;  // which one
    int row;       // 0: next to the panels
};

// Rows for labels at these places, in pixels, ascending, so that none overlaps another: the first
// row where there is room. Labels for which there is none in `rows` rows are left out.
std::vector<FaultLabel> placeLabels(const std::vector<double>& begins,
                                    const std::vector<double>& widths, int rows);

// Whether the name of a file says what kind of picture it is to be.
bool canPlotTo(const std::string& path);

// Four panels over one time axis: sound against picture, how early pictures and sound were ready,
// the fill of the buffers, and pictures that were not shown; faults go across all of them.
//
// To a file that canPlotTo() takes. Empty, or why it cannot be written.
std::string plotTiming(const TimingData& data, const std::string& path);

}  // namespace orvplot
