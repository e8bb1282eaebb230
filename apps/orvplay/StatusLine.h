#pragma once

#include <cstdint>
#include <string>

namespace orvplay {

// A line that is written over in place, on a terminal only and never with NO_COLOR set. It goes
// to standard error: messages end it first with clear().
class StatusLine {
public:
    StatusLine();
    ~StatusLine() { clear(); }

    // Shows the text; calls within a quarter of a second after another are passed over.
    void show(const std::string& text);
    void clear();

private:
    const bool mEnabled;
    bool mShown = false;
    int64_t mLastNs = 0;
};

}  // namespace orvplay
