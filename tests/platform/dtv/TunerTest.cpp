#include "dtv/Tuner.h"

#include <dtv/RecPlayerBinder.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <thread>

#include "dtv/RecPlayerState.h"
#include "support/TempFile.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::TuneOptions;
using orvhost::Tuner;
using orvhost::TuneStatus;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr unsigned VIDEO = 0x111;
constexpr unsigned AUDIO = 0x112;

TuneOptions lossless() {
    TuneOptions options;
    options.paced = false;
    return options;
}

// Video packets numbered in their payload, audio among them; tables only where asked for.
TsBuilder broadcast(int packets, bool withTables = true) {
    TsBuilder builder;
    if (withTables) {
        builder.section(0, pat({{1, 0x100}}))
            .section(0x100, pmt(1, VIDEO, {{0x1B, VIDEO, {}}, {0x11, AUDIO, {}}}))
            .section(0x11, sdt({{1, 1, {}, bytesOf("Um")}}));
    }
    for (int i = 0; i < packets; ++i) {
        builder.packet(VIDEO, Bytes{static_cast<uint8_t>(i >> 16), static_cast<uint8_t>(i >> 8),
                                    static_cast<uint8_t>(i)});
        if (i % 5 == 0) {
            builder.packet(AUDIO, Bytes(184, 9));
        }
    }
    return builder;
}

Bytes onlyPid(const Bytes& bytes, unsigned pid) {
    Bytes out;
    for (size_t at = 0; at + 188 <= bytes.size(); at += 188) {
        if (orvhost::pidOf(bytes.data() + at) == pid) {
            out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at + 188));
        }
    }
    return out;
}

class TunerTest : public testing::Test {
protected:
    ~TunerTest() override {
        if (mWriter.joinable()) {
            mWriter.join();
        }
    }

    int start(unsigned pid, int kind = DEMUX_FILTER_VIDEO) {
        return mTuner.demultiplexer().startFiltering(static_cast<uint16_t>(pid), kind);
    }

    // Reads one filter until `bytes` came, or nothing for five seconds.
    Bytes read(int handle, size_t bytes) {
        Bytes all;
        Bytes part(188 * 500);
        while (all.size() < bytes) {
            DemuxBinder_HandleSet set{};
            DemuxBinder_HandleSET(handle, &set);
            if (mTuner.demultiplexer().select(&set, 5000) < 1) {
                break;
            }
            const size_t most = std::min(part.size(), bytes - all.size());
            const int n =
                mTuner.demultiplexer().readData(handle, part.data(), static_cast<int>(most));
            all.insert(all.end(), part.begin(), part.begin() + std::max(n, 0));
        }
        return all;
    }

    // The reading end of a pipe into which `bytes` are written in odd pieces. `keepOpen` holds the
    // writing end until the test is over.
    int pipeOf(Bytes bytes, bool keepOpen = false) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        mReadEnd.reset(new int(ends[0]));
        mWriter = std::thread([this, out = ends[1], keepOpen, data = std::move(bytes)] {
            for (size_t at = 0; at < data.size();) {
                const ssize_t n =
                    write(out, data.data() + at, std::min<size_t>(7777, data.size() - at));
                if (n <= 0) {
                    break;
                }
                at += static_cast<size_t>(n);
            }
            if (keepOpen) {
                mDone.get_future().wait_for(std::chrono::seconds(20));
            }
            close(out);
        });
        return ends[0];
    }

    struct CloseEnd {
        void operator()(const int* end) const {
            close(*end);
            delete end;
        }
    };

    Tuner mTuner;
    std::unique_ptr<int, CloseEnd> mReadEnd;
    std::promise<void> mDone;
    std::thread mWriter;
};

TEST_F(TunerTest, SaysWhyASourceCannotBeOpened) {
    TempFile empty(Bytes{});
    TempFile text(Bytes(2'000'000, 'x'));
    TempFile locked(broadcast(10).build());
    chmod(locked.path().c_str(), 0);
    TuneOptions quick;
    quick.timeoutMs = 100;
    const std::pair<std::string, TuneStatus> cases[] = {
        {"/tmp/orvtest-no-such-file", TuneStatus::NoSuchFile},
        {"", TuneStatus::NoSuchFile},
        {"/tmp", TuneStatus::IsDirectory},
        {empty.path(), TuneStatus::EmptySource},
        {"/dev/null", TuneStatus::EmptySource},
        {text.path(), TuneStatus::NoSync},
        {"/dev/zero", TuneStatus::NoSync},
        {"/proc/self/mem", TuneStatus::ReadError},
        {locked.path(), geteuid() == 0 ? TuneStatus::Ok : TuneStatus::PermissionDenied},
    };
    for (const auto& [source, status] : cases) {
        SCOPED_TRACE(source);
        const auto result = mTuner.tune(source, quick);
        EXPECT_EQ(result.status, status) << result.message;
        EXPECT_EQ(result.message.empty(), result.ok());
        EXPECT_EQ(result.message.find('\n'), std::string::npos);
        mTuner.untune();
        EXPECT_EQ(mTuner.services(0).result.status, TuneStatus::NotTuned);
    }
    EXPECT_EQ(mTuner.tune(-1, quick).status, TuneStatus::ReadError);
}

TEST_F(TunerTest, FifoWithoutWriterAndSilentPipeAreGivenUpOrCancelled) {
    const std::string fifo = "/tmp/orvtest-fifo-" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    TuneOptions options;
    options.timeoutMs = 80;
    EXPECT_EQ(mTuner.tune(fifo, options).status, TuneStatus::NoData);
    EXPECT_EQ(mTuner.tune(pipeOf({}, true), options).status, TuneStatus::NoData);
    options.timeoutMs = 60'000;
    auto waiting =
        std::async(std::launch::async, [&] { return mTuner.tune(fifo, options).status; });
    while (waiting.wait_for(milliseconds(1)) != std::future_status::ready) {
        mTuner.untune();
    }
    EXPECT_EQ(waiting.get(), TuneStatus::Cancelled);
    mDone.set_value();
    unlink(fifo.c_str());
}

TEST_F(TunerTest, EverythingFromAPipeReachesTheFiltersInOrder) {
    const TsBuilder builder = broadcast(30'000);
    const Bytes expected = onlyPid(builder.build(), VIDEO);
    ASSERT_TRUE(mTuner.tune(pipeOf(Bytes(100, 0x33) + builder.build()), lossless()).ok());
    // The tables are known before anything plays, and that look costs the filters nothing.
    const auto list = mTuner.services(5000);
    ASSERT_EQ(list.services.size(), 1u);
    EXPECT_EQ(list.services[0].name, "Um");
    const int audio = start(AUDIO, DEMUX_FILTER_PES);
    const int video = start(VIDEO);
    EXPECT_EQ(mTuner.demultiplexer().stopFiltering(audio), 0);
    EXPECT_EQ(read(video, expected.size()), expected);
    EXPECT_EQ(mTuner.statistics().skippedBytes, 100u);
    EXPECT_EQ(mTuner.statistics().droppedPackets, 0u);
    EXPECT_FALSE(mTuner.rewind());
}

TEST_F(TunerTest, AFileBeginsAtItsStartAndAgainAfterRewind) {
    const TsBuilder builder = broadcast(60'000);  // more than the look at the head
    const Bytes expected = onlyPid(builder.build(), VIDEO);
    TempFile file(builder.build());
    std::promise<void> ended;
    mTuner.setEndCallback([&] { ended.set_value(); });
    ASSERT_TRUE(mTuner.tune(file.path(), lossless()).ok());
    int video = start(VIDEO);
    const Bytes half = read(video, expected.size() / 2);
    EXPECT_TRUE(std::equal(half.begin(), half.end(), expected.begin()));
    EXPECT_FALSE(mTuner.atEnd());
    mTuner.demultiplexer().stopFiltering(video);
    EXPECT_TRUE(mTuner.rewind());
    // The filter started second gets the first packet, too: the feed waits for the reader.
    const int audio = start(AUDIO, DEMUX_FILTER_PES);
    video = start(VIDEO);
    mTuner.demultiplexer().stopFiltering(audio);
    EXPECT_EQ(read(video, expected.size()), expected);
    DemuxBinder_HandleSet more{};  // the end is met by who asks for more
    DemuxBinder_HandleSET(video, &more);
    for (int i = 0; i < 10 && !mTuner.atEnd(); ++i) {
        mTuner.demultiplexer().select(&more, 0);
    }
    ASSERT_EQ(ended.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_TRUE(mTuner.atEnd());
}

TEST_F(TunerTest, ADescriptorIsReadFromItsOffsetAndStaysWhereItIs) {
    const TsBuilder builder = broadcast(50);
    TempFile file(Bytes(64, 0) + builder.build());
    const int fd = open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
    lseek(fd, 64, SEEK_SET);
    ASSERT_TRUE(mTuner.tune(fd, lossless()).ok());
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 64);
    close(fd);
    const int video = start(VIDEO);
    EXPECT_EQ(read(video, 50 * 188), onlyPid(builder.build(), VIDEO));
    EXPECT_EQ(mTuner.statistics().skippedBytes, 0u);
}

TEST_F(TunerTest, ServicesSayWhenThereAreNoTables) {
    TempFile file(broadcast(100, false).build());
    ASSERT_TRUE(mTuner.tune(file.path(), {}).ok());
    const auto before = steady_clock::now();
    EXPECT_EQ(mTuner.services(5000).result.status, TuneStatus::NoTables);
    EXPECT_LT(steady_clock::now() - before, milliseconds(2000));  // the file's end says so
}

TEST_F(TunerTest, CountsWhatIsWrongInAStream) {
    TsBuilder builder;
    builder.packet(VIDEO, Bytes(184, 1)).packet(VIDEO, Bytes(184, 1));
    builder.lose(VIDEO, 3).packet(VIDEO, Bytes(184, 1));  // one error
    const Bytes repeated(builder.build().end() - 188, builder.build().end());
    builder.raw(repeated).packet(VIDEO, Bytes(184, 1));         // a repetition is allowed
    builder.pcr(VIDEO, 27'000'000).pcr(VIDEO, 27'000'000 * 2);  // neither moves the counter
    builder.lose(VIDEO, 5).packet(VIDEO, Bytes(100, 1), false, 27'000'000 * 9, true);  // announced
    for (int i = 0; i < 6; ++i) {
        builder.packet(AUDIO, Bytes(184, 1));
    }
    Bytes bytes = builder.build();
    bytes[bytes.size() - 187] |= 0x80;  // the last packet's error flag
    TempFile file(bytes + Bytes(50, 0x47));
    TuneOptions options = lossless();
    options.freeRunning = true;
    std::promise<void> ended;
    mTuner.setEndCallback([&] { ended.set_value(); });
    ASSERT_TRUE(mTuner.tune(file.path(), options).ok());
    ASSERT_EQ(ended.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
    const auto all = mTuner.statistics();
    EXPECT_EQ(all.packets, bytes.size() / 188);
    EXPECT_EQ(all.bytes, bytes.size() + 50);
    ASSERT_EQ(all.pids.size(), 2u);
    EXPECT_EQ(all.pids[0].pid, VIDEO);
    EXPECT_EQ(all.pids[0].continuityErrors, 1u);
    EXPECT_EQ(all.pids[0].pcrCount, 3u);
    EXPECT_EQ(all.pids[0].maxPcrIntervalNs, 1'000'000'000);
    EXPECT_EQ(all.pids[1].transportErrors, 1u);
    EXPECT_EQ(all.pids[1].continuityErrors, 0u);
}

// Whatever the feed waits for, leaving is quick.
TEST_F(TunerTest, UntuneEndsEveryWait) {
    TsBuilder slow = broadcast(0);
    for (int i = 0; i < 20; ++i) {
        slow.pcr(VIDEO, int64_t{i} * 27'000 * 400);  // two packets a second
    }
    TempFile paced(slow.build());
    TempFile full(broadcast(60'000).build());
    struct Case {
        const char* name;
        const std::string& path;
        TuneOptions options;
    };
    for (const Case& c :
         {Case{"between packets", paced.path(), {}}, Case{"full queue", full.path(), lossless()}}) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(mTuner.tune(c.path, c.options).ok());
        const int video = start(VIDEO);
        EXPECT_EQ(read(video, 188).size(), 188u);
        const auto before = steady_clock::now();
        EXPECT_EQ(mTuner.demultiplexer().stopFiltering(video), 0);
        start(VIDEO);
        mTuner.untune();
        EXPECT_LT(steady_clock::now() - before,
                  milliseconds(500));  // with others busy; alone under 1
    }
}

TEST_F(TunerTest, ALoopedFileHasNoEnd) {
    const TsBuilder builder = broadcast(1000);
    const Bytes lap = onlyPid(builder.build(), VIDEO);
    TempFile file(builder.build());
    TuneOptions options = lossless();
    options.loop = true;
    ASSERT_TRUE(mTuner.tune(file.path(), options).ok());
    const int video = start(VIDEO);
    EXPECT_EQ(read(video, lap.size() * 3), lap + lap + lap);
    EXPECT_FALSE(mTuner.atEnd());
    EXPECT_EQ(mTuner.statistics().pids.back().continuityErrors, 0u);
}

// The functions that the player calls stand on the tuner of the process.
TEST(DemuxBinderTest, TheHandleFunctionsServeTheProcessTuner) {
    const TsBuilder builder = broadcast(300);
    TempFile file(builder.build());
    ASSERT_TRUE(Tuner::instance().tune(file.path(), lossless()).ok());
    const int handle = DemuxBinder_StartFiltering(VIDEO, DEMUX_FILTER_VIDEO);
    Bytes all;
    Bytes part(188 * 100);
    while (all.size() < 300 * 188) {
        DemuxBinder_HandleSet set;
        DemuxBinder_HandleZERO(&set);
        DemuxBinder_HandleSET(handle, &set);
        ASSERT_EQ(DemuxBinder_Select(&set, 5000), 1);
        ASSERT_TRUE(DemuxBinder_HandleISSET(handle, &set));
        const int n = DemuxBinder_ReadData(handle, part.data(), static_cast<int>(part.size()));
        ASSERT_GT(n, 0);
        all.insert(all.end(), part.begin(), part.begin() + n);
    }
    EXPECT_EQ(all, onlyPid(builder.build(), VIDEO));
    EXPECT_EQ(DemuxBinder_StopFiltering(handle), 0);
    EXPECT_LT(DemuxBinder_StopFiltering(handle), 0);
    Tuner::instance().untune();

    RecPlayerBinder_NotifyAudioPTS(1234);
    EXPECT_EQ(orvhost::lastNotifiedAudioPtsMs(), 1234u);
}

}  // namespace
