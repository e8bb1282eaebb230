#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>

#include "recording/Catalogue.h"
#include "recording/CatalogueDatabase.h"
#include "recording/RecordingStorages.h"
#include "recording/Sidecar.h"

// A catalogue of ten thousand recordings, as the service reads it for a list.

namespace orvbench {

namespace {

using namespace orvhost;

constexpr int RECORDINGS = 10'000;
constexpr int PAGE = 999;

// Gone with the object.
class BigCatalogue {
public:
    BigCatalogue() {
        if (mkdtemp(mFolder.data()) == nullptr) {
            return;
        }
        RecordingResult result;
        const auto database = CatalogueDatabase::open(mFolder, &result);
        if (database == nullptr) {
            return;
        }
        result = database->write([this](CatalogueRows& rows) {
            for (int i = 0; i < RECORDINGS; ++i) {
                CatalogueRow row;
                row.uid = newUid();
                row.details.path =
                    mFolder + "/2026-11-21 2015 Canal Um - Jornal " + std::to_string(i) + ".ts";
                row.details.stationName = "Canal Um";
                row.details.programmeName = "Jornal " + std::to_string(i);
                row.details.state = RecordingState::Whole;
                rows.insert(&row);
            }
            return RecordingResult();
        });
        mCatalogue = Catalogue::open(mFolder, RecordingStorages(), &result);
    }
    ~BigCatalogue() {
        mCatalogue.reset();
        std::error_code ignored;
        std::filesystem::remove_all(mFolder, ignored);
    }
    BigCatalogue(const BigCatalogue&) = delete;  // owns the folder
    BigCatalogue& operator=(const BigCatalogue&) = delete;

    Catalogue* get() const { return mCatalogue.get(); }

private:
    std::string mFolder = "/tmp/orvbench-catalogue-XXXXXX";
    std::unique_ptr<Catalogue> mCatalogue;
};

void listAll(benchmark::State& state) {
    const BigCatalogue big;
    for (auto _ : state) {
        int count = 0;
        int last = 0;
        while (big.get() != nullptr) {
            const RecordingList page = big.get()->list(last, PAGE);
            if (page.recordings.empty()) {
                break;
            }
            count += static_cast<int>(page.recordings.size());
            last = page.recordings.back().number;
        }
        if (count != RECORDINGS) {
            state.SkipWithError("the catalogue does not list what is in it");
            break;
        }
    }
}
BENCHMARK(listAll)->Name("catalogue/list10000")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace orvbench
