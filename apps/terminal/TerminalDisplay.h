#pragma once

#include <string>
#include <vector>

#include "CursesTerminal.h"
#include "Display.h"
#include "KeptErrors.h"
#include "TerminalScreen.h"

namespace orvplay {

// A terminal as the display, for machines without one: everything but the pictures, which go by it.
// Messages on standard error are lines of the screen while there is one.
class TerminalDisplay : public Display {
public:
    // `errors` outlives it.
    explicit TerminalDisplay(KeptErrors& errors) : mErrors(errors) {}

    bool open() override;
    bool takesPictures() const override { return false; }
    void show(const orvhost::AcquiredBuffer&) override {}
    void showCaption(const std::string& utf8) override;
    void showStatus(const std::string& utf8, bool stays) override;
    void showState(const ScreenState& state) override;
    void showChannels(const ChannelRows& channels) override;
    void showBanner() override {}  // it is seen all the time
    // Waits for a key, up to 50 ms.
    std::vector<UserRequest> handleEvents() override;
    int width() const override { return 0; }
    int height() const override { return 0; }

private:
    void takeMessages(int64_t nowNs);

    KeptErrors& mErrors;
    CursesTerminal mTerminal;
    TerminalScreen mScreen;
    std::string mLastMessage;
    bool mChanged = true;  // since it was drawn
    int64_t mDrawnNs = 0;
};

}  // namespace orvplay
