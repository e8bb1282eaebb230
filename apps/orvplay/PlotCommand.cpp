#include "PlotCommand.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

#include "ExitCode.h"
#include "Messages.h"
#include "TimingPlot.h"

namespace orvplay {

int plotCommand(const PlotOptions& options) {
    Messages messages;
    std::ifstream file;
    const bool isPipe = options.file == "-";
    if (!isPipe) {
        file.open(options.file);
    }
    if (!isPipe && !file) {
        return messages.fail(EXIT_SOURCE,
                             options.file + ": cannot be read: " + std::strerror(errno));
    }
    const orvplot::TimingData data = orvplot::TimingData::read(isPipe ? std::cin : file);
    const std::string bad = std::to_string(data.badLines);
    if (data.isEmpty()) {
        return messages.fail(
            EXIT_SOURCE,
            options.file + ": nothing to plot" +
                (data.badLines > 0 ? "; " + bad + " lines are none of --timing" : "; it is empty") +
                "; write one with: orvplay play SOURCE --timing FILE.jsonl");
    }
    if (const std::string error = orvplot::plotTiming(data, options.out); !error.empty()) {
        return messages.fail(EXIT_FAILED, options.out + ": cannot be written: " + error);
    }
    if (data.badLines > 0) {
        messages.say(options.file + ": " + bad + " lines are none of --timing; they are left out");
    }
    return EXIT_OK;
}

}  // namespace orvplay
