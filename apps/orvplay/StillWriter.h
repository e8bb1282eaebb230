#pragma once

#include <string>

#include "graphics/BufferQueue.h"

namespace orvplay {

// Writes a picture as a PNG file: the crop alone, in RGB. An interlaced picture is made from the
// field shown first, its missing rows between their neighbours, so that nothing that moved is seen
// twice. Pixels that are not square stay as they are; the file tells their shape (chunk pHYs).
//
// The file appears complete or not at all. False, and why in `error`, when it could not be written.
bool writeStill(const orvhost::AcquiredBuffer& picture, const std::string& path,
                std::string* error);

}  // namespace orvplay
