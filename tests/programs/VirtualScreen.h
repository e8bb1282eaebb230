#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvplay {

// A display of its own without a monitor, by Xvfb. DISPLAY names it from start() to the end of the
// object.
class VirtualScreen {
public:
    // What is on the screen, four bytes a pixel: blue, green, red and one unused.
    struct Shot {
        int width = 0;
        int height = 0;
        std::vector<uint8_t> pixels;

        const uint8_t* at(int x, int y) const { return &pixels[size_t(4) * (y * width + x)]; }
        // Green alone, which is close enough to luma for black and white.
        std::vector<uint8_t> green() const;
    };

    VirtualScreen() = default;
    ~VirtualScreen();
    VirtualScreen(const VirtualScreen&) = delete;  // owns a process
    VirtualScreen& operator=(const VirtualScreen&) = delete;

    // False when there is no Xvfb or it does not come up within ten seconds.
    bool start(int width, int height);
    // Empty when the screen cannot be read.
    Shot shot() const;
    // To every window there is, by the key's name (X11/keysymdef.h, without XK_). False when there
    // is none.
    static bool press(const char* key);

private:
    pid_t mProcess = -1;
    std::string mFolder;  // where Xvfb keeps what it shows
    std::string mDisplayBefore;
};

}  // namespace orvplay
