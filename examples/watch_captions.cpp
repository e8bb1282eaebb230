// Plays the first service of a source, shows no picture, and prints its captions with the stream
// time at which they are due.
//
//   watch_captions FILE.ts|-

#include <orvclient/Player.h>

#include <atomic>
#include <cstdio>

namespace {

int fail(const std::string& message) {
    std::fprintf(stderr, "watch_captions: %s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return fail("usage: watch_captions FILE.ts|-");
    }
    std::atomic<bool> lost{false};
    orvclient::Callbacks callbacks;
    callbacks.onCaption = [](const std::string& text, int64_t pcr90k) {
        std::printf("%.3f %s\n", static_cast<double>(pcr90k) / 90000.0, text.c_str());
    };
    callbacks.onLost = [&](const std::string& reason) { lost = fail(reason) != 0; };
    orvclient::PictureQueue pictures;  // outlives the player that shows in it
    std::string error;
    const auto player = orvclient::Player::create({}, callbacks, &error);
    if (player == nullptr) {
        return fail(error);
    }
    if (const auto tuned = player->tuner().tune(argv[1], {}); !tuned.ok()) {
        return fail(tuned.message);
    }
    const auto list = player->tuner().services(2000);
    if (list.services.empty()) {
        return fail(list.result.message);
    }
    auto status = player->setSurface(&pictures);
    status = status.ok() ? player->open(orvclient::liveSourceOf(list.services.front())) : status;
    status = status.ok() ? player->start() : status;
    for (orvclient::Picture picture; status.ok() && !lost;) {
        if (pictures.acquire(&picture, 500)) {
            pictures.release(picture);
        } else if (player->tuner().signal().atEnd) {
            break;
        }
    }
    return lost ? 1 : status.ok() ? 0 : fail(status.message);
}
