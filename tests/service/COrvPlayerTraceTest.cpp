// What the service object traces, word for word, each line at its level.

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <functional>

#include "COrvPlayerFixture.h"

namespace {

std::atomic<uint32_t> gOnly{0};  // this level alone, when there is one

}  // namespace

extern "C" bool __real_OneSegPGL_IsTraced(uint32_t mask);
extern "C" bool __wrap_OneSegPGL_IsTraced(uint32_t mask) {
    const uint32_t only = gOnly;
    return only != 0 ? (mask & only) != 0 : __real_OneSegPGL_IsTraced(mask);
}

namespace {

using namespace OrvPlayer;
using orvtest::ClientBinder;

constexpr uint32_t ENTRY = 0x10000000;
constexpr uint32_t INFORMATION = 0x20000000;
constexpr uint32_t WARNING = 0x40000000;

class COrvPlayerTraceTest : public orvtest::COrvPlayerTest {
protected:
    void TearDown() override { gOnly = 0; }

    // Who is there, and on which thread: "client addr=[0x1], tid=[2], calling tid=[3]".
    static std::string caller(const void* client) {
        char text[100];
        snprintf(text, sizeof text, "client addr=[%p], tid=[%d], calling tid=[%d]", client,
                 gettid(), getpid());
        return text;
    }
    static std::string address(const void* of) {
        char text[30];
        snprintf(text, sizeof text, "[%p]", of);
        return text;
    }
};

TEST_F(COrvPlayerTraceTest, LinesOfEachLevel) {
    const android::sp<ClientBinder> binder = new ClientBinder;
    const auto client = ICOrvPlayerClient::asInterface(binder);
    struct {
        uint32_t level;
        std::function<void(COrvPlayer&)> call;
        std::vector<std::string> lines;
    } const cases[] = {
        {ENTRY, [](auto& p) { p.getFrame(3, -4); }, {"getFrame: 3 -4"}},
        {ENTRY, [](auto& p) { p.setSoundEffect(1, 10); }, {"setSoundEffect - option: 10"}},
        {ENTRY, [](auto& p) { p.setAVSync(250); }, {"setAVSync: 250"}},
        {ENTRY, [](auto& p) { p.setCaptionSync(9); }, {"setCaptionSync: 9"}},
        {ENTRY, [](auto& p) { p.setCaptionLanguage(2); }, {"setCaptionLanguage.. language = 2"}},
        {ENTRY, [](auto& p) { p.setAudioEnable(0); }, {"setAudioEnable: 0"}},
        {ENTRY, [](auto& p) { p.setAudioOnlyMode(1); }, {"setAudioOnlyMode: 1"}},
        {ENTRY, [](auto& p) { p.setAudioPID(274); }, {"setAudioPID: 274"}},
        {ENTRY, [](auto& p) { p.setCCPID(305); }, {"setCCPID: 305"}},
        {ENTRY, [](auto& p) { p.setAudioPathForce(3); }, {"setAudioPathForce: 3"}},
        {ENTRY, [](auto& p) { p.stopRecorder(1); }, {"stopRecorder"}},
        {ENTRY, [](auto& p) { p.seek(5); }, {"seek millise(5)-result=1"}},
        {ENTRY, [](auto& p) { p.close(); }, {"performClose"}},
        {ENTRY, [](auto& p) { p.onTimeUpdate(8); }, {"onTimeUpdate elapsedTime = 8"}},
        {ENTRY, [](auto& p) { p.onEndOfContent(); }, {"onEndOfContent"}},
        {ENTRY,
         [&](auto& p) { p.registerClient(client); },
         {"registerClient: " + caller(client.get())}},
        {INFORMATION,
         [&](auto& p) { p.registerClient(ICOrvPlayerClient::asInterface(mClient)); },
         {"registerClient: Adding notification client! binder " +
          address(static_cast<android::IBinder*>(mClient.get()))}},
        {ENTRY,
         [](auto& p) { p.openUri("MTV://h/p?a=1;#f", URI); },
         {"parseFragment Found fragment: #f", "parseQuery Found query: a=1"}},
        {INFORMATION, [](auto& p) { p.startRecorder("X:/a"); }, {"startRecorder: X:/a"}},
        {ENTRY, [](auto& p) { p.startRecorder("X:/a"); }, {"startRecorder - end"}},
        {WARNING,
         [&](auto& p) { p.binderDied(binder); },
         {"binderDied: " + caller(static_cast<android::IBinder*>(binder.get()))}},
    };
    mPlayer->script.recordResult = 1;
    for (const auto& wanted : cases) {
        forget();
        gOnly = wanted.level;
        wanted.call(*mPlayer);
        EXPECT_EQ(mTrace.take(), wanted.lines);
    }
}

}  // namespace
