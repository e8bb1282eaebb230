#include "media/player/MpvEngine.h"

// What the loader looks for by its name.
extern "C" __attribute__((visibility("default"))) orvhost::MediaEngine* orvCreateMediaEngine(
    orvhost::MediaEngineClient& client, orvhost::PictureSink& sink) {
    return new orvhost::MpvEngine(client, sink);
}
