#include "support/FakeRecPlayer.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace orvtest {

FakeRecPlayer& FakeRecPlayer::instance() {
    static FakeRecPlayer only;
    return only;
}

void FakeRecPlayer::reset() {
    with([](State& state) { state = State(); });
}

void FakeRecPlayer::answer(const std::string& function, unsigned char result) {
    with([&](State& state) { state.answers[function] = result; });
}

void FakeRecPlayer::setCurrent(const recDetails& details) {
    with([&](State& state) { state.current = details; });
}

void FakeRecPlayer::setClip(uint32_t durationMs) {
    with([&](State& state) { state.clipMs = durationMs; });
}

std::string FakeRecPlayer::take() {
    return with([](State& state) { return std::exchange(state.calls, ""); });
}

std::optional<FakeRecPlayer::Labels> FakeRecPlayer::labels() {
    return with([](State& state) { return state.labels; });
}

std::vector<unsigned long> FakeRecPlayer::takeAudioTimes() {
    return with(
        [](State& state) { return std::exchange(state.audioTimes, std::vector<unsigned long>()); });
}

void FakeRecPlayer::recorderEvent(int event) {
    const Registration to = with([](State& state) { return state.recorder; });
    if (to.callback != nullptr) {
        to.callback(event, to.userData);
    }
}

void FakeRecPlayer::playerEvent(int event) {
    const Registration to = with([](State& state) { return state.player; });
    if (to.callback != nullptr) {
        to.callback(event, to.userData);
    }
}

const void* FakeRecPlayer::playerUserData() {
    return with([](State& state) { return state.player.userData; });
}

unsigned char FakeRecPlayer::called(const std::string& function, const std::string& call) {
    return with([&](State& state) -> unsigned char {
        state.calls += (state.calls.empty() ? "" : " ") + call;
        const auto found = state.answers.find(function);
        return found != state.answers.end() ? found->second : 1;
    });
}

}  // namespace orvtest

namespace {

using orvtest::FakeRecPlayer;

FakeRecPlayer& fake() {
    return FakeRecPlayer::instance();
}

std::string text(const char* name, std::initializer_list<int64_t> values) {
    std::string call = name;
    for (const int64_t value : values) {
        call += (call == name ? "(" : ",") + std::to_string(value);
    }
    return call + ")";
}

std::string nameOf(const char* name, uint32_t length) {
    return name != nullptr ? std::string(name, length) : "";
}

}  // namespace

unsigned char RecPlayerBinder_CreateTSRecorder(int mode, int storageType, int videoPid,
                                               int audioPid, int audioFraming,
                                               RecPlayerBinder_EventCallback callback,
                                               void* userData) {
    fake().with([&](FakeRecPlayer::State& state) { state.recorder = {callback, userData}; });
    return fake().called("CreateTSRecorder",
                         text("create", {mode, storageType, videoPid, audioPid, audioFraming}));
}

unsigned char RecPlayerBinder_AnyMoreRecordings() {
    return fake().called("AnyMoreRecordings", "more");
}

unsigned char RecPlayerBinder_StartTSRecorder() {
    return fake().called("StartTSRecorder", "start");
}

recDetails* RecPlayerBinder_GetCurrTSRecDetails() {
    fake().called("", "get");
    return fake().with([](FakeRecPlayer::State& state) -> recDetails* {
        if (!state.current) {
            return nullptr;
        }
        void* const copy = malloc(sizeof(recDetails));
        memcpy(copy, &*state.current, sizeof(recDetails));
        return static_cast<recDetails*>(copy);
    });
}

unsigned char RecPlayerBinder_SetCurrTSRecDetails(const recDetails* details) {
    fake().with([&](FakeRecPlayer::State& state) {
        state.labels = {*details, nameOf(details->stationName, details->stationNameLength + 1),
                        nameOf(details->prgName, details->prgNameLength + 1)};
    });
    return fake().called("SetCurrTSRecDetails", "set");
}

unsigned char RecPlayerBinder_StopTSRecorder() {
    return fake().called("StopTSRecorder", "stop");
}

unsigned char RecPlayerBinder_CancelTSRecorder() {
    return fake().called("CancelTSRecorder", "cancel");
}

unsigned char RecPlayerBinder_DeleteTSRecorder() {
    return fake().called("DeleteTSRecorder", "delete");
}

unsigned char RecPlayerBinder_IsTSPlayerActive(RecPlayerBinder_EventCallback callback,
                                               void* userData) {
    fake().with([&](FakeRecPlayer::State& state) { state.player = {callback, userData}; });
    return fake().called("IsTSPlayerActive", "active");
}

recDetails* RecPlayerBinder_GetRecClipDetails(const char* path, int outsideCard) {
    fake().called("", std::string("clip(") + path + "," + std::to_string(outsideCard) + ")");
    const std::optional<uint32_t> durationMs =
        fake().with([](FakeRecPlayer::State& state) { return state.clipMs; });
    if (!durationMs) {
        return nullptr;
    }
    auto* const details = static_cast<recDetails*>(calloc(1, sizeof(recDetails)));
    details->playbackDuration = *durationMs;
    details->prgName = strdup("programme");
    details->stationName = *durationMs % 2 != 0 ? strdup("station") : nullptr;
    return details;
}

unsigned char RecPlayerBinder_PauseTSPlayer() {
    return fake().called("PauseTSPlayer", "pause");
}

unsigned char RecPlayerBinder_ResumeTSPlayer() {
    return fake().called("ResumeTSPlayer", "resume");
}

unsigned char RecPlayerBinder_IsPossibleSeek() {
    return fake().called("IsPossibleSeek", "seekable");
}

unsigned char RecPlayerBinder_RepositioningTSPlayer(int elapsedSeconds, int targetMs) {
    return fake().called("RepositioningTSPlayer", text("reposition", {elapsedSeconds, targetMs}));
}

unsigned char RecPlayerBinder_SetCurrLapTime(uint32_t elapsedMs, uint64_t ptsMs) {
    return fake().called("SetCurrLapTime", text("lap", {elapsedMs, static_cast<int64_t>(ptsMs)}));
}

void RecPlayerBinder_NotifyAudioPTS(unsigned long ms) {
    fake().with([ms](FakeRecPlayer::State& state) { state.audioTimes.push_back(ms); });
}
