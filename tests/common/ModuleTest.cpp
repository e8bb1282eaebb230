#include "common/Module.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/Report.h"

namespace {

using namespace OrvPlayer;
using android::sp;

class Stage : public Module {
public:
    explicit Stage(const char* name) : Module(name) {}
    Stage(const Stage& other) : android::RefBase(), Module(other) {}
    int start() override { return 0; }
    int stop() override { return 0; }
    std::vector<sp<RingBuffer>> outputs() const { return {mOutputs.begin(), mOutputs.end()}; }
    bool hasInput() const { return mInput != nullptr; }
};

struct Listener : public ErrorListener {
    explicit Listener(std::vector<const Listener*>* calls) : mCalls(calls) {}
    void onError(unsigned int code, const Module* module) const override {
        EXPECT_EQ(code, 0x21003u);
        EXPECT_EQ(module->getModuleName(), "stage");
        mCalls->push_back(this);
    }
    std::vector<const Listener*>* mCalls;
};

TEST(ModuleTest, OutputsKeepTheirOrderAndArePlaceable) {
    const sp<Stage> stage = new Stage("stage");
    const sp<RingBuffer> a = new RingBuffer, b = new RingBuffer, c = new RingBuffer;
    Module::OutputPosition position;
    EXPECT_EQ(stage->addOutput(a, nullptr), 0);
    EXPECT_EQ(stage->addOutput(b, &position), 0);
    EXPECT_EQ(stage->addOutput(c, nullptr), 0);
    EXPECT_EQ(stage->outputs(), (std::vector<sp<RingBuffer>>{a, b, c}));
    stage->removeOutput(&position);
    EXPECT_EQ(*position, c);
    EXPECT_EQ(b->getStrongCount(), 1);
    EXPECT_EQ(stage->outputs(), (std::vector<sp<RingBuffer>>{a, c}));
}

TEST(ModuleTest, CopyHasTheNameAndNothingElse) {
    std::vector<const Listener*> calls;
    const Listener first(&calls), second(&calls);
    const sp<Stage> stage = new Stage("stage");
    stage->addErrorListener(first);
    stage->addErrorListener(second);
    stage->setInput(new RingBuffer);
    stage->addOutput(new RingBuffer, nullptr);
    EXPECT_EQ(stage->onError(0x21003), 0);
    EXPECT_EQ(calls, (std::vector<const Listener*>{&first, &second}));
    const sp<Stage> copy = new Stage(*stage);
    EXPECT_EQ(copy->onError(0x21003), 0);
    EXPECT_EQ(calls.size(), 2u);
    EXPECT_FALSE(copy->hasInput());
    EXPECT_TRUE(copy->outputs().empty());
    EXPECT_EQ(orvtest::reportOf(*copy, 2), "\t\t - Module Name: stage\n");
    EXPECT_EQ(copy->dump(nullptr, 1), 0);
}

}  // namespace
