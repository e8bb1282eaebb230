// The entries of the window module, loaded by the program when it opens a window.

#include "WindowDisplay.h"

extern "C" __attribute__((visibility("default"))) orvplay::Display* orvCreateWindow(
    const char* title) {
    return new orvplay::WindowDisplay(title);
}

// The display that a window would open on, by the name of its kind. Null with the reason.
extern "C" __attribute__((visibility("default"))) const char* orvFindDisplay(std::string* error) {
    return orvplay::WindowDisplay::findDisplay(error);
}
