#include "recording/Catalogue.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "platform/recording/RecordingFolder.h"
#include "recording/CatalogueDatabase.h"
#include "recording/RecordingName.h"

namespace {

using namespace orvtest;
using orvhost::BegunRecording;
using orvhost::Catalogue;
using orvhost::NewRecording;
using orvhost::RecordingDetails;
using orvhost::RecordingState;
using orvhost::RecordingStatus;

TEST(RecordingNameTest, TellsDateChannelAndProgrammeInWhatAFileNameHolds) {
    setenv("TZ", "UTC", 1);
    tzset();
    const std::string accents(200, 'x');
    std::string wide;
    for (int i = 0; i < 100; ++i) {
        wide += "\u00e9\u00e9\u6771";
    }
    struct Case {
        std::string nameTemplate;
        std::string station;
        std::string programme;
        std::string expected;
    };
    const Case cases[] = {
        {"", "Globo", "Jornal", "2026-11-21 2030 Globo - Jornal"},
        {"", "Globo", "", "2026-11-21 2030 Globo"},
        {"", "", "Jornal", "2026-11-21 2030 - Jornal"},
        {"", "", "", "2026-11-21 2030"},
        {"{programme}@{date}", "", "a/b\\c:d*e?f\"g<h>i|j", "a_b_c_d_e_f_g_h_i_j@2026-11-21"},
        {"{programme}", "", "\u00e9l\u00e8ve\n\x7f\u0085.", "\u00e9l\u00e8ve___"},
        {"{programme}", "", "..", "recording"},
        {"{programme}", "", "../../etc", "_._.._etc"},
        {"{programme}", "", " .hidden ", "_hidden"},
        {"{programme}", "", "\xff\xc3(\xed\xa0\x80", "\uFFFD\uFFFD(\uFFFD\uFFFD\uFFFD"},
        {"{programme}", "", "cut\xe6\x9d", "cut\uFFFD\uFFFD"},
        {"{programme}", "", std::string("a\0b", 3), "a"},
        {"{programme}", "", "", "recording"},
        {"{channel} - {programme}", "", "a", "a"},
        {"{nothing}", "", "", "{nothing}"},
        {"/{channel}/{channel}", "a", "", "_a_a"},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(
            orvhost::recordingName(one.nameTemplate, {1795293000, one.station, one.programme}),
            one.expected);
    }
    const std::string cut = orvhost::recordingName("", {1795293000, wide, wide});
    EXPECT_LE(cut.size(), orvhost::MAX_NAME_BYTES);
    EXPECT_GT(cut.size(), orvhost::MAX_NAME_BYTES - 4);
    EXPECT_EQ(orvhost::cleanText(cut), cut);  // valid: not cut inside a character
}

// A value that cannot be is passed over; what is no sidecar is none.
TEST(SidecarTest, BelievesNoValueOutOfItsRange) {
    orvhost::Sidecar whole;
    whole.uid = orvhost::newUid();
    whole.details.number = 7;
    whole.details.stationName = "Canal";
    whole.details.videoPid = 0x111;
    const std::string text = orvhost::sidecarText(whole);
    const std::pair<std::string, std::string> values[] = {
        {"\"number\": 7", "\"number\": 4294967303"},
        {"\"number\": 7", "\"number\": -7"},
        {"\"number\": 7", "\"number\": 18446744073709551615"},
        {"\"number\": 7", "\"number\": 7.5"},
        {"\"number\": 7", "\"number\": [7]"},
        {"\"channel\": \"Canal\"", "\"channel\": {}"},
        {"\"channel\": \"Canal\"", "\"channel\": \"\\u0000Canal\""},
        {"\"videoPid\": 273", "\"videoPid\": 8192"},
    };
    for (const auto& [good, bad] : values) {
        std::string changed = text;
        ASSERT_NE(changed.find(good), std::string::npos) << good;
        changed.replace(changed.find(good), good.size(), bad);
        orvhost::Sidecar read;
        ASSERT_TRUE(orvhost::parseSidecar(changed, &read)) << bad;
        EXPECT_TRUE(read.details.number == 0 || read.details.stationName.empty() ||
                    read.details.videoPid == -1)
            << bad;
    }
    orvhost::Sidecar read;
    EXPECT_TRUE(orvhost::parseSidecar(text, &read));
    for (const std::string& other :
         {std::string(), std::string("[]"), text.substr(0, text.size() - 3), text + "}",
          std::string(60'000, '['), std::string(70'000, ' ') + text, "\xff" + text,
          std::string(R"({"format": "orvplayer-recording", "id": "../x"})")}) {
        EXPECT_FALSE(orvhost::parseSidecar(other, &read)) << other.substr(0, 50);
    }
}

class CatalogueTest : public testing::Test {
protected:
    BegunRecording begin(const std::string& station, const std::string& programme,
                         Catalogue* catalogue = nullptr) {
        NewRecording recording;
        recording.stationName = station;
        recording.programmeName = programme;
        recording.videoPid = 0x111;
        recording.audioPid = 0x112;
        recording.audioFraming = 1;
        BegunRecording begun;
        const auto result =
            (catalogue != nullptr ? catalogue : mCatalogue.get())->begin(recording, &begun);
        EXPECT_TRUE(result.ok()) << result.message;
        return begun;
    }
    int recordWhole(const std::string& station, const std::string& programme) {
        const BegunRecording begun = begin(station, programme);
        const Bytes bytes = makeRecording({});
        writeBytes(begun.fd, bytes);
        EXPECT_TRUE(
            mCatalogue
                ->finish(begun.details.number, {4760, static_cast<int64_t>(bytes.size()), true})
                .ok());
        close(begun.fd);
        return begun.details.number;
    }
    RecordingDetails found(int number) {
        RecordingDetails details;
        const auto result = mCatalogue->find(number, &details);
        EXPECT_TRUE(result.ok()) << result.message;
        return details;
    }

    RecordingFolder mFolder;
    std::unique_ptr<Catalogue> mCatalogue = mFolder.open();
};

TEST_F(CatalogueTest, AnotherConnectionSeesARecordingGrowAndEnd) {
    const auto other = mFolder.open();
    const BegunRecording begun = begin("", "");
    EXPECT_EQ(begun.details.path, mFolder.path("tv/recording.ts"));
    writeBytes(begun.fd, Bytes(376, 0x47));
    const int number = begun.details.number;
    RecordingDetails renamed;
    ASSERT_TRUE(mCatalogue->setLabels(number, "Canal", "Filme", &renamed).ok());
    EXPECT_EQ(renamed.path, mFolder.path("tv/Canal - Filme.ts"));
    ASSERT_TRUE(mCatalogue->update(number, 5000, 188).ok());
    auto list = other->list(0, 10);
    ASSERT_TRUE(list.result.ok()) << list.result.message;
    ASSERT_EQ(list.recordings.size(), 1u);
    const RecordingDetails& seen = list.recordings[0];
    EXPECT_EQ(std::tie(seen.number, seen.state, seen.stationName, seen.durationMs, seen.sizeBytes),
              std::make_tuple(number, RecordingState::Recording, "Canal", 5000, 376));
    EXPECT_EQ(std::tie(seen.videoPid, seen.audioPid, seen.audioFraming, seen.endTimeS),
              std::make_tuple(0x111, 0x112, 1, 0));
    EXPECT_EQ(other->remove(number).status, RecordingStatus::InUse);
    ASSERT_TRUE(mCatalogue->finish(number, {6000, 376, true}).ok());
    close(begun.fd);
    ASSERT_TRUE(other->setPosition(number, 1234).ok());
    RecordingDetails whole;
    ASSERT_TRUE(other->findByPath(mFolder.path("catalogue/../tv/Canal - Filme.ts"), &whole).ok());
    EXPECT_EQ(std::tie(whole.number, whole.state, whole.durationMs, whole.positionMs),
              std::make_tuple(number, RecordingState::Whole, 6000, 1234));
    EXPECT_GE(whole.endTimeS, whole.startTimeS);
    EXPECT_THAT(contentOf(whole.sidecarPath()), testing::HasSubstr("\"state\": \"whole\""));
    ASSERT_TRUE(other->remove(number).ok());
    EXPECT_TRUE(std::filesystem::is_empty(mFolder.path("tv")));
    EXPECT_EQ(mCatalogue->find(number, &whole).status, RecordingStatus::NoSuchRecording);
}

TEST_F(CatalogueTest, NeverWritesOverAFileNorGivesANumberTwice) {
    const int first = recordWhole("A", "B");
    writeFile(mFolder.path("tv/A - B (2).index"), "somebody's");
    const int second = recordWhole("A", "B");
    EXPECT_EQ(found(second).path, mFolder.path("tv/A - B (3).ts"));
    writeFile(mFolder.path("tv/A - C.json"), "somebody's");
    RecordingDetails renamed;
    ASSERT_TRUE(mCatalogue->setLabels(second, "A", "C", &renamed).ok());
    EXPECT_EQ(renamed.path, mFolder.path("tv/A - C (2).ts"));
    ASSERT_TRUE(mCatalogue->setLabels(second, "A", "C", &renamed).ok());
    EXPECT_EQ(contentOf(mFolder.path("tv/A - C.json")), "somebody's");
    EXPECT_FALSE(std::filesystem::exists(mFolder.path("tv/A - B (3).json")));
    // The highest number is gone, and then the database.
    ASSERT_TRUE(mCatalogue->remove(second).ok());
    mCatalogue.reset();
    writeFile(mFolder.path("catalogue/catalogue.db"), std::string(8192, 'x'));
    mCatalogue = mFolder.open();
    EXPECT_EQ(found(first).programmeName, "B");
    EXPECT_GT(recordWhole("A", "D"), second);
}

TEST_F(CatalogueTest, SaysInOneLineWhyAStorageCannotBeUsed) {
    mFolder.storages.set(2, mFolder.path("file/below"));
    mFolder.storages.set(3, "/proc/recordings");
    mFolder.storages.set(4, "/dev/full");
    writeFile(mFolder.path("file"), "");
    mCatalogue = mFolder.open();
    const std::pair<int, RecordingStatus> cases[] = {{9, RecordingStatus::NoSuchStorage},
                                                     {-1, RecordingStatus::NoSuchStorage},
                                                     {2, RecordingStatus::NoFolder},
                                                     {3, RecordingStatus::NoFolder},
                                                     {4, RecordingStatus::NoFolder}};
    for (const auto& [type, status] : cases) {
        NewRecording recording;
        recording.storageType = type;
        BegunRecording begun;
        const auto result = mCatalogue->begin(recording, &begun);
        EXPECT_EQ(result.status, status) << type << ": " << result.message;
        EXPECT_EQ(result.message.find('\n'), std::string::npos);
        EXPECT_EQ(begun.fd, -1);
    }
    EXPECT_TRUE(mCatalogue->list(0, 10).recordings.empty());
    for (const auto& [error, status] :
         {std::pair(ENOSPC, RecordingStatus::NoSpace), std::pair(EROFS, RecordingStatus::ReadOnly),
          std::pair(EIO, RecordingStatus::StorageError)}) {
        EXPECT_EQ(orvhost::storageFailure(error, "x").status, status);
    }
}

TEST_F(CatalogueTest, PagesThroughTenThousand) {
    constexpr int COUNT = 10'000;
    orvhost::RecordingResult result;
    const auto database = orvhost::CatalogueDatabase::open(mFolder.path("catalogue"), &result);
    result = database->write([&](orvhost::CatalogueRows& rows) {
        for (int i = 0; i < COUNT; ++i) {
            orvhost::CatalogueRow row;
            row.uid = orvhost::newUid();
            row.details.path = mFolder.path("tv/" + std::to_string(i) + ".ts");
            row.details.state = RecordingState::Whole;
            EXPECT_TRUE(rows.insert(&row));
        }
        return orvhost::RecordingResult();
    });
    ASSERT_TRUE(result.ok()) << result.message;
    int count = 0;
    int last = 0;
    for (auto page = mCatalogue->list(0, 999); !page.recordings.empty();
         page = mCatalogue->list(last, 999)) {
        for (const RecordingDetails& details : page.recordings) {
            EXPECT_GT(details.number, last);
            last = details.number;
            ++count;
        }
    }
    EXPECT_EQ(count, COUNT);
}

}  // namespace
