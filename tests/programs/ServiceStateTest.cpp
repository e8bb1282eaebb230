#include "ServiceState.h"

#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace orvplay {
namespace {

// Each event as a line for programs and as words for the status line, which holds what matters
// most.
TEST(ServiceStateTest, TellsEventsAndShowsWhatHolds) {
    EventLog log(true);
    ServiceState state(log);
    orvclient::Callbacks tell;
    state.subscribe(&tell);
    const struct {
        std::function<void()> event;
        const char* line;
        const char* text;
    } cases[] = {
        {[&] { tell.onBufferingBegin(); }, R"({"event":"onBufferingBegin"})", "buffering 0 %"},
        {[&] { tell.onBuffering(40); }, R"({"event":"onBuffering","progress":40})",
         "buffering 40 %"},
        {[&] { tell.onStartVideo(1920, 1080); },
         R"({"event":"onStartVideoTask","width":1920,"height":1080})", "buffering 40 %"},
        {[&] { tell.onBufferingEnd(); }, R"({"event":"onBufferingEnd"})", ""},
        {[&] { tell.onSignal(0, 1); },
         R"({"event":"onSignalStatusChanged","previous":0,"current":1,)"
         R"("previousName":"good","currentName":"weak"})",
         "signal weak"},
        {[&] { tell.onBuffering(7); }, R"({"event":"onBuffering","progress":7})", "signal weak"},
        {[&] { tell.onSignal(1, 2); },
         R"({"event":"onSignalStatusChanged","previous":1,"current":2,)"
         R"("previousName":"weak","currentName":"lost"})",
         "no signal"},
        {[&] { tell.onBufferingEnd(); }, R"({"event":"onBufferingEnd"})", "no signal"},
        {[&] { tell.onSignal(2, 0); },
         R"({"event":"onSignalStatusChanged","previous":2,"current":0,)"
         R"("previousName":"lost","currentName":"good"})",
         ""},
    };
    for (const auto& test : cases) {
        testing::internal::CaptureStdout();
        test.event();
        auto line = nlohmann::json::parse(testing::internal::GetCapturedStdout());
        line.erase("t");
        EXPECT_EQ(line, nlohmann::json::parse(test.line));
        EXPECT_EQ(state.text(), test.text) << test.line;
    }
}

}  // namespace
}  // namespace orvplay
