#include "StreamSelection.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvplay {
namespace {

using orvhost::ElementaryStream;
using orvhost::Service;
using orvhost::StreamKind;

ElementaryStream stream(uint16_t pid, uint8_t type, const std::string& language, int tag = -1) {
    ElementaryStream made;
    made.pid = pid;
    made.streamType = type;
    made.kind = orvhost::streamKindOf(type);
    made.language = language;
    made.componentTag = tag;
    return made;
}

Service television() {
    Service service;
    service.serviceId = 1;
    service.pcrPid = 10;
    service.streams = {stream(11, 0x1B, ""),          stream(12, 0x11, "por"),
                       stream(13, 0x0F, "eng"),       stream(14, 0x03, ""),
                       stream(15, 0x06, "por", 0x30), stream(16, 0x06, "", 0x38),  // superimposed
                       stream(17, 0x06, "eng", 0x31)};
    return service;
}

StreamSelection select(const std::vector<Service>& services, const StreamOptions& options) {
    StreamSelection selection;
    std::string error;
    EXPECT_TRUE(selectStreams(services, options, &selection, &error)) << error;
    return selection;
}

// As often as the key is pressed: PIDs, 0 for off or no other.
std::vector<int> pressForSound(StreamSelection selection, int times) {
    std::vector<int> pids;
    for (int i = 0; i < times; ++i) {
        const Track* next = selection.nextSound();
        pids.push_back(next != nullptr ? next->pid : 0);
        selection.audioPid = next != nullptr ? next->pid : selection.audioPid;
    }
    return pids;
}

std::vector<int> pressForCaptions(StreamSelection selection, int times) {
    std::vector<int> pids;
    bool shown = selection.captionPid != 0;
    for (int i = 0; i < times; ++i) {
        const Track* next = selection.nextCaptions(shown);
        shown = next != nullptr;
        pids.push_back(shown ? next->pid : 0);
        selection.captionPid = shown ? next->pid : selection.captionPid;
    }
    return pids;
}

TEST(StreamSelectionTest, KeysGoThroughTheTracksOfTheService) {
    using Pids = std::vector<int>;
    StreamOptions second;
    second.audioPid = 13;
    second.captionPid = 17;
    StreamOptions none;
    none.audioPid = 0;
    none.captionPid = 0;
    StreamOptions blind;  // a source without tables
    blind.videoPid = 11;
    blind.audioPid = 40;
    blind.captionPid = 41;
    Service plain = television();
    plain.streams.resize(2);
    const struct {
        const char* name;
        StreamSelection selection;
        Pids sounds;
        Pids captions;
    } cases[] = {
        {"first of all", select({television()}, {}), {13, 14, 12, 13}, {17, 0, 15, 17}},
        {"second", select({television()}, second), {14, 12, 13, 14}, {0, 15, 17, 0}},
        {"none", select({television()}, none), {12, 13, 14, 12}, {15, 17, 0, 15}},
        {"one sound, no captions", select({plain}, {}), {0, 0}, {0, 0}},
        {"no tables", select({}, blind), {0, 0}, {0, 41, 0}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(pressForSound(test.selection, static_cast<int>(test.sounds.size())), test.sounds);
        EXPECT_EQ(pressForCaptions(test.selection, static_cast<int>(test.captions.size())),
                  test.captions);
    }
    const StreamSelection first = select({television()}, {});
    EXPECT_EQ(first.audioKind, StreamKind::AudioLatm);
    EXPECT_EQ(first.nextSound()->kind, StreamKind::AudioAdts);
    EXPECT_EQ(describe(*first.nextSound()), "PID 13 (eng)");
    EXPECT_EQ(describe(first.sounds.back()), "PID 14");
}

}  // namespace
}  // namespace orvplay
