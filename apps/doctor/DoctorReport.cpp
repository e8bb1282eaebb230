#include "DoctorReport.h"

#include <algorithm>

namespace orvdoctor {

namespace {

using State = Finding::State;

const char* nameOf(State state) {
    switch (state) {
        case State::OK:
            return "ok";
        case State::NOTE:
            return "note";
        case State::WARNING:
            return "warning";
        default:
            return "missing";
    }
}

std::string padded(std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

nlohmann::ordered_json checksIn(const Findings& findings, State state) {
    auto checks = nlohmann::ordered_json::array();
    for (const Finding& finding : findings) {
        if (finding.state == state) {
            checks.push_back(finding.check);
        }
    }
    return checks;
}

}  // namespace

std::string toText(const Finding& finding) {
    constexpr size_t STATE_WIDTH = 9;
    constexpr size_t CHECK_WIDTH = 9;
    return padded(nameOf(finding.state), STATE_WIDTH) + padded(finding.check, CHECK_WIDTH) +
           finding.text + (finding.fix.empty() ? "" : "; to mend it: " + finding.fix) + "\n";
}

nlohmann::ordered_json toJson(const Finding& finding) {
    return {{"event", "check"},
            {"check", finding.check},
            {"state", nameOf(finding.state)},
            {"text", finding.text},
            {"fix", finding.fix}};
}

nlohmann::ordered_json summaryOf(const Findings& findings) {
    return {{"event", "summary"},
            {"missing", checksIn(findings, State::MISSING)},
            {"warnings", checksIn(findings, State::WARNING)}};
}

bool isComplete(const Findings& findings) {
    return std::none_of(findings.begin(), findings.end(),
                        [](const Finding& finding) { return finding.state == State::MISSING; });
}

}  // namespace orvdoctor
