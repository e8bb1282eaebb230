#include "recording/RecordingsService.h"

#include <binder/Parcel.h>
#include <fcntl.h>
#include <gmock/gmock.h>

#include <condition_variable>
#include <random>

#include "dtv/TunerParcel.h"
#include "platform/binder/RelayBinder.h"
#include "platform/recording/RecordingFolder.h"
#include "recording/FileBytes.h"
#include "recording/RecordingParcel.h"
#include "support/Await.h"
#include "support/TempFile.h"

namespace {

using namespace orvtest;
using android::Parcel;
using android::sp;
using orvhost::IRecordings;
using orvhost::RecordingDetails;
using orvhost::RecordingState;
using orvhost::RecordingStatus;
using orvhost::UniqueFd;

// The importing client.
class Importer : public orvhost::BnImportListener {
public:
    void onProgress(int64_t done, int64_t total) override {
        std::unique_lock lock(mMutex);
        mProgress = std::max(mProgress, total > 0 ? static_cast<int>(done * 100 / total) : 0);
    }
    void onDone(const orvhost::RecordingResult& result, const RecordingDetails& details) override {
        std::lock_guard lock(mMutex);
        mResult = result;
        mImported = details;
        ++mDone;
    }
    bool awaitDone() {
        return await([this] {
            std::lock_guard lock(mMutex);
            return mDone > 0;
        });
    }

    orvhost::RecordingResult mResult;
    RecordingDetails mImported;
    int mProgress = -1;
    int mDone = 0;

private:
    std::mutex mMutex;
};

// Seen from the service: a process that can die. Progress is told on the thread that copies, which
// `onProgress` may hold up.
class RemoteImporter : public RelayBinder {
public:
    explicit RemoteImporter(const sp<Importer>& importer) : RelayBinder(importer) {}

    android::status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                               uint32_t flags) override {
        if (code == orvhost::BnImportListener::PROGRESS && onProgress) {
            std::exchange(onProgress, nullptr)();
        }
        return RelayBinder::transact(code, data, reply, flags);
    }
    android::status_t linkToDeath(const sp<DeathRecipient>& recipient, void*, uint32_t) override {
        mRecipient = recipient;
        return android::OK;
    }
    void die() { mRecipient->binderDied(this); }

    std::function<void()> onProgress;

private:
    sp<DeathRecipient> mRecipient;
};

class RecordingsServiceTest : public testing::Test {
protected:
    RecordingsServiceTest()
        : mService(new orvhost::RecordingsService(
              [this](orvhost::RecordingResult*) { return mCatalogue.get(); })),
          mClient(IRecordings::asInterface(new RelayBinder(mService))),
          mStream(makeRecording({})),
          mFile(open(mStream.path().c_str(), O_RDONLY | O_CLOEXEC)),
          mImporter(new Importer),
          mRemote(new RemoteImporter(mImporter)) {}

    int importOne(const std::string& station, const std::string& programme) {
        const sp<Importer> importer(new Importer);
        EXPECT_TRUE(mClient
                        ->importFile(new RelayBinder(importer), mFile.get(), "x.ts",
                                     {station, programme, 0})
                        .ok());
        EXPECT_TRUE(importer->awaitDone());
        EXPECT_TRUE(importer->mResult.ok()) << importer->mResult.message;
        return importer->mImported.number;
    }

    RecordingFolder mFolder;
    std::unique_ptr<orvhost::Catalogue> mCatalogue = mFolder.open();
    const sp<orvhost::RecordingsService> mService;
    const sp<IRecordings> mClient;
    const TempFile mStream;
    const UniqueFd mFile;
    const sp<Importer> mImporter;
    const sp<RemoteImporter> mRemote;
};

TEST_F(RecordingsServiceTest, AClientListsFindsOpensNamesAndRemoves) {
    for (const char* name : {"A", "B", "C"}) {
        importOne("Canal", name);
    }
    std::string names;
    int last = 0;
    for (auto page = mClient->list(0, 2); !page.recordings.empty(); page = mClient->list(last, 2)) {
        EXPECT_LE(page.recordings.size(), 2u);
        for (const RecordingDetails& details : page.recordings) {
            names += details.programmeName;
            last = details.number;
        }
    }
    EXPECT_EQ(names, "ABC");
    RecordingDetails details;
    int fd = -1;
    ASSERT_TRUE(mClient->open(2, &details, &fd).ok());
    const UniqueFd file(fd);
    EXPECT_EQ(orvhost::sizeOfFile(fd), static_cast<uint64_t>(details.sizeBytes));
    EXPECT_EQ(write(fd, "x", 1), -1);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    ASSERT_TRUE(mClient->setLabels(2, "Outro", "D", &details).ok());
    EXPECT_EQ(details.path, mFolder.path("tv/Outro - D.ts"));
    ASSERT_TRUE(mClient->setPosition(2, 4321).ok());
    ASSERT_TRUE(mClient->find(2, &details).ok());
    EXPECT_EQ(details.positionMs, 4321);
    ASSERT_TRUE(mClient->remove(2).ok());
    EXPECT_EQ(mClient->find(2, &details).status, RecordingStatus::NoSuchRecording);
    EXPECT_EQ(mClient->open(2, &details, &fd).status, RecordingStatus::NoSuchRecording);
    EXPECT_EQ(fd, -1);
    EXPECT_TRUE(mClient->repair().result.ok());
    mCatalogue.reset();
    EXPECT_TRUE(mClient->list(0, 2).recordings.empty());
}

TEST_F(RecordingsServiceTest, AnImportBelongsToTheClientThatBeganIt) {
    struct Case {
        const char* what;
        std::function<void()> inTheMiddle;
        RecordingStatus expected;
    };
    const sp<Importer> other(new Importer);
    const Case cases[] = {
        {"nothing", [] {}, RecordingStatus::Ok},
        {"another's attempt",
         [&] {
             EXPECT_EQ(mClient->importFile(other, mFile.get(), "x", {}).status,
                       RecordingStatus::InUse);
             mClient->cancelImport(other);
             mClient->cancelImport(nullptr);
         },
         RecordingStatus::Ok},
        {"cancel", [&] { mClient->cancelImport(mRemote); }, RecordingStatus::Cancelled},
        {"death", [&] { mRemote->die(); }, RecordingStatus::Cancelled},
    };
    for (const Case& one : cases) {
        mImporter->mDone = 0;
        mRemote->onProgress = one.inTheMiddle;
        ASSERT_TRUE(mClient->importFile(mRemote, mFile.get(), "/tmp/film.ts", {}).ok());
        ASSERT_TRUE(mImporter->awaitDone()) << one.what;
        EXPECT_EQ(mImporter->mResult.status, one.expected)
            << one.what << ": " << mImporter->mResult.message;
    }
    EXPECT_EQ(mImporter->mProgress, 100);
    const auto list = mClient->list(0, 10);
    ASSERT_EQ(list.recordings.size(), 2u);
    const RecordingDetails& first = list.recordings[0];
    EXPECT_EQ(std::tie(first.stationName, first.programmeName, first.state, first.canPlay),
              std::make_tuple("Um", "film", RecordingState::Whole, true));
    EXPECT_EQ(std::tie(first.videoPid, first.audioPid, first.audioFraming),
              std::make_tuple(int{REC_VIDEO}, int{REC_AUDIO}, 1));
    EXPECT_EQ(first.durationMs, 119 * PICTURE_MS);
    EXPECT_TRUE(std::filesystem::exists(first.indexPath()));
    // Of the cancelled ones nothing is left.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mFolder.path("tv")), {}), 6);
}

TEST_F(RecordingsServiceTest, ImportsOfOtherThingsSayWhy) {
    const TempFile text(bytesOf(std::string(5000, 'x')));
    const UniqueFd noStream(open(text.path().c_str(), O_RDONLY | O_CLOEXEC));
    const UniqueFd folder(open("/tmp", O_RDONLY | O_CLOEXEC));
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd pipeEnds[] = {UniqueFd(ends[0]), UniqueFd(ends[1])};
    for (const int fd : {noStream.get(), folder.get(), ends[0]}) {
        mImporter->mDone = 0;
        ASSERT_TRUE(mClient->importFile(mRemote, fd, "thing", {}).ok());
        ASSERT_TRUE(mImporter->awaitDone());
        EXPECT_EQ(mImporter->mResult.status, RecordingStatus::BadFile);
        EXPECT_THAT(mImporter->mResult.message, testing::StartsWith("thing: "));
    }
    EXPECT_TRUE(mClient->list(0, 10).recordings.empty());
}

// Cut at any byte, or with any word replaced, a request is answered and harms nobody.
TEST_F(RecordingsServiceTest, HostileRequestsGetAnError) {
    const int number = importOne("Canal", "A");
    Parcel reply;
    Parcel wrongToken;
    wrongToken.writeInterfaceToken(android::String16("OrvTuner"));
    android::IBinder* const binder = mService.get();
    EXPECT_EQ(binder->transact(IRecordings::REPAIR, wrongToken, &reply),
              android::PERMISSION_DENIED);
    std::mt19937 random(1);
    for (uint32_t code = IRecordings::LIST; code <= IRecordings::SET_POSITION; ++code) {
        Parcel whole;
        whole.writeInterfaceToken(IRecordings::descriptor);
        const size_t tokenBytes = whole.dataSize();
        whole.writeInt32(number + 1);
        orvhost::writeText(&whole, "Canal");
        orvhost::writeText(&whole, "A");
        const std::vector<uint8_t> bytes(whole.data(), whole.data() + whole.dataSize());
        for (int round = 0; round < 300; ++round) {
            std::vector<uint8_t> bad = bytes;
            const size_t words = (bad.size() - tokenBytes) / 4;
            const auto word =
                static_cast<int32_t>(round % 3 == 0 ? random() : INT32_MAX >> round % 31);
            // Never the recording's own number.
            const size_t at = tokenBytes + (word == number ? 1 : random() % words) * 4;
            memcpy(bad.data() + at, &word, sizeof word);
            Parcel data;
            data.setData(bad.data(), round % 2 == 0 ? bad.size() : random() % bad.size());
            binder->transact(code, data, &reply);
        }
        if (code == IRecordings::IMPORT_FILE || code == IRecordings::SET_LABELS) {
            whole.setDataSize(whole.dataSize() - 1);
            EXPECT_EQ(binder->transact(code, whole, &reply), android::BAD_VALUE) << code;
        }
    }
    RecordingDetails details;
    ASSERT_TRUE(mClient->find(number, &details).ok());
    EXPECT_EQ(details.programmeName, "A");
}

// What a service answers may be wrong in any word; the client reads it within its bounds. A list
// that no message holds loses its end.
TEST_F(RecordingsServiceTest, HostileAnswersAreRefusedOrRead) {
    orvhost::RecordingList list;
    list.recordings.resize(3);
    list.recordings[1].path = "/tv/A.ts";
    Parcel good;
    orvhost::writeRecordingList(&good, list);
    const std::vector<uint8_t> bytes(good.data(), good.data() + good.dataSize());
    std::mt19937 random(1);
    int refused = 0;
    for (size_t round = 0; round < 4000; ++round) {
        std::vector<uint8_t> bad = bytes;
        const auto word = static_cast<int32_t>(round % 3 == 0 ? random() : INT32_MAX >> round % 31);
        memcpy(bad.data() + random() % (bad.size() / 4) * 4, &word, sizeof word);
        Parcel parcel;
        parcel.setData(bad.data(), round % 2 == 0 ? bad.size() : random() % bad.size());
        orvhost::RecordingList read;
        refused += orvhost::readRecordingList(parcel, &read) ? 0 : 1;
        EXPECT_LE(read.recordings.size(), 4u);
    }
    EXPECT_GT(refused, 1000);
    list.recordings.resize(IRecordings::MAX_PAGE);
    for (RecordingDetails& details : list.recordings) {
        details.path = std::string(5000, 'x');
    }
    Parcel much;
    orvhost::writeRecordingList(&much, list);
    EXPECT_LE(much.dataSize(), 520u * 1024);
    much.setDataPosition(0);
    ASSERT_TRUE(orvhost::readRecordingList(much, &list));
    EXPECT_GT(list.recordings.size(), 100u);
}

}  // namespace
