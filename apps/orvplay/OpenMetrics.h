#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvplay {

// Writes metrics as OpenMetrics 1.0 text: families one after another, each with its samples, and
// "# EOF" at the end.
//
//   OpenMetrics text;
//   text.family("orvplay_captions", OpenMetrics::Type::COUNTER, "", "Captions");
//   text.sample({{"pid", "4711"}}, "12");
//   fputs(text.finish().c_str(), stdout);
class OpenMetrics {
public:
    enum class Type { COUNTER, GAUGE, SUMMARY, INFO, STATESET };
    using Labels = std::vector<std::pair<std::string, std::string>>;

    // Whose samples follow. Names are without what the type adds to them ("_total", "_info"), and
    // end with "_" and the unit where there is one. One without samples leaves no trace.
    void family(const std::string& name, Type type, const std::string& unit,
                const std::string& help);
    // The number as text: an integer, or a decimal fraction. A SUMMARY is told by its quantiles.
    void sample(const Labels& labels, const std::string& number);
    // All of it.
    std::string finish();

    // With backslashes, quotes and line ends escaped.
    static std::string escaped(std::string_view text);

private:
    std::string mHead;  // of the family, until its first sample
    std::string mSampleName;
    std::string mText;
};

}  // namespace orvplay
