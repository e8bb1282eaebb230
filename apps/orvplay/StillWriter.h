#pragma once

#include <chrono>
#include <string>

#include "PngEncoder.h"
#include "Still.h"

namespace orvplay {

// "orvplay-SERVICE-2026-11-21-143015.png", local time; what file names must not hold of the
// service's name becomes "-".
std::string stillName(const std::string& service, std::chrono::system_clock::time_point time);

// Writes a still as a PNG file and answers the name it got. Nothing is ever overwritten: when
// `path` is taken it becomes NAME-1.png, NAME-2.png and so on. A folder gets a file of its default
// name; what is no file, a pipe or a device, gets the bytes. A file that could not be written whole
// is removed; the answer is empty then, and `error` says why.
std::string writeStill(const Still& still, const StillLabels& labels, const std::string& path,
                       std::string* error);

// The same bytes to an open descriptor, which stays open.
bool writeStill(const Still& still, const StillLabels& labels, int descriptor, std::string* error);

}  // namespace orvplay
