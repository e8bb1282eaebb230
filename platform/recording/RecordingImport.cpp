#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "dtv/PacketSynchronizer.h"
#include "dtv/ServiceTables.h"
#include "recording/Catalogue.h"
#include "recording/CatalogueDatabase.h"
#include "recording/FileBytes.h"
#include "recording/RecordingIndex.h"
#include "recording/RecordingStorages.h"
#include "recording/RowFiles.h"

namespace orvhost {

namespace {

constexpr size_t READ_BYTES = 1 << 20;
constexpr int64_t MAX_JUNK_BYTES = 16 << 20;

int64_t sizeOf(const struct stat& status) {
    return static_cast<int64_t>(status.st_size);
}

// What a file has of whole packets, piece by piece.
class PacketReader {
public:
    explicit PacketReader(int fd)
        : mFd(fd), mBuffer(READ_BYTES + PacketSynchronizer::MAX_LEFT_OVER) {}

    // The next packets, 188 bytes each, good until the next call; 0 at the end, after an error, and
    // where the beginning of a file is something else.
    size_t read() {
        size_t packets = 0;
        while (packets == 0 && !mAtEnd && (mSynchronizer.period() > 0 || mDone < MAX_JUNK_BYTES)) {
            std::copy(mBuffer.data() + mConsumed, mBuffer.data() + mFilled, mBuffer.data());
            mFilled -= mConsumed;
            mConsumed = 0;
            const ssize_t n = pread(mFd, mBuffer.data() + mFilled, READ_BYTES, mDone);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            mError = n < 0 ? errno : 0;
            mAtEnd = n <= 0;
            mDone += std::max<ssize_t>(n, 0);
            mFilled += static_cast<size_t>(std::max<ssize_t>(n, 0));
            const auto found = mSynchronizer.align(mBuffer.data(), mFilled, mAtEnd);
            mConsumed = found.consumed;
            packets = found.packets;
        }
        return packets;
    }
    const uint8_t* packets() const { return mBuffer.data(); }
    int64_t done() const { return mDone; }
    int error() const { return mError; }

private:
    const int mFd;
    PacketSynchronizer mSynchronizer;
    std::vector<uint8_t> mBuffer;
    size_t mFilled = 0;
    size_t mConsumed = 0;
    int64_t mDone = 0;
    bool mAtEnd = false;
    int mError = 0;
};

// What the tables at the head say of the service that is played.
void describe(const ServiceTables& tables, const IndexedProgramme& programme,
              RecordingDetails* details) {
    const std::vector<Service> services = tables.services();
    auto service = std::find_if(services.begin(), services.end(), [&](const Service& one) {
        return one.serviceId == programme.serviceId;
    });
    if (service == services.end()) {
        return;
    }
    details->videoPid = programme.videoPid == PID_NONE ? -1 : programme.videoPid;
    for (const ElementaryStream& stream : service->streams) {
        const bool sound =
            stream.kind >= StreamKind::AudioLatm && stream.kind <= StreamKind::AudioMpeg;
        if (sound && details->audioPid < 0) {
            details->audioPid = stream.pid;
            details->audioFraming =
                static_cast<int>(stream.kind) - static_cast<int>(StreamKind::AudioLatm);
        }
    }
}

std::string firstServiceName(const ServiceTables& tables) {
    const std::vector<Service> services = tables.services();
    return services.empty() ? "" : services.front().name;
}

}  // namespace

// One import: copies, and makes the index and the details on the way.
class RecordingImport {
public:
    RecordingImport(int fd, const std::string& name, const Catalogue::Progress& progress)
        : mName(name), mProgress(progress), mReader(fd) {}

    // Looks at the head; what it finds completes `recording`.
    RecordingResult open(const struct stat& status, NewRecording* recording) {
        mTotal = sizeOf(status);
        mPackets = S_ISREG(status.st_mode) ? mReader.read() : 0;
        if (mPackets == 0) {
            return {RecordingStatus::BadFile,
                    mName + ": " +
                        (mReader.error() != 0 ? strerror(mReader.error())
                                              : "no transport stream in it; nothing to import")};
        }
        pushTables();
        if (recording->stationName.empty()) {
            recording->stationName = firstServiceName(mTables);
        }
        if (recording->programmeName.empty()) {
            recording->programmeName = std::filesystem::path(mName).stem().string();
        }
        recording->creationTimeS = status.st_mtime;
        return {};
    }

    RecordingResult copyTo(const BegunRecording& begun, RecordingDetails* details) {
        for (; mPackets > 0; mPackets = mReader.read()) {
            if (const int error = copyPackets(begun); error != 0) {
                return storageFailure(error, begun.details.path);
            }
            if (mProgress && !mProgress(std::min(mReader.done(), mTotal), mTotal)) {
                return {RecordingStatus::Cancelled, mName + ": not imported, cancelled"};
            }
        }
        if (mReader.error() != 0) {
            return {RecordingStatus::BadFile, mName + ": " + strerror(mReader.error())};
        }
        if (fsync(begun.fd) != 0) {
            return storageFailure(errno, begun.details.path);
        }
        if (mIndex != nullptr) {
            mIndex->finish(begun.fd);
            details->durationMs = mIndex->durationMs();
        }
        describe(mTables, mProgramme, details);
        details->sizeBytes = mWritten;
        return {};
    }

private:
    void pushTables() {
        for (size_t i = 0; i < mPackets; ++i) {
            const uint8_t* const packet = mReader.packets() + i * TS_PACKET_BYTES;
            if (mTables.wants(pidOf(packet))) {
                mTables.push(packet);
            }
        }
    }

    int copyPackets(const BegunRecording& begun) {
        const size_t size = mPackets * TS_PACKET_BYTES;
        if (!writeAllAt(begun.fd, mReader.packets(), size, static_cast<uint64_t>(mWritten))) {
            return errno;
        }
        if (mWritten == 0) {  // the head has the tables
            mProgramme = findProgramme(begun.fd, 0);
            mIndex = RecordingIndexWriter::create(begun.details.indexPath(), mProgramme);
        }
        mWritten += static_cast<int64_t>(size);
        if (mIndex != nullptr) {
            mIndex->add(mReader.packets(), mPackets);
        }
        return 0;
    }

    const std::string mName;
    const Catalogue::Progress& mProgress;
    PacketReader mReader;
    size_t mPackets = 0;  // that the reader holds
    int64_t mTotal = 0;
    int64_t mWritten = 0;
    ServiceTables mTables;
    IndexedProgramme mProgramme;
    std::unique_ptr<RecordingIndexWriter> mIndex;
};

RecordingResult Catalogue::importFile(int fd, const std::string& displayName,
                                      const NewRecording& recording, const Progress& progress,
                                      RecordingDetails* imported) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        return {RecordingStatus::BadFile, displayName + ": " + strerror(errno)};
    }
    NewRecording named = recording;
    RecordingImport work(fd, displayName, progress);
    RecordingResult result = work.open(status, &named);
    BegunRecording begun;
    if (result.ok()) {
        result = beginAs(CatalogueRow::Importing, named, &begun);
    }
    if (!result.ok()) {
        return result;
    }
    RecordingDetails details = begun.details;
    result = work.copyTo(begun, &details);
    if (result.ok()) {
        details.state = RecordingState::Whole;
        details.canPlay = true;
        details.endTimeS = details.startTimeS + details.durationMs / 1000;
        result = change(details.number, [&](CatalogueRow& row) {
            row.stage = CatalogueRow::Ready;
            row.details = details;
        });
    }
    if (!result.ok()) {
        removeRow(details.number);
    }
    close(begun.fd);
    if (result.ok() && imported != nullptr) {
        *imported = details;
    }
    return result;
}

}  // namespace orvhost
