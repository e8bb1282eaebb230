#pragma once

#include <memory>
#include <string>

#include "media/player/MediaEngine.h"

namespace orvhost {

// An engine of the module, which is loaded with the first one. Null, and one line in *error, when
// libmpv is missing, or the module is not where it was built or installed: beside the library or
// the program that this code is part of, or in ../lib from there.
std::unique_ptr<MediaEngine> createMediaEngine(MediaEngineClient& client, PictureSink& sink,
                                               std::string* error);

}  // namespace orvhost
