#include "common/Module.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace OrvPlayer;

class PlainModule : public Module {
public:
    using Module::mInput;
    using Module::Module;
    PlainModule(const PlainModule& other) : android::RefBase(), Module(other) {}
    using Module::mOutputs;
    int start() override { return 0; }
    int stop() override { return 0; }
};

class Recorder : public ErrorListener {
public:
    Recorder(char name, std::string* into) : mName(name), mInto(into) {}
    void onError(unsigned int code, const Module* module) const override {
        *mInto += mName + std::to_string(code) + module->getModuleName() + ' ';
    }

private:
    char mName;
    std::string* mInto;
};

android::sp<PlainModule> make(const char* name) {
    return new PlainModule(name);
}

TEST(ModuleTest, KeepsItsOutputsInOrder) {
    const auto module = make("m");
    const android::sp<RingBuffer> a = new RingBuffer, b = new RingBuffer, c = new RingBuffer;
    Module::OutputPosition position;
    EXPECT_EQ(module->addOutput(a, &position), 0);
    EXPECT_EQ(module->addOutput(b, nullptr), 0);
    EXPECT_EQ(module->addOutput(c, nullptr), 0);
    EXPECT_EQ(*position, a);
    module->removeOutput(&position);
    EXPECT_EQ(*position, b);
    EXPECT_EQ(module->mOutputs, (std::list<android::sp<RingBuffer>>{b, c}));
    EXPECT_EQ(a->getStrongCount(), 1);  // its reference was released
}

TEST(ModuleTest, ReplacesItsInput) {
    const auto module = make("m");
    const android::sp<RingBuffer> a = new RingBuffer, b = new RingBuffer;
    EXPECT_EQ(module->setInput(a), 0);
    EXPECT_EQ(module->setInput(b), 0);
    EXPECT_EQ(module->mInput, b);
    EXPECT_EQ(a->getStrongCount(), 1);
}

TEST(ModuleTest, TellsItsErrorListenersInOrder) {
    std::string told;
    const Recorder first('a', &told), second('b', &told);
    const auto module = make("Video");
    EXPECT_EQ(module->onError(5), 0);
    module->addErrorListener(first);
    module->addErrorListener(second);
    EXPECT_EQ(module->onError(7), 0);
    EXPECT_EQ(told, "a7Video b7Video ");
}

TEST(ModuleTest, CopyHasTheNameAndNothingElse) {
    std::string told;
    const Recorder listener('a', &told);
    const auto module = make("Original");
    module->addOutput(new RingBuffer, nullptr);
    module->setInput(new RingBuffer);
    module->addErrorListener(listener);
    const android::sp<PlainModule> copy = new PlainModule(*module);
    EXPECT_EQ(copy->getModuleName(), "Original");
    EXPECT_TRUE(copy->mOutputs.empty());
    EXPECT_EQ(copy->mInput, nullptr);
    copy->onError(1);
    EXPECT_EQ(told, "");
}

TEST(ModuleTest, ReportsItsName) {
    char* text = nullptr;
    size_t size = 0;
    FILE* memory = open_memstream(&text, &size);
    EXPECT_EQ(make("TS Receiver")->dump(memory, 2), 0);
    fclose(memory);
    EXPECT_STREQ(text, "\t\t - Module Name: TS Receiver\n");
    free(text);
    EXPECT_EQ(make("m")->dump(nullptr, 1), 0);
}

}  // namespace
