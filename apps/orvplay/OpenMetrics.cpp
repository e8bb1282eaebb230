#include "OpenMetrics.h"

namespace orvplay {

namespace {

struct TypeName {
    const char* name;
    const char* suffix;  // of its samples
};

TypeName describe(OpenMetrics::Type type) {
    switch (type) {
        case OpenMetrics::Type::COUNTER:
            return {"counter", "_total"};
        case OpenMetrics::Type::GAUGE:
            return {"gauge", ""};
        case OpenMetrics::Type::SUMMARY:
            return {"summary", ""};
        case OpenMetrics::Type::INFO:
            return {"info", "_info"};
        case OpenMetrics::Type::STATESET:
            break;
    }
    return {"stateset", ""};
}

}  // namespace

std::string OpenMetrics::escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') {
            result += "\\n";
            continue;
        }
        if (c == '\\' || c == '"') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

void OpenMetrics::family(const std::string& name, Type type, const std::string& unit,
                         const std::string& help) {
    const TypeName described = describe(type);
    mSampleName = name + described.suffix;
    mHead = "# TYPE " + name + " " + described.name + "\n";
    if (!unit.empty()) {
        mHead += "# UNIT " + name + " " + unit + "\n";
    }
    mHead += "# HELP " + name + " " + escaped(help) + "\n";
}

void OpenMetrics::sample(const Labels& labels, const std::string& number) {
    mText += mHead + mSampleName;
    mHead.clear();
    char separator = '{';
    for (const auto& [name, value] : labels) {
        mText += separator + name + "=\"" + escaped(value) + "\"";
        separator = ',';
    }
    mText += (labels.empty() ? " " : "} ") + number + "\n";
}

std::string OpenMetrics::finish() {
    return mText + "# EOF\n";
}

}  // namespace orvplay
