#include "recording/TsRecorder.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/statvfs.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "platform/recording/RecordingFolder.h"
#include "support/Await.h"
#include "support/TempFile.h"

namespace {

using namespace orvtest;
using orvhost::NewRecording;
using orvhost::RecordingDetails;
using orvhost::RecordingState;
using orvhost::RecordingWriter;
using orvhost::TsRecorder;
using orvhost::Tuner;

using Record = std::unique_ptr<recDetails, decltype(&std::free)>;

// What the recorder tells, and what is done about it, on its thread.
class Events {
public:
    static void take(int event, void* self) { static_cast<Events*>(self)->add(event); }

    bool await(size_t count) {
        std::unique_lock lock(mMutex);
        return mCame.wait_for(lock, std::chrono::seconds(10),
                              [&] { return mEvents.size() >= count; });
    }
    std::vector<int> all() {
        std::lock_guard lock(mMutex);
        return mEvents;
    }

    std::function<void()> onEvent;

private:
    void add(int event) {
        if (onEvent) {
            onEvent();
        }
        std::lock_guard lock(mMutex);
        mEvents.push_back(event);
        mCame.notify_all();
    }

    std::mutex mMutex;
    std::condition_variable mCame;
    std::vector<int> mEvents;
};

NewRecording wanted(int storageType = 0, int videoPid = REC_VIDEO, int audioPid = REC_AUDIO) {
    NewRecording recording;
    recording.storageType = storageType;
    recording.videoPid = videoPid;
    recording.audioPid = audioPid;
    recording.audioFraming = 1;
    return recording;
}

// No file of this process may be longer: stands for a storage that takes no more.
void limitFiles(rlim_t bytes) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(bytes, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
}

class TsRecorderTest : public testing::Test {
protected:
    void SetUp() override {
        mCatalogue = mFolder.open();
        orvhost::TuneOptions options;
        options.paced = false;  // the test feeds
        ASSERT_TRUE(mTuner.tune(mFile.path(), options).ok());
        ASSERT_FALSE(mTuner.services(5000).services.empty());
    }

    void make(const RecordingWriter::Options& options = {}) {
        mRecorder = std::make_unique<TsRecorder>(
            mTuner, [this] { return mCatalogue.get(); }, mFolder.storages, options);
    }
    bool begin(const RecordingWriter::Options& options = {}) {
        make(options);
        return mRecorder->create(wanted(), &Events::take, &mEvents) && mRecorder->start();
    }
    void feed() { mTuner.demultiplexer().feedLive(mBytes.data(), mBytes.size() / 188); }
    // Feeds until something of it is in the file.
    void feedUntilWritten() {
        feed();
        ASSERT_TRUE(await([this] {
            const Record now(mRecorder->details(), &std::free);
            return now != nullptr && now->sizeOfRec > 0;
        }));
    }
    std::vector<RecordingDetails> list() { return mCatalogue->list(0, 10).recordings; }
    size_t filesThere() {
        namespace fs = std::filesystem;
        return exists(fs::path(mFolder.path("tv")))
                   ? static_cast<size_t>(std::distance(fs::directory_iterator(mFolder.path("tv")),
                                                       fs::directory_iterator()))
                   : 0;
    }

    const Bytes mBytes = makeRecording({.pictures = 200});
    const TempFile mFile{mBytes};
    RecordingFolder mFolder;
    std::unique_ptr<orvhost::Catalogue> mCatalogue;
    Events mEvents;
    Tuner mTuner;
    std::unique_ptr<TsRecorder> mRecorder;
};

TEST_F(TsRecorderTest, ARecordingEndsByItselfAndSaysWhy) {
    struct statvfs storage {};
    ASSERT_EQ(statvfs(mFolder.path(".").c_str(), &storage), 0);
    const auto free = static_cast<int64_t>(storage.f_bavail * storage.f_frsize);
    RecordingWriter::Options full;
    full.space = {256 << 10, free + (1 << 30)};
    const struct {
        const char* name;
        RecordingWriter::Options options;
        std::function<void()> fault;
        int event;
        bool kept;
    } cases[] = {
        {"full by and by", {}, [] { limitFiles(1 << 20); }, RECORDER_EVENT_STORAGE_FULL, true},
        {"full from the start", full, {}, RECORDER_EVENT_STORAGE_FULL, false},
        {"the folder is removed",
         {},
         [this] { std::filesystem::remove_all(mFolder.path("tv")); },
         RECORDER_EVENT_WRITE_FAILED,
         false},
        {"another source", {}, [this] { mTuner.untune(); }, RECORDER_EVENT_INPUT_LOST, true},
    };
    size_t events = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(begin(c.options));
        if (c.fault) {
            feedUntilWritten();
            c.fault();
        }
        EXPECT_TRUE(await([&] {
            feed();
            return mEvents.all().size() > events;
        }));
        limitFiles(RLIM_INFINITY);
        EXPECT_EQ(mEvents.all().back(), c.event);
        EXPECT_EQ(mRecorder->stop(true), c.kept);
        EXPECT_EQ(mRecorder->remove(), c.kept);  // after a failed stop nobody would
        const auto known = list();
        ASSERT_EQ(known.size(), c.kept ? 1u : 0u);
        if (c.kept) {
            EXPECT_EQ(known[0].state, RecordingState::Whole);
            EXPECT_GT(known[0].sizeBytes, 0);
            EXPECT_EQ(std::filesystem::file_size(known[0].path) % 188, 0u);
            EXPECT_EQ(static_cast<int64_t>(std::filesystem::file_size(known[0].path)),
                      known[0].sizeBytes);
            EXPECT_TRUE(mCatalogue->remove(known[0].number).ok());
        }
        EXPECT_EQ(mEvents.all().size(), ++events);  // told once, and none after the stop
    }
}

TEST_F(TsRecorderTest, WhatCannotBeginIsRefused) {
    writeFile(mFolder.path("file"), "no folder");
    mFolder.storages.set(2, mFolder.path("file") + "/below");
    mCatalogue = mFolder.open();
    make();
    EXPECT_FALSE(mRecorder->create(wanted(7), nullptr, nullptr));
    EXPECT_FALSE(mRecorder->start());
    EXPECT_FALSE(mRecorder->stop(true));
    EXPECT_FALSE(mRecorder->remove());
    EXPECT_EQ(mRecorder->details(), nullptr);
    EXPECT_FALSE(mRecorder->setDetails({}));
    const struct {
        NewRecording recording;
        bool tuned;
        bool hasRoom;
    } cases[] = {
        {wanted(2), true, false},
        {wanted(0, 0x1FFF, 0x1FFF), true, true},
        {wanted(), false, true},
    };
    for (const auto& c : cases) {
        if (!c.tuned) {
            mTuner.untune();
        }
        EXPECT_TRUE(mRecorder->create(c.recording, &Events::take, &mEvents));
        EXPECT_EQ(mRecorder->hasRoom(), c.hasRoom);
        EXPECT_FALSE(mRecorder->start());
        EXPECT_TRUE(mRecorder->remove());
    }
    EXPECT_TRUE(list().empty());
    EXPECT_EQ(filesThere(), 0u);
    EXPECT_TRUE(mEvents.all().empty());
}

// Who is refused goes on to start and to remove as if it had a recorder.
TEST_F(TsRecorderTest, ASecondRecorderIsRefusedAndTheFirstGoesOn) {
    ASSERT_TRUE(begin());
    EXPECT_FALSE(mRecorder->start());
    EXPECT_FALSE(mRecorder->create(wanted(1), nullptr, nullptr));
    EXPECT_FALSE(mRecorder->start());
    EXPECT_FALSE(mRecorder->remove());
    feedUntilWritten();
    EXPECT_EQ(list().size(), 1u);
    EXPECT_TRUE(mRecorder->stop(true));
    EXPECT_TRUE(mRecorder->remove());
    EXPECT_TRUE(begin());  // and then another one
    EXPECT_EQ(list().size(), 2u);
}

TEST_F(TsRecorderTest, WhatIsCancelledLeavesNothing) {
    for (const bool byItself : {false, true}) {
        SCOPED_TRACE(byItself);
        ASSERT_TRUE(begin());
        feedUntilWritten();
        EXPECT_EQ(filesThere(), 3u);
        if (byItself) {
            mTuner.untune();
            EXPECT_TRUE(mEvents.await(1));
        }
        EXPECT_TRUE(mRecorder->stop(false));
        EXPECT_TRUE(mRecorder->remove());
        EXPECT_TRUE(list().empty());
        EXPECT_EQ(filesThere(), 0u);
    }
}

TEST_F(TsRecorderTest, ALossIsToldAndTheRecordingGoesOnUntilTheCallbackStopsIt) {
    RecordingWriter::Options narrow;
    narrow.queuePackets = 40;
    for (const bool stops : {false, true}) {
        SCOPED_TRACE(stops);
        const size_t before = mEvents.all().size();
        bool stopped = false;
        mEvents.onEvent = stops ? std::function<void()>([&] { stopped = mRecorder->stop(true); })
                                : std::function<void()>();
        ASSERT_TRUE(begin(narrow));
        feed();
        EXPECT_TRUE(mEvents.await(before + 1));
        EXPECT_EQ(stopped, stops);
        EXPECT_EQ(mEvents.all().back(), RECORDER_EVENT_INPUT_LOST);
        if (!stops) {
            const Record then(mRecorder->details(), &std::free);
            EXPECT_TRUE(await([&] {  // what is fed still arrives
                feed();
                const Record now(mRecorder->details(), &std::free);
                return now->sizeOfRec > then->sizeOfRec;
            }));
            EXPECT_TRUE(mRecorder->stop(true));
        }
        const size_t told = mEvents.all().size();
        feed();
        EXPECT_TRUE(mRecorder->remove());
        EXPECT_EQ(mEvents.all().size(), told);
    }
    for (const RecordingDetails& kept : list()) {
        EXPECT_EQ(kept.state, RecordingState::Whole);
    }
}

// What a process that dies at any moment leaves: all but the last second, in whole packets.
TEST_F(TsRecorderTest, LittleIsSoonInTheFileToo) {
    ASSERT_TRUE(begin());
    feedUntilWritten();
    const std::string path = list().at(0).path;
    auto size = std::filesystem::file_size(path);
    for (int i = 0; i < 2; ++i) {
        const auto fed = std::chrono::steady_clock::now();
        mTuner.demultiplexer().feedLive(mBytes.data(), 40);
        EXPECT_TRUE(await([&] { return std::filesystem::file_size(path) > size; }));
        EXPECT_LT(std::chrono::steady_clock::now() - fed, std::chrono::seconds(5));
        size = std::filesystem::file_size(path);
        EXPECT_EQ(size % 188, 0u);
    }
}

TEST_F(TsRecorderTest, DetailsTellAndTakeTheNames) {
    ASSERT_TRUE(begin());
    feedUntilWritten();
    Record record(mRecorder->details(), &std::free);
    ASSERT_NE(record, nullptr);
    EXPECT_GT(record->fileNumName, 0);
    EXPECT_EQ(record->iV_PID, static_cast<int>(REC_VIDEO));
    EXPECT_EQ(record->iA_PID, static_cast<int>(REC_AUDIO));
    EXPECT_EQ(record->isLATM, 1);
    EXPECT_EQ(record->stationNameLength, 0u);
    EXPECT_STREQ(record->stationName, "");
    char station[] = "Canal Um";
    record->stationName = station;
    record->stationNameLength = 8;
    record->prgName = nullptr;
    record->prgNameLength = 0;
    EXPECT_TRUE(mRecorder->setDetails(*record));
    station[0] = 'X';
    const Record named(mRecorder->details(), &std::free);
    EXPECT_STREQ(named->stationName, "Canal Um");
    EXPECT_EQ(named->stationNameLength, 8u);
    EXPECT_STREQ(named->prgName, "");
    feed();
    EXPECT_TRUE(mRecorder->stop(true));
    ASSERT_EQ(list().size(), 1u);
    EXPECT_EQ(list()[0].stationName, "Canal Um");
    EXPECT_EQ(list()[0].path, mFolder.path("tv/Canal Um.ts"));
    EXPECT_TRUE(std::filesystem::exists(list()[0].indexPath()));
}

// ---- the service's functions, on a broadcast --------------------------------------------------

Bytes packetsOf(const Bytes& bytes, const std::set<unsigned>& pids) {
    Bytes out;
    for (size_t at = 0; at + 188 <= bytes.size(); at += 188) {
        if (pids.contains(orvhost::pidOf(bytes.data() + at))) {
            out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at) + 188);
        }
    }
    return out;
}

Bytes fileBytes(const std::string& path) {
    const std::string content = contentOf(path);
    return {content.begin(), content.end()};
}

// What another program has to say about a file; nothing where there is no such program.
std::string complaintsOf(const std::string& command) {
    const std::string guarded = "(" + command + ") 2>&1";
    FILE* pipe = popen(guarded.c_str(), "r");
    std::string all;
    char part[256];
    while (pipe != nullptr && fgets(part, sizeof(part), pipe) != nullptr) {
        all += part;
    }
    return pipe != nullptr && WEXITSTATUS(pclose(pipe)) == 127 ? "" : all;
}

TEST(RecorderBinderTest, ARecordedBroadcastIsTheBroadcastAndPlaysAnywhere) {
    const std::string sample = std::string(ORV_SAMPLES_DIR) + "/small.ts";
    RecordingFolder folder;
    setenv("XDG_DATA_HOME", folder.path("data").c_str(), 1);
    setenv("ORV_RECORDING_DIR", folder.path("tv").c_str(), 1);
    Tuner& tuner = Tuner::instance();
    orvhost::TuneOptions options;
    options.paced = false;
    ASSERT_TRUE(tuner.tune(sample, options).ok());
    ASSERT_EQ(tuner.services(5000).services.size(), 2u);
    Events events;
    ASSERT_EQ(RecPlayerBinder_CreateTSRecorder(0, 0, 0x111, 0x112, 0, &Events::take, &events), 1);
    EXPECT_EQ(RecPlayerBinder_AnyMoreRecordings(), 1);
    ASSERT_EQ(RecPlayerBinder_StartTSRecorder(), 1);

    const int video = tuner.demultiplexer().startFiltering(0x111, DEMUX_FILTER_VIDEO);
    Bytes part(188 * 1000);
    while (!tuner.atEnd()) {
        DemuxBinder_HandleSet set{};
        DemuxBinder_HandleSET(video, &set);
        ASSERT_GE(tuner.demultiplexer().select(&set, 5000), 0);
        tuner.demultiplexer().readData(video, part.data(), static_cast<int>(part.size()));
    }
    Record record(RecPlayerBinder_GetCurrTSRecDetails(), &std::free);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(RecPlayerBinder_SetCurrTSRecDetails(record.get()), 1);
    EXPECT_EQ(RecPlayerBinder_SetCurrTSRecDetails(nullptr), 0);
    EXPECT_EQ(RecPlayerBinder_StopTSRecorder(), 1);
    EXPECT_EQ(RecPlayerBinder_DeleteTSRecorder(), 1);
    EXPECT_EQ(RecPlayerBinder_DeleteTSRecorder(), 0);
    tuner.untune();
    tuner.demultiplexer().stopFiltering(video);
    EXPECT_TRUE(events.all().empty());

    RecordingDetails kept;
    ASSERT_TRUE(orvhost::Catalogue::instance()->find(record->fileNumName, &kept).ok());
    EXPECT_EQ(kept.state, RecordingState::Whole);
    // Each stream from a unit on, to the one that the end of the stream leaves open: that is blank.
    // Sound is cut to frames at both ends.
    const Bytes recording = fileBytes(kept.path);
    const Bytes broadcast = fileBytes(sample);
    size_t known = packetsOf(recording, {0, 0x100, 0x1FFF}).size();
    for (const unsigned pid : {0x111u, 0x112u, 0x113u, 0x130u, 0x1FFu}) {
        SCOPED_TRACE(pid);
        const Bytes recorded = packetsOf(recording, {pid});
        const Bytes source = packetsOf(broadcast, {pid});
        known += recorded.size();
        ASSERT_GT(recorded.size() + 188 * 100, source.size());
        const std::ptrdiff_t edge = pid == 0x112 || pid == 0x113 ? 188 * 12 : 0;
        const auto first = recorded.begin() + edge;
        const auto begin = std::search(source.begin(), source.end(), first, first + 188);
        ASSERT_LE(begin - source.begin() - edge,
                  static_cast<std::ptrdiff_t>(source.size() - recorded.size()));
        EXPECT_TRUE(std::equal(first, recorded.end() - edge, begin));
    }
    EXPECT_EQ(known, recording.size());
    EXPECT_NEAR(static_cast<double>(kept.durationMs), 10'000, 1500) << kept.path;
    // A player has no more to say of it than of the broadcast.
    for (const char* player :
         {"ffprobe -v warning", "ffmpeg -nostdin -v warning -map 0:a -f null - -i",
          "timeout 60 mpv --no-config --o=/dev/null --of=null --msg-level=all=warn --end=2"}) {
        EXPECT_EQ(complaintsOf(player + (" '" + kept.path + "'")),
                  complaintsOf(player + (" '" + sample + "'")));
    }
}

}  // namespace
