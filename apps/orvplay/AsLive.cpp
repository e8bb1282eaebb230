#include "AsLive.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <string>

#include "ExitCode.h"
#include "PlaySource.h"
#include "dtv/SourceUri.h"
#include "dtv/aslive/FaultScript.h"

using orvhost::FaultScript;

namespace orvplay {

namespace {

// "Not more than a script may be" is for the parser to say.
bool readFile(const std::string& path, std::string* text) {
    std::ifstream file(path, std::ios::binary);
    text->resize(FaultScript::MAX_BYTES + 1);
    file.read(text->data(), static_cast<std::streamsize>(text->size()));
    text->resize(static_cast<size_t>(file.gcount()));
    return !file.bad() && (file.eof() || file.good() || file.gcount() > 0);
}

}  // namespace

int readFaultScript(PlayOptions* options, Messages& messages) {
    if (options->asLive.empty()) {
        return EXIT_OK;
    }
    const std::string& source = options->source;
    if (source == "-" || orvhost::SourceUri::isUri(source) || recordingNumberOf(source) ||
        isMediaFile(source)) {
        return messages.fail(EXIT_USAGE,
                             "--as-live: " + source + " is no transport stream file; give one");
    }
    if (options->asLive == "-") {
        return EXIT_OK;
    }
    errno = 0;
    if (!readFile(options->asLive, &options->faults)) {
        return messages.fail(EXIT_USAGE, options->asLive + ": cannot be read: " +
                                             std::strerror(errno != 0 ? errno : EIO));
    }
    std::string error;
    if (!FaultScript::parse(options->faults, &error)) {
        return messages.fail(EXIT_USAGE, options->asLive + ": " + error);
    }
    return EXIT_OK;
}

void tellFaults(orvclient::Tuner& tuner, EventLog& events, TimingLog& timing) {
    for (const orvhost::SourceFault& fault : tuner.takeFaults()) {
        const double seconds = static_cast<double>(fault.timeNs - events.beginNs()) * 1e-9;
        nlohmann::ordered_json more = {{"text", fault.text}};
        if (fault.lengthMs > 0) {
            more["ms"] = fault.lengthMs;
        }
        timing.onFault("injected", fault.timeNs, more);
        more["t"] = std::round(seconds * 1000) / 1000;
        events.write("fault", more);
    }
}

}  // namespace orvplay
