// Scripts of faults that a user writes, and packets of any kind that they happen to, twice over the
// joint of a loop. What is no script is explained in a line that a terminal can show; faults keep
// packets whole.

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "dtv/aslive/FaultInjector.h"
#include "dtv/aslive/FaultScript.h"
#include "dtv/aslive/LoopJoint.h"

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    using namespace orvhost;
    // The script ends with the first 0.
    const uint8_t* const end = std::find(bytes, bytes + size, 0);
    const std::string text(bytes, end);
    std::string error;
    const auto script = FaultScript::parse(text, &error);
    require(script || (error.compare(0, 5, "line ") == 0 || text.size() > FaultScript::MAX_BYTES));
    require(std::all_of(error.begin(), error.end(), [](char c) { return c >= ' ' && c <= '~'; }));
    if (!script) {
        return 0;
    }
    FaultInjector injector(*script);
    LoopJoint joint;
    std::vector<FaultInjector::Happening> happened;
    for (int lap = 0; lap < 3; ++lap) {
        injector.advance(lap * int64_t{5'000'000'000}, &happened);
        for (const uint8_t* p = end; bytes + size - p >= 188; p += 188) {
            std::vector<uint8_t> packet(p, p + 188);
            std::vector<uint8_t> out;
            if (joint.pass(packet.data())) {
                injector.pass(packet.data(), &out);
            }
            require(out.size() % 188 == 0);
        }
        joint.beginLap();
        require(joint.offset27M() % 300 == 0);
    }
    return 0;
}
