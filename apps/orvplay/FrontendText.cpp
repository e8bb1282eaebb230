#include "FrontendText.h"

#include <cstdio>

using orvhost::DvbFigure;
using orvhost::DvbSignal;
using orvhost::FrontendStatistics;

namespace orvplay {

namespace {

void addFigure(nlohmann::ordered_json* line, const std::string& name, const char* decibel,
               const DvbFigure& figure) {
    if (figure.scale == DvbFigure::Scale::DECIBEL) {
        (*line)[name + decibel] = figure.value;
    } else if (figure.scale == DvbFigure::Scale::PERCENT) {
        (*line)[name + "Percent"] = figure.value;
    }
}

std::string figureText(const char* what, const char* decibel, const DvbFigure& figure) {
    char text[64] = "";
    if (figure.scale != DvbFigure::Scale::NONE) {
        const bool isDecibel = figure.scale == DvbFigure::Scale::DECIBEL;
        snprintf(text, sizeof text, ", %s %.1f %s", what, figure.value, isDecibel ? decibel : "%");
    }
    return text;
}

std::string rateText(const char* what, double rate) {
    char text[64] = "";
    if (rate >= 0) {
        snprintf(text, sizeof text, ", %s %.1e", what, rate);
    }
    return text;
}

}  // namespace

nlohmann::ordered_json frontendJson(const FrontendStatistics& frontend) {
    const DvbSignal& signal = frontend.signal;
    nlohmann::ordered_json line = {{"lock", signal.lock}, {"carrier", signal.carrier}};
    addFigure(&line, "strength", "Dbm", signal.strength);
    addFigure(&line, "carrierToNoise", "Db", signal.carrierToNoise);
    if (signal.bitErrorRate >= 0) {
        line["bitErrorRate"] = signal.bitErrorRate;
    }
    if (signal.packetErrorRate >= 0) {
        line["packetErrorRate"] = signal.packetErrorRate;
    }
    line["overflows"] = frontend.overflows;
    return line;
}

std::string frontendText(const FrontendStatistics& frontend) {
    if (!frontend.present) {
        return {};
    }
    const DvbSignal& signal = frontend.signal;
    const char* const state = signal.lock      ? "locked"
                              : signal.carrier ? "a carrier, not locked"
                                               : "no signal";
    return std::string("Adapter:  ") + state + figureText("strength", "dBm", signal.strength) +
           figureText("C/N", "dB", signal.carrierToNoise) +
           rateText("bit errors", signal.bitErrorRate) +
           rateText("lost blocks", signal.packetErrorRate) + ", buffer ran over " +
           std::to_string(frontend.overflows) + " times\n";
}

}  // namespace orvplay
