#include "media/player/MpvEngine.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <initializer_list>

namespace orvhost {

namespace {

struct Option {
    const char* name;
    const char* value;
};

// What a platform player leaves to its application, and what a file must not decide.
constexpr Option OPTIONS[] = {
    {"config", "no"},
    {"load-scripts", "no"},
    {"ytdl", "no"},
    {"osc", "no"},
    {"terminal", "no"},
    {"input-default-bindings", "no"},
    {"resume-playback", "no"},
    {"save-position-on-quit", "no"},
    {"autoload-files", "no"},  // subtitles, sound and covers beside the file
    {"demuxer", "lavf"},       // no playlists, no archives, no discs
    {"idle", "yes"},
    {"keep-open", "yes"},  // after the end a seek must find the file
    {"pause", "yes"},
    {"hwdec", "no"},
    {"vo", "libmpv"},
    {"keepaspect", "no"},     // pictures come as coded; their shape goes with them
    {"video-rotate", "no"},   // the software renderer cannot: see keepUpright()
    {"audio-display", "no"},  // a cover is no film
    {"sid", "no"},
    {"osd-level", "0"},
    {"volume-max", "150"},
    {"sws-fast", "yes"},  // what halves and doubles chroma the same way back and forth
    {"sws-allow-zimg", "no"},
    {"audio-fallback-to-null", "yes"},
    {"gapless-audio", "no"},  // else the end is told while sound still plays
    {"audio-client-name", "orvplayer"},
    {"demuxer-max-bytes", "32MiB"},
    {"demuxer-max-back-bytes", "8MiB"},
};

enum Observed : uint64_t { TIME = 1, END, BUFFERING, FRAME };

std::string textOf(const mpv_node* node) {
    return node != nullptr && node->format == MPV_FORMAT_STRING ? node->u.string : "";
}

double numberOf(const mpv_node* node) {
    if (node == nullptr) {
        return 0.0;
    }
    return node->format == MPV_FORMAT_INT64    ? static_cast<double>(node->u.int64)
           : node->format == MPV_FORMAT_DOUBLE ? node->u.double_
                                               : 0.0;
}

bool isSet(const mpv_node* node) {
    return node != nullptr && node->format == MPV_FORMAT_FLAG && node->u.flag != 0;
}

const mpv_node* find(const mpv_node& map, const std::string& key) {
    if (map.format != MPV_FORMAT_NODE_MAP) {
        return nullptr;
    }
    const mpv_node_list& list = *map.u.list;
    for (int i = 0; i < list.num; ++i) {
        if (key == list.keys[i]) {
            return &list.values[i];
        }
    }
    return nullptr;
}

// mpv tells what it takes for granted where the file says nothing.
ColorMatrix matrixOf(const std::string& name) {
    if (name.starts_with("bt.2020")) {
        return ColorMatrix::BT2020;
    }
    return name == "bt.709" ? ColorMatrix::BT709 : ColorMatrix::BT601;
}

MediaFailure failureOf(int error) {
    switch (error) {
        case MPV_ERROR_LOADING_FAILED:
            return MediaFailure::READING;
        case MPV_ERROR_UNKNOWN_FORMAT:
        case MPV_ERROR_NOTHING_TO_PLAY:
        case MPV_ERROR_UNSUPPORTED:
            return MediaFailure::FORMAT;
        default:
            return MediaFailure::OTHER;
    }
}

// mpv's scale of loudness is the cube root of the gain.
double volumeOf(double gain) {
    return 100.0 * std::cbrt(gain);
}

}  // namespace

MpvEngine::~MpvEngine() {
    if (mPlayer == nullptr) {
        return;
    }
    {
        const std::lock_guard guard(mLock);
        mExit = true;
    }
    if (mEvents.joinable()) {
        mpv_wakeup(mPlayer);
        mEvents.join();
    }
    mPictures = nullptr;
    mpv_terminate_destroy(mPlayer);
}

bool MpvEngine::open(const Source& source, MediaFailure* failure, std::string* reason) {
    if (!setUp(source) || !load(source.location)) {
        *failure = MediaFailure::OTHER;
        *reason = mReason;
        return false;
    }
    std::unique_lock guard(mLock);
    const bool isSettled = mChanged.wait_for(guard, std::chrono::milliseconds(source.timeoutMs),
                                             [this] { return mOpening != Opening::UNDER_WAY; });
    if (!isSettled) {
        mOpening = Opening::FAILED;  // what comes later has been told
        *failure = MediaFailure::READING;
        *reason = "no answer in time";
        return false;
    }
    *failure = mFailure;
    *reason = mReason;
    const bool isOpen = mOpening == Opening::DONE;
    guard.unlock();
    if (isOpen) {
        mPictures->awaitIdle();
    }
    return isOpen;
}

bool MpvEngine::setUp(const Source& source) {
    mPlayer = mpv_create();
    if (mPlayer == nullptr) {
        mReason = "libmpv cannot be set up: the process's LC_NUMERIC must be \"C\"";
        return false;
    }
    if (!setOptions(source) || mpv_initialize(mPlayer) < 0) {
        mReason = "this libmpv does not know what it is asked for" +
                  (mReason.empty() ? mReason : ": " + mReason);
        return false;
    }
    mpv_request_log_messages(mPlayer, "error");
    mpv_observe_property(mPlayer, TIME, "time-pos", MPV_FORMAT_DOUBLE);
    mpv_observe_property(mPlayer, END, "eof-reached", MPV_FORMAT_FLAG);
    mpv_observe_property(mPlayer, BUFFERING, "cache-buffering-state", MPV_FORMAT_INT64);
    mpv_observe_property(mPlayer, FRAME, "video-frame-info", MPV_FORMAT_NODE);
    mPictures = std::make_unique<MpvPictures>(mPlayer, mSink);
    if (!mPictures->start()) {
        mReason = "this libmpv has no software renderer";
        mPictures = nullptr;
        return false;
    }
    mEvents = std::thread([this] { run(); });
    return true;
}

bool MpvEngine::setOptions(const Source& source) {
    for (const Option& option : OPTIONS) {
        if (mpv_set_option_string(mPlayer, option.name, option.value) < 0) {
            mReason = option.name;
            return false;
        }
    }
    char volume[32];
    snprintf(volume, sizeof volume, "%.3f", volumeOf(source.gain));
    return mpv_set_option_string(mPlayer, "volume", volume) >= 0 &&
           mpv_set_option_string(mPlayer, "ao", source.isSilent ? "null" : "pulse,null") >= 0 &&
           (source.isUrl || restrictProtocols());
}

// A local file may name others (some formats are lists): never over the network.
bool MpvEngine::restrictProtocols() {
    char key[] = "protocol_whitelist";
    char protocols[] = "file,crypto,data";
    char* keys[] = {key};
    mpv_node values[1] = {};
    values[0].format = MPV_FORMAT_STRING;
    values[0].u.string = protocols;
    mpv_node_list list = {1, values, keys};
    mpv_node map = {};
    map.format = MPV_FORMAT_NODE_MAP;
    map.u.list = &list;
    mReason = "demuxer-lavf-o";
    return mpv_set_option(mPlayer, mReason.c_str(), MPV_FORMAT_NODE, &map) >= 0;
}

bool MpvEngine::load(const std::string& location) {
    const char* command[] = {"loadfile", location.c_str(), nullptr};
    const int error = mpv_command(mPlayer, command);
    if (error < 0) {
        mReason = mpv_error_string(error);
    }
    return error >= 0;
}

bool MpvEngine::setPaused(bool paused) {
    int flag = paused ? 1 : 0;
    return mpv_set_property(mPlayer, "pause", MPV_FORMAT_FLAG, &flag) >= 0;
}

bool MpvEngine::seek(int64_t ms, bool exactly) {
    char seconds[32];
    snprintf(seconds, sizeof seconds, "%.3f", static_cast<double>(ms) / 1000.0);
    const char* command[] = {"seek", seconds, exactly ? "absolute+exact" : "absolute+keyframes",
                             nullptr};
    mPictures->unsettle();
    const bool isUnderWay = mpv_command(mPlayer, command) >= 0;
    if (!isUnderWay) {
        mPictures->settle();
    }
    return isUnderWay;
}

void MpvEngine::setGain(double gain) {
    double volume = volumeOf(gain);
    mpv_set_property(mPlayer, "volume", MPV_FORMAT_DOUBLE, &volume);
}

int64_t MpvEngine::durationMs() const {
    double seconds = 0.0;
    const int error = mpv_get_property(mPlayer, "duration", MPV_FORMAT_DOUBLE, &seconds);
    return error >= 0 && seconds >= 0.0 && seconds < 1e12 ? std::llround(seconds * 1000.0) : -1;
}

void MpvEngine::redraw() {
    mPictures->redraw();
}

void MpvEngine::run() {
    pthread_setname_np(pthread_self(), "MediaEvents");
    while (true) {
        const mpv_event* event = mpv_wait_event(mPlayer, -1.0);
        {
            const std::lock_guard guard(mLock);
            if (mExit) {
                return;
            }
        }
        onEvent(*event);
    }
}

void MpvEngine::onEvent(const mpv_event& event) {
    switch (event.event_id) {
        case MPV_EVENT_FILE_LOADED:
            keepUpright();
            break;
        case MPV_EVENT_SEEK:
            mPictures->unsettle();
            break;
        case MPV_EVENT_PLAYBACK_RESTART: {  // the first picture and the first sound are there
            onArrival();
            const std::lock_guard guard(mLock);
            mOpening = mOpening == Opening::UNDER_WAY ? Opening::DONE : mOpening;
            mChanged.notify_all();
            break;
        }
        case MPV_EVENT_END_FILE:
            onFileEnd(*static_cast<mpv_event_end_file*>(event.data));
            break;
        case MPV_EVENT_VIDEO_RECONFIG:
            onVideoReconfig();
            break;
        case MPV_EVENT_PROPERTY_CHANGE:
            onProperty(event.reply_userdata, *static_cast<mpv_event_property*>(event.data));
            break;
        case MPV_EVENT_LOG_MESSAGE: {
            const auto& message = *static_cast<mpv_event_log_message*>(event.data);
            std::string text = message.text;
            text.erase(text.find_last_not_of(" \r\n") + 1);
            mClient.onMessage(text.c_str());
            break;
        }
        default:
            break;
    }
}

void MpvEngine::onArrival() {
    double seconds = 0.0;
    if (mpv_get_property(mPlayer, "time-pos", MPV_FORMAT_DOUBLE, &seconds) >= 0) {
        onTime(seconds);
    }
    mPictures->settle();
}

void MpvEngine::onTime(double seconds) {
    const double bounded = std::clamp(seconds, -1e9, 1e9);
    mPictures->setTime(std::llround(bounded * 1e6));
    mClient.onPosition(std::max(std::llround(bounded * 1e3), 0LL));
}

// The picture is turned here and not where it is shown: a surface has no word for it.
void MpvEngine::keepUpright() {
    int64_t degrees = 0;
    mpv_get_property(mPlayer, "current-tracks/video/demux-rotation", MPV_FORMAT_INT64, &degrees);
    const char* filter = degrees == 90    ? "lavfi=[transpose=clock]"
                         : degrees == 180 ? "lavfi=[hflip,vflip]"
                         : degrees == 270 ? "lavfi=[transpose=cclock]"
                                          : nullptr;
    if (filter != nullptr) {
        mpv_set_property_string(mPlayer, "vf", filter);
    }
}

void MpvEngine::onVideoReconfig() {
    mpv_node parameters = {};
    if (mpv_get_property(mPlayer, "video-out-params", MPV_FORMAT_NODE, &parameters) < 0) {
        return;
    }
    MediaPicture format;
    format.width = static_cast<int>(numberOf(find(parameters, "w")));
    format.height = static_cast<int>(numberOf(find(parameters, "h")));
    format.sampleAspect = numberOf(find(parameters, "par"));
    format.matrix = matrixOf(textOf(find(parameters, "colormatrix")));
    format.isFullRange = textOf(find(parameters, "colorlevels")) == "full";
    mpv_free_node_contents(&parameters);
    if (format.width > 0 && format.height > 0) {
        mClient.onVideoSize(format.width, format.height);
        mPictures->setFormat(format);
    }
}

void MpvEngine::onProperty(uint64_t which, const mpv_event_property& property) {
    if (property.format == MPV_FORMAT_NONE) {
        return;  // there is none at the moment
    }
    switch (which) {
        case TIME:
            onTime(*static_cast<double*>(property.data));
            break;
        case END:
            if (*static_cast<int*>(property.data) != 0) {
                mClient.onEnd();
            }
            break;
        case BUFFERING:
            mClient.onBuffering(static_cast<int>(*static_cast<int64_t*>(property.data)));
            break;
        case FRAME: {
            const auto& frame = *static_cast<mpv_node*>(property.data);
            mPictures->setFields(isSet(find(frame, "interlaced")), isSet(find(frame, "tff")));
            break;
        }
        default:
            break;
    }
}

void MpvEngine::onFileEnd(const mpv_event_end_file& end) {
    switch (end.reason) {
        case MPV_END_FILE_REASON_EOF: {
            std::unique_lock guard(mLock);
            const bool isOpen = mOpening == Opening::DONE;
            guard.unlock();
            isOpen ? mClient.onEnd() : fail(MediaFailure::FORMAT, "nothing to play");
            break;
        }
        case MPV_END_FILE_REASON_ERROR:
            fail(failureOf(end.error), mpv_error_string(end.error));
            break;
        case MPV_END_FILE_REASON_REDIRECT:
            fail(MediaFailure::FORMAT, "a list of other files");
            break;
        default:
            break;  // as asked
    }
}

void MpvEngine::fail(MediaFailure failure, const std::string& reason) {
    {
        const std::lock_guard guard(mLock);
        if (mOpening == Opening::UNDER_WAY) {
            mOpening = Opening::FAILED;
            mFailure = failure;
            mReason = reason;
            mChanged.notify_all();
        }
        if (mOpening == Opening::FAILED) {
            return;
        }
    }
    mClient.onFailure(failure, reason);
}

}  // namespace orvhost
