#include "VirtualScreen.h"

#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace orvplay {

namespace {

constexpr int START_MS = 10'000;

// The display number that Xvfb writes once it can be connected to; empty without one.
std::string readDisplayNumber(int descriptor) {
    std::string text;
    for (;;) {
        pollfd waiting{descriptor, POLLIN, 0};
        char byte = 0;
        if (poll(&waiting, 1, START_MS) != 1 || read(descriptor, &byte, 1) != 1) {
            return "";
        }
        if (byte == '\n') {
            return text;
        }
        text += byte;
    }
}

// Field of the header of an XWD file (X11/XWDFile.h): words of 32 bits, most significant first.
uint32_t headerField(const std::vector<char>& file, size_t index) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value = value << 8 | static_cast<uint8_t>(file[4 * index + i]);
    }
    return value;
}

}  // namespace

std::vector<uint8_t> VirtualScreen::Shot::green() const {
    std::vector<uint8_t> plane;
    for (size_t i = 1; i < pixels.size(); i += 4) {
        plane.push_back(pixels[i]);
    }
    return plane;
}

bool VirtualScreen::start(int width, int height) {
    char folder[] = "/tmp/orv-screen-XXXXXX";
    int ends[2];
    if (mkdtemp(folder) == nullptr || pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    mFolder = folder;
    const std::string size = std::to_string(width) + "x" + std::to_string(height) + "x24";
    const std::string descriptor = std::to_string(ends[1]);
    mProcess = fork();
    if (mProcess == 0) {
        const int nowhere = ::open("/dev/null", O_WRONLY);
        dup2(nowhere, STDERR_FILENO);
        fcntl(ends[1], F_SETFD, 0);
        execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-screen", "0", size.c_str(),
               "-fbdir", folder, "-noreset", "-nolisten", "tcp", nullptr);
        _exit(127);
    }
    close(ends[1]);
    const std::string number = mProcess > 0 ? readDisplayNumber(ends[0]) : "";
    close(ends[0]);
    const char* before = getenv("DISPLAY");
    mDisplayBefore = before != nullptr ? before : "";
    if (!number.empty()) {
        setenv("DISPLAY", (":" + number).c_str(), 1);
    }
    return !number.empty();
}

VirtualScreen::~VirtualScreen() {
    if (mProcess > 0) {
        kill(mProcess, SIGTERM);
        waitpid(mProcess, nullptr, 0);
        if (mDisplayBefore.empty()) {
            unsetenv("DISPLAY");
        } else {
            setenv("DISPLAY", mDisplayBefore.c_str(), 1);
        }
    }
    if (!mFolder.empty()) {
        std::filesystem::remove_all(mFolder);
    }
}

bool VirtualScreen::press(const char* key) {
    Display* const display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        return false;
    }
    Window root = 0;
    Window parent = 0;
    Window* windows = nullptr;
    unsigned int count = 0;
    XQueryTree(display, DefaultRootWindow(display), &root, &parent, &windows, &count);
    for (unsigned int i = 0; i < count; ++i) {
        XEvent event{};
        event.xkey.display = display;
        event.xkey.window = windows[i];
        event.xkey.root = root;
        event.xkey.same_screen = True;
        event.xkey.keycode = XKeysymToKeycode(display, XStringToKeysym(key));
        event.type = KeyPress;
        XSendEvent(display, windows[i], True, KeyPressMask, &event);
        event.type = KeyRelease;
        XSendEvent(display, windows[i], True, KeyReleaseMask, &event);
    }
    XFree(windows);
    XCloseDisplay(display);
    return count > 0;
}

VirtualScreen::Shot VirtualScreen::shot() const {
    constexpr size_t FIELDS = 25;
    constexpr size_t COLOUR_SIZE = 12;
    std::ifstream stream(mFolder + "/Xvfb_screen0", std::ios::binary);
    const std::vector<char> file{std::istreambuf_iterator<char>(stream), {}};
    Shot shot;
    if (file.size() < 4 * FIELDS || headerField(file, 11) != 32) {
        return shot;
    }
    const size_t width = headerField(file, 4);
    const size_t height = headerField(file, 5);
    const size_t stride = headerField(file, 12);
    const size_t pixelsAt = headerField(file, 0) + COLOUR_SIZE * headerField(file, 19);
    if (file.size() < pixelsAt + stride * height || stride < 4 * width) {
        return shot;
    }
    shot.width = static_cast<int>(width);
    shot.height = static_cast<int>(height);
    for (size_t y = 0; y < height; ++y) {
        const auto row = file.begin() + static_cast<ptrdiff_t>(pixelsAt + y * stride);
        shot.pixels.insert(shot.pixels.end(), row, row + static_cast<ptrdiff_t>(4 * width));
    }
    return shot;
}

}  // namespace orvplay
