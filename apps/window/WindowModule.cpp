// The entry of the window module, loaded by the program when it opens a window.

#include "WindowDisplay.h"

extern "C" __attribute__((visibility("default"))) orvplay::Display* orvCreateWindow(
    const char* title) {
    return new orvplay::WindowDisplay(title);
}
