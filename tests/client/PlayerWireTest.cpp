// What crosses the border, byte by byte, in both directions.

#include <cutils/ashmem.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "PlayerFixture.h"
#include "support/ProcessUsage.h"

namespace orvtest {
namespace {

using android::Parcel;
using orvclient::BpCOrvPlayer;
using orvclient::Player;
using std::chrono::milliseconds;

using Strings = std::vector<std::string>;

class PlayerWireTest : public PlayerFixture {};

orvclient::LiveSource allPids() {
    return {.pcrPid = 256, .videoPid = 273, .audioPid = 274, .captionPid = 304};
}

TEST_F(PlayerWireTest, CommandsAreWhatTheTablesSay) {
    struct Row {
        const char* name;
        std::function<void(Player&)> command;
        uint32_t code;
        Bytes fields;  // behind the token
    };
    const std::string pids = "pcrPid=256;videoPid=273;audioPid=274;subtitlePid=304;";
    const Row rows[] = {
        {"open", [](Player& p) { p.open(allPids()); }, 7,
         Bytes().i32(5).text("MTV://tuner/live?" + pids + "IsLATMAudio=1;isMPEG2Audio=0;")},
        {"openRecording",
         [](Player& p) {
             auto source = allPids();
             source.isMpegAudio = true;
             p.openRecording("/r/a=b c.ts", source);
         },
         7,
         Bytes().i32(5).text("FILE:///recording?filePath=/r/a=b c.ts;" + pids +
                             "IsLATMAudio=0;isMPEG2Audio=1;")},
        {"openFile", [](Player& p) { p.openFile("/clip #1?.mp4"); }, 7,
         Bytes().i32(0).text("/clip #1?.mp4")},
        {"start", [](Player& p) { p.start(); }, 2, Bytes()},
        {"pause", [](Player& p) { p.pause(); }, 4, Bytes()},
        {"resume", [](Player& p) { p.resume(); }, 5, Bytes()},
        {"seek", [](Player& p) { p.seek(milliseconds(90'500)); }, 6, Bytes().i32(90'500)},
        {"stop", [](Player& p) { p.stop(); }, 3, Bytes()},
        {"close", [](Player& p) { p.close(); }, 8, Bytes()},
        {"state", [](Player& p) { p.state(); }, 25, Bytes()},
        {"setCrop", [](Player& p) { p.setCrop(1, -2, 3, 4, true); }, 26,
         Bytes().i32(1).i32(-2).i32(3).i32(4).i32(1)},
        {"setAudioEnabled", [](Player& p) { p.setAudioEnabled(true); }, 20, Bytes().i32(1)},
        {"setAudioOnly", [](Player& p) { p.setAudioOnly(true); }, 27, Bytes().i32(1)},
        {"setAudioPid", [](Player& p) { p.setAudioPid(0x1FFF); }, 21, Bytes().i32(0x1FFF)},
        {"setCaptionPid", [](Player& p) { p.setCaptionPid(305); }, 23, Bytes().i32(305)},
        {"setAvOffset later", [](Player& p) { p.setAvOffset(milliseconds(50)); }, 17,
         Bytes().i32(250)},
        {"setAvOffset earlier", [](Player& p) { p.setAvOffset(milliseconds(-250)); }, 17,
         Bytes().i32(-50)},
        {"requestStills", [](Player& p) { p.requestStills(3, milliseconds(500)); }, 10,
         Bytes().i32(3).i32(500)},
        {"cancelStills", [](Player& p) { p.cancelStills(); }, 29, Bytes()},
        {"startRecording",
         [](Player& p) {
             p.startRecording({"TV 1", "a=b", 2});
         },
         13, Bytes().text("MTV://recorder/live?channelName=TV 1;programName=a=b;storageType=2;")},
        {"stopRecording", [](Player& p) { p.stopRecording(false); }, 14, Bytes().i32(0)},
        {"frameRate", [](Player& p) { p.frameRate(); }, 24, Bytes()},
        {"streamTime90k", [](Player& p) { p.streamTime90k(); }, 28, Bytes()},
    };
    create();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.command(*mPlayer);
        const auto last = service().requests().back();
        EXPECT_EQ(last.code, row.code);
        Bytes expected = Bytes::request("OrvPlayer");
        expected.raw({row.fields.get().begin(), row.fields.get().end()});
        EXPECT_EQ(last.bytes, expected.get());
    }
}

// What the library itself has no use for, and what carries a binder.
TEST_F(PlayerWireTest, TheRestOfTheInterface) {
    create();
    BpCOrvPlayer player(
        mService->application->getService(android::String16("OrvPlayer"), &mService->failure));
    int32_t result = -1;
    EXPECT_EQ(player.setSoundEffect(9, &result), android::OK);
    EXPECT_EQ(player.setCaptionSync(-7, &result), android::OK);
    EXPECT_EQ(player.setCaptionLanguage(2), android::OK);
    EXPECT_EQ(player.setAudioPathForce(1), android::OK);
    EXPECT_EQ(player.setSurface(new android::BBinder, &result), android::OK);
    EXPECT_EQ(player.setSurface(nullptr, &result), android::OK);
    EXPECT_EQ(result, 0);
    const auto requests = service().requests();
    const auto bytesOf = [](const Bytes& bytes) { return bytes.get(); };
    const auto request = [] { return Bytes::request("OrvPlayer"); };
    const size_t at = requests.size() - 6;
    EXPECT_EQ(requests[at].bytes, bytesOf(request().i32(0).i32(9)));
    EXPECT_EQ(requests[at + 1].bytes, bytesOf(request().i32(-7)));
    EXPECT_EQ(requests[at + 2].bytes, bytesOf(request().i32(2)));
    EXPECT_EQ(requests[at + 3].bytes, bytesOf(request().i32(1)));
    EXPECT_EQ(requests[at + 3].code, 22U);
    const auto unused = bytesOf(request().text("").text("").i32(0).i32(0));
    for (const size_t surface : {at + 4, at + 5}) {
        EXPECT_EQ(requests[surface].code, 9U);
        ASSERT_EQ(requests[surface].bytes.size(), unused.size() + 24);
        EXPECT_TRUE(std::equal(unused.begin(), unused.end(), requests[surface].bytes.begin()));
        EXPECT_EQ(requests[surface].binder != nullptr, surface == at + 4);
    }
    EXPECT_EQ(requests.front().code, 1U);
    EXPECT_EQ(requests.front().bytes.size(), request().get().size() + 24);
}

void writeCaption(Parcel& data, int32_t length, int32_t again, const std::u32string& text) {
    data.writeInt32(length);
    data.writeInt32(again);
    data.write(text.data(), text.size() * sizeof(char32_t));
}

// A region as the service makes it. What it takes from the receiver is PROT_WRITE.
void writeStill(Parcel& data, int32_t width, int32_t height, int32_t flag, size_t regionBytes) {
    const int fd = ashmem_create_region("Frame Pixels", regionBytes);
    void* const pixels = mmap(nullptr, regionBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    memset(pixels, 0xAB, regionBytes);
    munmap(pixels, regionBytes);
    ashmem_set_prot_region(fd, PROT_READ);
    data.writeInt32(width);
    data.writeInt32(height);
    data.writeInt32(flag);
    data.writeFileDescriptor(fd, true);
}

TEST_F(PlayerWireTest, EveryCallbackIsTold) {
    create();
    ScriptedPlayer& from = service();
    const auto number = [&](uint32_t code, int32_t value) { from.tellNumber(code, value); };
    number(1, 5);
    number(2, 6);
    from.tell(3, [](Parcel& data) { writeCaption(data, 8, 8, U"é!"); });
    from.tell(3, [](Parcel& data) { writeCaption(data, 0, 0, U""); });
    from.tell(4, [](Parcel& data) { writeStill(data, 320, 240, 0, 307'200); });
    from.tell(4, [](Parcel& data) { writeStill(data, 320, 240, 1, 153'600); });
    from.tell(5, [](Parcel& data) { data.writeInt32(0), data.writeInt32(2); });
    number(6, 1);
    number(7, 0x21003);
    from.tell(8);
    from.tell(9);
    number(10, 40);
    number(11, 77);
    from.tell(12, [](Parcel& data) { data.writeInt32(1920), data.writeInt32(1080); });
    number(13, 12);
    from.tell(14);
    number(15, 3);
    number(16, 1);
    number(15, 4);
    number(16, 0);
    number(7, 0x60001);
    EXPECT_EQ(toldAll(), (Strings{"opened 5",
                                  "started 6",
                                  "caption \u00E9! 900000",
                                  "caption  900000",
                                  "still 307200 171",
                                  "still 153600 171",
                                  "signal 0 2",
                                  "error 135171",
                                  "buffering",
                                  "buffered",
                                  "40 %",
                                  "session 77",
                                  "video 1920x1080",
                                  "time 12",
                                  "end",
                                  "recording 3",
                                  "recorded",
                                  "recording 4",
                                  "recorded badly",
                                  "error 393217",
                                  "not recorded 2"}));
}

// Parcels that are cut or contradict themselves change nothing, and the next one is told.
TEST_F(PlayerWireTest, HostileCallbacksAreDropped) {
    create();
    ScriptedPlayer& from = service();
    const std::function<void(Parcel&)> captions[] = {
        [](Parcel&) {},
        [](Parcel& data) { data.writeInt32(4); },
        [](Parcel& data) { writeCaption(data, 4, 8, U"ab"); },
        [](Parcel& data) { writeCaption(data, 12, 12, U"ab"); },
        [](Parcel& data) { writeCaption(data, -1, -1, U"ab"); },
        [](Parcel& data) { writeCaption(data, INT32_MAX, INT32_MAX, U"ab"); },
    };
    for (const auto& caption : captions) {
        from.tell(3, caption);
    }
    const std::function<void(Parcel&)> stills[] = {
        [](Parcel& data) { writeStill(data, 320, 240, 0, 307'199); },
        [](Parcel& data) { writeStill(data, 0, 240, 0, 4096); },
        [](Parcel& data) { writeStill(data, -320, -240, 0, 307'200); },
        [](Parcel& data) { writeStill(data, 0x10000, 0x10000, 0, 4096); },
        [](Parcel& data) { data.writeInt32(1), data.writeInt32(1), data.writeInt32(0); },
        [](Parcel& data) {  // no shared memory at all
            data.writeInt32(1), data.writeInt32(1), data.writeInt32(0);
            data.writeFileDescriptor(open("/dev/zero", O_RDWR | O_CLOEXEC), true);
        },
        [](Parcel& data) {  // memory that its maker can cut
            const int fd = memfd_create("cut", MFD_CLOEXEC);
            EXPECT_EQ(ftruncate(fd, 4096), 0);
            data.writeInt32(1), data.writeInt32(1), data.writeInt32(0);
            data.writeFileDescriptor(fd, true);
        },
    };
    for (const auto& still : stills) {
        from.tell(4, still);
    }
    for (const uint32_t code : {1U, 5U, 7U, 10U, 12U, 19U, 20U, 99U}) {
        from.tell(code);
    }
    from.tell(5, [](Parcel& data) { data.writeInt32(1); });
    from.tell(14, nullptr, "OrvPlayer");
    EXPECT_EQ(toldAll(), Strings{});
}

TEST_F(PlayerWireTest, StillsAreForReadingAndLeaveNothing) {
    create();
    const auto takeStills = [&](size_t count) {
        for (size_t i = 0; i < count; i += 2) {
            for (int pair = 0; pair < 2; ++pair) {
                service().tell(4, [](Parcel& data) { writeStill(data, 64, 64, 0, 16'384); });
            }
            ASSERT_EQ(toldAll(), (Strings{"still 16384 171", "still 16384 171"}));
        }
    };
    takeStills(10);
    EXPECT_EQ(mStillProtection, "r--s");
    const size_t before = ProcessUsage::now().descriptors;
    takeStills(1000);
    EXPECT_TRUE(await([&] { return ProcessUsage::now().descriptors <= before; }));
    EXPECT_TRUE(await([&] { return protectionAt(mStillPixels) == "none"; }));
}

}  // namespace
}  // namespace orvtest
