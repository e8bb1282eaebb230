// The entry of the player as a library: what a hosting process may call. Everything else stays
// inside (see orvplayer.map).

#include "service/PlayerLibrary.h"

#include "service/COrvPlayer.h"

using OrvPlayer::COrvPlayer;

extern "C" void OrvPlayer_instantiate() {
    COrvPlayer::instantiate();
}

extern "C" void OrvPlayer_dump(FILE* stream) {
    if (const android::sp<COrvPlayer> player = COrvPlayer::instance(); player != nullptr) {
        player->dumpController(stream);
    }
}

extern "C" void OrvPlayer_figures(OrvPlayer_Figures* figures) {
    *figures = {};
    if (const android::sp<COrvPlayer> player = COrvPlayer::instance(); player != nullptr) {
        const OrvPlayer::PlaybackFigures& from = player->figures();
        *figures = {from.framesTimed, from.lastFrameTimedNs, from.audioEarlyMs,
                    from.audioEarlyCount, from.firstPcrUs};
    }
}

extern "C" size_t OrvPlayer_takePresentation(OrvPlayer::PresentationRecord* records, size_t most,
                                             uint64_t* missed) {
    OrvPlayer::PresentationLog& log = OrvPlayer::PresentationLog::instance();
    log.setOn(true);
    return log.take(records, most, missed);
}

extern "C" size_t OrvPlayer_bufferFills(OrvPlayer::BufferFill* fills, size_t most) {
    const android::sp<COrvPlayer> player = COrvPlayer::instance();
    return player != nullptr ? player->bufferFills(fills, most) : 0;
}
