#pragma once

#include <string>

namespace orvtest {

// A terminal of its own in which a shell runs, by tmux: what is on its screen can be read.
//
//   TmuxScreen screen(80, 24);
//   screen.type("orvplay play news.ts\n");
//   EXPECT_TRUE(screen.waitFor("News", 10)) << screen.text();
class TmuxScreen {
public:
    TmuxScreen(int columns, int rows);
    ~TmuxScreen();
    TmuxScreen(const TmuxScreen&) = delete;  // owns processes
    TmuxScreen& operator=(const TmuxScreen&) = delete;

    // tmux is there, and the shell waits for its first command.
    bool isReady() const { return mIsReady; }

    void type(const std::string& text) const;
    // One that tmux knows by name: "Escape", "C-c", "PPage".
    void press(const std::string& key) const;
    void resize(int columns, int rows) const;

    // For files of the test; it goes with the terminal.
    const std::string& folder() const { return mFolder; }

    // Rows without blanks at their ends.
    std::string text() const;
    // Whether the text is on the screen, or is not, within so many seconds.
    bool waitFor(const std::string& text, double seconds, bool isThere = true) const;
    bool waitForNo(const std::string& text, double seconds) const {
        return waitFor(text, seconds, false);
    }

private:
    std::string run(const std::string& command) const;

    std::string mFolder = "/tmp/orvtest-tmux-XXXXXX";
    bool mIsReady = false;
};

}  // namespace orvtest
