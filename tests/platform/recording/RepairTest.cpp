#include <gmock/gmock.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <fstream>
#include <set>

#include "platform/recording/RecordingFolder.h"
#include "recording/FileBytes.h"
#include "recording/RecordingIndex.h"
#include "recording/Sidecar.h"
#include "support/TempFile.h"

namespace {

using namespace orvtest;
using orvhost::BegunRecording;
using orvhost::Catalogue;
using orvhost::RecordingDetails;
using orvhost::RecordingState;

constexpr int64_t STREAM_MS = 119 * PICTURE_MS;

// ---- Every moment at which a process can die

// What the process that died had told, by recording.
struct Told {
    std::map<int, std::set<std::string>> deeds;
    bool survived = false;
};

Told runChild(const std::vector<std::string>& arguments, const std::string& log) {
    std::vector<char*> argv = {const_cast<char*>(ORV_CRASHING_RECORDER)};
    for (const std::string& one : arguments) {
        argv.push_back(const_cast<char*>(one.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t child = 0;
    EXPECT_EQ(posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE((WIFEXITED(status) && WEXITSTATUS(status) == 0) ||
                (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL))
        << status;
    Told told;
    told.survived = WIFEXITED(status);
    std::ifstream lines(log);
    std::string deed;
    int number = 0;
    while (lines >> deed >> number) {
        told.deeds[number].insert(deed);
    }
    return told;
}

void expectAgreement(const RecordingDetails& details, const std::set<std::string>& deeds,
                     size_t streamBytes) {
    SCOPED_TRACE(details.path);
    const bool ended = deeds.contains("finished") || deeds.contains("imported");
    EXPECT_TRUE(details.state == RecordingState::Whole ||
                (details.state == RecordingState::Repaired && !ended));
    const auto size = std::filesystem::file_size(details.path);
    EXPECT_EQ(static_cast<uint64_t>(details.sizeBytes), size);
    EXPECT_EQ(size % 188, 0u);
    if (deeds.contains("written") || deeds.contains("imported")) {
        EXPECT_EQ(size, streamBytes);
    }
    EXPECT_EQ(size == streamBytes, details.durationMs == STREAM_MS);
    EXPECT_EQ(details.canPlay, size > 0);
    EXPECT_GE(details.endTimeS, details.startTimeS);
    if (deeds.contains("named") && !deeds.contains("finished")) {
        EXPECT_EQ(details.stationName + details.programmeName, "AB");
    }
    if (deeds.contains("renamed")) {
        EXPECT_EQ(std::filesystem::path(details.path).filename(), "C - D.ts");
    }
    orvhost::Sidecar sidecar;
    ASSERT_TRUE(orvhost::readSidecar(details.sidecarPath(), &sidecar));
    EXPECT_EQ(std::tie(sidecar.details.number, sidecar.details.state, sidecar.details.sizeBytes,
                       sidecar.details.programmeName),
              std::tie(details.number, details.state, details.sizeBytes, details.programmeName));
}

// Rows, sidecars and files agree with each other and with what was told.
void expectNothingLost(const RecordingFolder& folder, const Told& told, size_t streamBytes) {
    const auto catalogue = folder.open();
    const auto report = catalogue->repair();
    EXPECT_TRUE(report.result.ok()) << report.result.message;
    const auto list = catalogue->list(0, 100);
    std::set<int> listed;
    std::set<std::string> files;
    for (const RecordingDetails& details : list.recordings) {
        listed.insert(details.number);
        const auto known = told.deeds.find(details.number);
        expectAgreement(details,
                        known != told.deeds.end() ? known->second : std::set<std::string>(),
                        streamBytes);
        for (const std::string& path : {details.path, details.indexPath(), details.sidecarPath()}) {
            files.insert(path);
        }
    }
    int untold = 0;
    for (const int number : listed) {
        untold += told.deeds.contains(number) ? 0 : 1;
    }
    EXPECT_LE(untold, 1);
    for (const auto& [number, deeds] : told.deeds) {
        EXPECT_TRUE(listed.contains(number) || deeds.contains("discarding")) << number;
        EXPECT_FALSE(listed.contains(number) && deeds.contains("gone")) << number;
    }
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path("tv"), none)) {
        EXPECT_TRUE(files.contains(entry.path())) << entry.path() << " is nobody's";
    }
    const auto again = catalogue->repair();
    EXPECT_EQ(again.repaired + again.missing + again.found + again.takenIn + again.inUse, 0);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int CALLS_BETWEEN = 11;  // processes start slowly there
#else
constexpr int CALLS_BETWEEN = 1;
#endif

TEST(RepairCrashTest, NoRecordingIsLostWhereverItsProcessDies) {
    const Bytes stream = makeRecording({});
    const TempFile file(stream);
    int calls = 0;
    for (bool survived = false; !survived && !testing::Test::HasFailure();) {
        calls += CALLS_BETWEEN;
        SCOPED_TRACE("died before call " + std::to_string(calls));
        const RecordingFolder folder;
        const Told told = runChild({folder.path(""), std::to_string(calls), "record", file.path()},
                                   folder.path("log"));
        survived = told.survived;
        expectNothingLost(folder, told, stream.size());
    }
    EXPECT_GT(calls, 100);
}

TEST(RepairCrashTest, NorWhereverItsRepairDies) {
    const Bytes stream = makeRecording({});
    const TempFile file(stream);
    const auto die = [&](const RecordingFolder& folder, int calls) {
        return runChild({folder.path(""), std::to_string(calls), "record", file.path()},
                        folder.path("log"));
    };
    // Just written by half.
    int recorded = 0;
    for (Told told; told.deeds[1].count("named") == 0;) {
        told = die(RecordingFolder(), ++recorded);
    }
    int calls = 0;
    for (bool survived = false; !survived && !testing::Test::HasFailure();) {
        calls += CALLS_BETWEEN;
        SCOPED_TRACE("died before call " + std::to_string(calls));
        const RecordingFolder folder;
        const Told told = die(folder, recorded);
        survived =
            runChild({folder.path(""), std::to_string(calls), "repair"}, folder.path("l")).survived;
        expectNothingLost(folder, told, stream.size());
    }
    EXPECT_GT(calls, 10);
}

// ---- What else a repair finds

class RepairTest : public testing::Test {
protected:
    // A recording whose writer is gone with its lock, or not.
    RecordingDetails leave(const Bytes& content, bool gone = true) {
        BegunRecording begun;
        EXPECT_TRUE(mCatalogue->begin({}, &begun).ok());
        mFile = orvhost::UniqueFd(begun.fd);
        writeBytes(begun.fd, content);
        if (gone) {
            mFile = {};
        }
        return begun.details;
    }
    RecordingDetails record(const std::string& programme) {
        BegunRecording begun;
        orvhost::NewRecording recording;
        recording.programmeName = programme;
        EXPECT_TRUE(mCatalogue->begin(recording, &begun).ok());
        writeBytes(begun.fd, mStream);
        EXPECT_TRUE(mCatalogue
                        ->finish(begun.details.number,
                                 {STREAM_MS, static_cast<int64_t>(mStream.size()), true})
                        .ok());
        close(begun.fd);
        return found(begun.details.number);
    }
    RecordingDetails found(int number) {
        RecordingDetails details;
        const auto result = mCatalogue->find(number, &details);
        EXPECT_TRUE(result.ok()) << result.message;
        return details;
    }
    std::string repair() {
        const auto report = mCatalogue->repair();
        EXPECT_TRUE(report.result.ok()) << report.result.message;
        std::string text;
        for (const auto& [name, count] :
             {std::pair("repaired", report.repaired), std::pair("missing", report.missing),
              std::pair("found", report.found), std::pair("taken in", report.takenIn),
              std::pair("in use", report.inUse)}) {
            text += count > 0 ? std::to_string(count) + " " + name + " " : "";
        }
        return text;
    }
    // NAME.ts and NAME.json, to another name.
    static void moveBoth(const std::string& from, const std::string& to) {
        for (const char* extension : {".ts", ".json"}) {
            std::filesystem::rename(from + extension, to + extension);
        }
    }

    RecordingFolder mFolder;
    std::unique_ptr<Catalogue> mCatalogue = mFolder.open();
    const Bytes mStream = makeRecording({});
    orvhost::UniqueFd mFile;
};

// Also after a power failure, when blocks of zeros can stand at the end.
TEST_F(RepairTest, CutsWhatIsNoPacketAndTellsTheTimesOfTheStream) {
    struct Case {
        const char* what;
        Bytes content;
        size_t left;
        int64_t durationMs;
    };
    const Case cases[] = {
        {"nothing", {}, 0, 0},
        {"less than a packet", Bytes(100, 0x47), 0, 0},
        {"a piece of a packet", mStream + Bytes(187, 0x47), mStream.size(), STREAM_MS},
        {"blocks of zeros", mStream + Bytes(200'000, 0), mStream.size(), STREAM_MS},
        {"zeros alone", Bytes(100'000, 0), 0, 0},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.what);
        const int number = leave(one.content).number;
        EXPECT_EQ(repair(), "1 repaired ");
        const RecordingDetails details = found(number);
        EXPECT_EQ(details.state, RecordingState::Repaired);
        EXPECT_EQ(std::filesystem::file_size(details.path), one.left);
        EXPECT_EQ(details.durationMs, one.durationMs);
        EXPECT_EQ(details.canPlay, one.durationMs > 0);
        EXPECT_TRUE(mCatalogue->remove(number).ok());
    }
}

TEST_F(RepairTest, LeavesAloneWhatIsBeingWritten) {
    const RecordingDetails details = leave(Bytes(100, 0x47), false);
    const auto other = mFolder.open();
    for (Catalogue* catalogue : {mCatalogue.get(), other.get()}) {
        EXPECT_EQ(catalogue->repair().inUse, 1);
        EXPECT_EQ(found(details.number).state, RecordingState::Recording);
        EXPECT_EQ(std::filesystem::file_size(details.path), 100u);
    }
    // Also for a catalogue that does not know it, but its folder.
    const std::string before = contentOf(details.sidecarPath());
    orvhost::RecordingResult result;
    const auto stranger = Catalogue::open(mFolder.path("other"), mFolder.storages, &result);
    EXPECT_TRUE(stranger->list(0, 10).recordings.empty());
    EXPECT_EQ(contentOf(details.sidecarPath()), before);
    mFile = {};
    EXPECT_EQ(repair(), "1 repaired ");
}

TEST_F(RepairTest, FollowsFilesThatGoComeBackAndMove) {
    const int number = record("A").number;
    moveBoth(mFolder.path("tv/A"), mFolder.path("away"));
    EXPECT_EQ(repair(), "1 missing ");
    EXPECT_EQ(found(number).state, RecordingState::Missing);
    EXPECT_FALSE(found(number).canPlay);
    moveBoth(mFolder.path("away"), mFolder.path("tv/back"));
    EXPECT_EQ(repair(), "1 found ");
    EXPECT_EQ(found(number).path, mFolder.path("tv/back.ts"));
    EXPECT_EQ(found(number).state, RecordingState::Whole);
    // To another storage, without a repair in between.
    std::filesystem::create_directories(mFolder.path("card"));
    moveBoth(mFolder.path("tv/back"), mFolder.path("card/there"));
    EXPECT_EQ(repair(), "1 found ");
    EXPECT_EQ(found(number).storageType, 1);
    // Without its sidecar it is known by its place, and looked at.
    moveBoth(mFolder.path("card/there"), mFolder.path("away"));
    EXPECT_EQ(repair(), "1 missing ");
    std::filesystem::rename(mFolder.path("away.ts"), mFolder.path("card/there.ts"));
    EXPECT_EQ(repair(), "1 repaired 1 found ");
    EXPECT_EQ(found(number).durationMs, STREAM_MS);
    EXPECT_TRUE(std::filesystem::exists(mFolder.path("card/there.json")));
}

TEST_F(RepairTest, TakesInWhatItDoesNotKnowButNoCopyUnderAnOldNumber) {
    const RecordingDetails details = record("A");
    std::filesystem::copy(details.path, mFolder.path("tv/copy.ts"));
    std::filesystem::copy(details.sidecarPath(), mFolder.path("tv/copy.json"));
    std::filesystem::copy(details.sidecarPath(), mFolder.path("tv/lone.json"));
    writeFile(mFolder.path("tv/else.json"), "{\"format\": \"other\"}");
    writeFile(mFolder.path("tv/else.json.new"), "{");
    writeFile(mFolder.path("tv/plain.ts"), "somebody's");
    EXPECT_EQ(repair(), "1 taken in ");
    const auto list = mCatalogue->list(0, 10).recordings;
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].path, details.path);
    EXPECT_EQ(list[1].path, mFolder.path("tv/copy.ts"));
    EXPECT_EQ(list[1].programmeName, "A");
    EXPECT_EQ(contentOf(mFolder.path("tv/plain.ts")), "somebody's");
    EXPECT_EQ(repair(), "");
}

// Each way to lose a database; the recordings, and their numbers, come back from the sidecars.
TEST_F(RepairTest, ADamagedDatabaseIsSetAsideAndMadeAnew) {
    mCatalogue->remove(record("X").number);
    const RecordingDetails first = record("A");
    const RecordingDetails second = record("B");
    const std::string path = mFolder.path("catalogue/catalogue.db");
    const std::pair<const char*, std::function<void(std::string&)>> damages[] = {
        {"no header", [](std::string& db) { db.replace(0, 100, std::string(100, 'x')); }},
        {"cut", [](std::string& db) { db.resize(db.size() / 2); }},
        {"pages of noise", [](std::string& db) {
             for (size_t i = 4096; i < db.size(); ++i) {
                 db[i] = static_cast<char>(i * 31);
             }
         }}};
    for (const auto& [what, damage] : damages) {
        SCOPED_TRACE(what);
        mCatalogue.reset();  // all is in the file itself
        std::string database = contentOf(path);
        damage(database);
        writeFile(path, database);
        mCatalogue = mFolder.open();
        mCatalogue->repair();
        EXPECT_EQ(found(first.number).programmeName, "A");
        EXPECT_EQ(found(second.number).path, second.path);
        EXPECT_EQ(repair(), "");
    }
    // Who had a database open that is gone goes on with the next one.
    const auto other = mFolder.open();
    std::filesystem::remove(path);
    EXPECT_EQ(repair(), "2 taken in ");
    EXPECT_EQ(other->list(0, 10).recordings.size(), 2u);
}

}  // namespace
