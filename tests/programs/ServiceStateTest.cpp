#include "ServiceState.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace orvplay {
namespace {

using Event = ServiceState::Event;

// Each event as a line for programs and as words for the status line, which holds what matters
// most.
TEST(ServiceStateTest, TellsEventsAndShowsWhatHolds) {
    EventLog log(true);
    ServiceState state(log);
    const struct {
        Event event;
        unsigned int value1;
        unsigned int value2;
        const char* line;
        const char* text;
    } cases[] = {
        {Event::BUFFERING_BEGIN_EVENT, 0, 0, R"({"event":"onBufferingBegin"})", "buffering 0 %"},
        {Event::BUFFERING_EVENT, 40, 0, R"({"event":"onBuffering","progress":40})",
         "buffering 40 %"},
        {Event::START_VIDEO_TASK_EVENT, 1920, 1080,
         R"({"event":"onStartVideoTask","width":1920,"height":1080})", "buffering 40 %"},
        {Event::BUFFERING_END_EVENT, 0, 0, R"({"event":"onBufferingEnd"})", ""},
        {Event::SIGNAL_UPDATE_EVENT, 0, 1,
         R"({"event":"onSignalStatusChanged","previous":0,"current":1,)"
         R"("previousName":"good","currentName":"weak"})",
         "signal weak"},
        {Event::BUFFERING_EVENT, 7, 0, R"({"event":"onBuffering","progress":7})", "signal weak"},
        {Event::SIGNAL_UPDATE_EVENT, 1, 2,
         R"({"event":"onSignalStatusChanged","previous":1,"current":2,)"
         R"("previousName":"weak","currentName":"lost"})",
         "no signal"},
        {Event::BUFFERING_END_EVENT, 0, 0, R"({"event":"onBufferingEnd"})", "no signal"},
        {Event::SIGNAL_UPDATE_EVENT, 2, 0,
         R"({"event":"onSignalStatusChanged","previous":2,"current":0,)"
         R"("previousName":"lost","currentName":"good"})",
         ""},
    };
    for (const auto& test : cases) {
        testing::internal::CaptureStdout();
        state.onEvent(test.event, test.value1, test.value2);
        auto line = nlohmann::json::parse(testing::internal::GetCapturedStdout());
        line.erase("t");
        EXPECT_EQ(line, nlohmann::json::parse(test.line));
        EXPECT_EQ(state.text(), test.text) << test.line;
    }
}

}  // namespace
}  // namespace orvplay
