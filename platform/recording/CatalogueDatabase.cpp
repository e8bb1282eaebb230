#include "recording/CatalogueDatabase.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "recording/RecordingStorages.h"
#include "trace/HostLog.h"

namespace orvhost {

namespace {

constexpr int BUSY_MS = 10'000;  // longest wait for another process's transaction
constexpr int SCHEMA_VERSION = 1;

constexpr char SCHEMA[] = R"(
    CREATE TABLE recordings (
        number INTEGER PRIMARY KEY AUTOINCREMENT,
        uid TEXT NOT NULL UNIQUE,
        path TEXT NOT NULL UNIQUE,
        next_path TEXT,
        stage INTEGER NOT NULL,
        state INTEGER NOT NULL,
        station TEXT NOT NULL,
        programme TEXT NOT NULL,
        creation_time INTEGER NOT NULL,
        start_time INTEGER NOT NULL,
        end_time INTEGER NOT NULL,
        duration_ms INTEGER NOT NULL,
        size_bytes INTEGER NOT NULL,
        mode INTEGER NOT NULL,
        storage INTEGER NOT NULL,
        can_play INTEGER NOT NULL,
        video_pid INTEGER NOT NULL,
        audio_pid INTEGER NOT NULL,
        audio_framing INTEGER NOT NULL,
        position_ms INTEGER NOT NULL
    ) STRICT;
    CREATE INDEX by_next_path ON recordings (next_path) WHERE next_path IS NOT NULL;
    PRAGMA user_version = 1;
)";

// Held while a catalogue is opened, made or set aside: one process at a time.
class OpeningLock {
public:
    explicit OpeningLock(const std::string& folder)
        : mFd(open((folder + "/catalogue.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        while (mFd >= 0 && flock(mFd, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~OpeningLock() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    OpeningLock(const OpeningLock&) = delete;  // owns the descriptor
    OpeningLock& operator=(const OpeningLock&) = delete;

private:
    const int mFd;
};

bool isDamage(int error) {
    const int primary = error & 0xFF;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

// The number in the first column of the first row, -1 without one.
int askNumber(sqlite3* database, const char* sql, int* status) {
    int number = -1;
    *status = sqlite3_exec(
        database, sql,
        [](void* out, int, char** values, char**) {
            *static_cast<int*>(out) = values[0] != nullptr ? atoi(values[0]) : -1;
            return 0;
        },
        &number, nullptr);
    return number;
}

}  // namespace

CatalogueDatabase::CatalogueDatabase(const std::string& folder) : mFolder(folder) {}

CatalogueDatabase::~CatalogueDatabase() {
    disconnect();
}

std::unique_ptr<CatalogueDatabase> CatalogueDatabase::open(const std::string& folder,
                                                           RecordingResult* result) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        *result = storageFailure(error.value(), folder);
        return nullptr;
    }
    std::unique_ptr<CatalogueDatabase> database(new CatalogueDatabase(folder));
    const OpeningLock lock(folder);
    *result = database->connect();
    return result->ok() ? std::move(database) : nullptr;
}

// With the opening lock.
RecordingResult CatalogueDatabase::connect() {
    int error = connectOnce();
    if (isDamage(error)) {
        if (const RecordingResult aside = setAside(); !aside.ok()) {
            return aside;
        }
        error = connectOnce();
    }
    if (error != SQLITE_OK) {
        const RecordingResult result = failure(error);
        disconnect();
        return result;
    }
    struct stat status = {};
    if (stat(path().c_str(), &status) == 0) {
        mDevice = status.st_dev;
        mInode = status.st_ino;
    }
    return {};
}

int CatalogueDatabase::connectOnce() {
    // NOMUTEX: a transaction holds mMutex.
    int error =
        sqlite3_open_v2(path().c_str(), &mDatabase,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (error != SQLITE_OK) {
        return error;
    }
    sqlite3_extended_result_codes(mDatabase, 1);
    sqlite3_busy_timeout(mDatabase, BUSY_MS);
    // Where the file system has no shared memory for the write-ahead log the mode stays another
    // one, which readers and the writer then wait for each other in.
    error = sqlite3_exec(mDatabase,
                         "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; "
                         "PRAGMA trusted_schema = OFF; PRAGMA cell_size_check = ON",
                         nullptr, nullptr, nullptr);
    return error == SQLITE_OK ? makeSchema() : error;
}

int CatalogueDatabase::makeSchema() {
    int error = SQLITE_OK;
    const int version = askNumber(mDatabase, "PRAGMA user_version", &error);
    if (error != SQLITE_OK || version == SCHEMA_VERSION) {
        return error;
    }
    if (version != 0) {
        return SQLITE_MISMATCH;
    }
    error = sqlite3_exec(mDatabase, (std::string("BEGIN IMMEDIATE;") + SCHEMA + "COMMIT;").c_str(),
                         nullptr, nullptr, nullptr);
    mIsNew = mIsNew || error == SQLITE_OK;
    return error;
}

void CatalogueDatabase::disconnect() {
    sqlite3_close(mDatabase);
    mDatabase = nullptr;
}

bool CatalogueDatabase::isReplaced() const {
    struct stat status = {};
    return stat(path().c_str(), &status) != 0 || status.st_dev != mDevice ||
           status.st_ino != mInode;
}

bool CatalogueDatabase::isSound() {
    std::string answer;
    const int error = sqlite3_exec(
        mDatabase, "PRAGMA quick_check(1)",
        [](void* out, int, char** values, char**) {
            *static_cast<std::string*>(out) = values[0] != nullptr ? values[0] : "";
            return 0;
        },
        &answer, nullptr);
    return error == SQLITE_OK ? answer == "ok" : !isDamage(error);
}

// With the opening lock. The logs belong to the file and go with it.
RecordingResult CatalogueDatabase::setAside() {
    disconnect();
    std::array<char, 32> stamp{};
    const time_t now = time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    strftime(stamp.data(), stamp.size(), ".damaged-%Y%m%d-%H%M%S", &local);
    const std::string aside = path() + stamp.data();
    HOST_LOGW("%s: the catalogue is damaged and set aside as %s\n", __func__, aside.c_str());
    for (const char* suffix : {"-shm", "-wal", ""}) {
        if (rename((path() + suffix).c_str(), (aside + suffix).c_str()) != 0 && errno != ENOENT) {
            return storageFailure(errno, path());
        }
    }
    mIsNew = true;
    return {};
}

bool CatalogueDatabase::replaceIfDamaged(RecordingResult* result) {
    std::lock_guard guard(mMutex);
    const OpeningLock lock(mFolder);
    *result = {};
    if (mDatabase == nullptr || isReplaced()) {
        disconnect();
        *result = connect();
    }
    if (!result->ok() || isSound()) {
        return false;
    }
    *result = setAside();
    if (result->ok()) {
        *result = connect();
    }
    return true;
}

RecordingResult CatalogueDatabase::read(const Work& work) {
    return transact("BEGIN", work);
}

RecordingResult CatalogueDatabase::write(const Work& work) {
    return transact("BEGIN IMMEDIATE", work);
}

RecordingResult CatalogueDatabase::transact(const char* begin, const Work& work) {
    std::lock_guard guard(mMutex);
    if (mDatabase == nullptr || isReplaced()) {
        disconnect();
        const OpeningLock lock(mFolder);
        if (RecordingResult result = connect(); !result.ok()) {
            return result;
        }
    }
    int error = sqlite3_exec(mDatabase, begin, nullptr, nullptr, nullptr);
    if (error != SQLITE_OK) {
        return failure(error);
    }
    CatalogueRows rows(mDatabase);
    RecordingResult result = work(rows);
    if (rows.error() != SQLITE_OK) {
        result = failure(rows.error());
    }
    if (result.ok()) {
        error = sqlite3_exec(mDatabase, "COMMIT", nullptr, nullptr, nullptr);
        if (error != SQLITE_OK) {
            result = failure(error);
        }
    }
    if (!result.ok() && sqlite3_get_autocommit(mDatabase) == 0) {
        sqlite3_exec(mDatabase, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    return result;
}

RecordingResult CatalogueDatabase::failure(int error) const {
    const std::string name = path();
    switch (error & 0xFF) {
        case SQLITE_FULL:
            return storageFailure(ENOSPC, name);
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return storageFailure(EACCES, name);
        case SQLITE_CANTOPEN:
            return {RecordingStatus::CatalogueError,
                    name + ": cannot be opened; look at the permissions of its folder"};
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return {RecordingStatus::CatalogueError,
                    name + ": another process keeps it locked; try again"};
        case SQLITE_MISMATCH:
            return {RecordingStatus::CatalogueError,
                    name + ": made by a newer version of this program; install that"};
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return {RecordingStatus::CatalogueError,
                    name + ": is damaged; repair the recordings, which makes it anew"};
        default:
            return {RecordingStatus::CatalogueError, name + ": " + sqlite3_errstr(error)};
    }
}

}  // namespace orvhost
