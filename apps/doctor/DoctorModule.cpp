// The entry of the doctor's module: what it looks at, sound server, fonts and bus, brings libraries
// along that the program has no need of otherwise.

#include <cstdio>

#include "Checks.h"
#include "DoctorReport.h"
#include "EventLog.h"
#include "ExitCode.h"

namespace orvdoctor {

Findings checkAll() {
    Findings findings = {checkTuner(), checkDisplay(), checkSound(), checkFonts()};
    for (Finding& finding : checkCodecs()) {
        findings.push_back(std::move(finding));
    }
    findings.push_back(checkService());
    findings.push_back(checkBus());
    findings.push_back(checkFolders());
    for (Finding& finding : checkLimits()) {
        findings.push_back(std::move(finding));
    }
    return findings;
}

}  // namespace orvdoctor

// Prints what is found; the program's exit code.
extern "C" __attribute__((visibility("default"))) int orvRunDoctor(bool json) {
    using namespace orvdoctor;
    const Findings findings = checkAll();
    orvplay::EventLog log(json);
    for (const Finding& finding : findings) {
        log.writeLine(toJson(finding));
        if (!json) {
            fputs(toText(finding).c_str(), stdout);
        }
    }
    log.writeLine(summaryOf(findings));
    fflush(stdout);
    return isComplete(findings) ? orvplay::EXIT_OK : orvplay::EXIT_FAILED;
}
