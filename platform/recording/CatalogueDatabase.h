#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "recording/Sidecar.h"

struct sqlite3;
struct sqlite3_stmt;

namespace orvhost {

// A row: the sidecar's content, and what was begun with its files. Whoever finds a row that a
// process left in the middle of something ends that (RecordingRepair.h).
struct CatalogueRow : Sidecar {
    enum Stage {
        Ready,
        Importing,  // thrown away when its process is gone; not listed
        Removing,   // files go first, then the row; not listed
    };

    Stage stage = Ready;
    std::string nextPath;  // not empty: the files are being renamed to that of this path
};

// The rows, inside a transaction. An error of the database makes the transaction fail; what these
// functions answer after one has no meaning.
class CatalogueRows {
public:
    explicit CatalogueRows(sqlite3* database) : mDatabase(database) {}

    // With details.number 0 it gets a new number, else that one: false when it is taken. The path
    // must not be that of another row.
    bool insert(CatalogueRow* row);
    void replace(const CatalogueRow& row);  // by number
    void erase(int number);

    bool get(int number, CatalogueRow* row);
    bool getByUid(const std::string& uid, CatalogueRow* row);
    // True also when files are being renamed to it.
    bool getByPath(const std::string& path, CatalogueRow* row);
    // Of rows that are ready.
    std::vector<RecordingDetails> list(int afterNumber, int count);
    std::vector<CatalogueRow> all();

    // Numbers up to this one are not given again.
    int lastNumber();
    void raiseLastNumber(int number);

    int error() const { return mError; }  // of SQLite; 0: none

private:
    class Statement;
    friend class Statement;

    bool getWhere(const char* condition, std::string_view text, CatalogueRow* row);

    sqlite3* const mDatabase;
    int mError = 0;
};

// catalogue.db in a folder, with the log files beside it that let several processes read while one
// writes. Any thread; transactions of one process run one after the other.
class CatalogueDatabase {
public:
    // Opens or makes it. One that cannot be read is set aside as catalogue.db.damaged-DATE-TIME,
    // and isNew() tells that the rows are to be had from the sidecars.
    static std::unique_ptr<CatalogueDatabase> open(const std::string& folder,
                                                   RecordingResult* result);
    ~CatalogueDatabase();
    CatalogueDatabase(const CatalogueDatabase&) = delete;  // owns the connection
    CatalogueDatabase& operator=(const CatalogueDatabase&) = delete;

    using Work = std::function<RecordingResult(CatalogueRows& rows)>;

    // What `work` reads is of one moment.
    RecordingResult read(const Work& work);
    // Alone among all processes; durable when it answers Ok, else without a trace in the database.
    // Sidecars are written inside, so that two processes never write one at a time.
    RecordingResult write(const Work& work);

    // Looks at all of it; a damaged one is set aside as by open(). True when that was so.
    bool replaceIfDamaged(RecordingResult* result);

    bool isNew() const { return mIsNew; }
    const std::string& folder() const { return mFolder; }

private:
    explicit CatalogueDatabase(const std::string& folder);

    std::string path() const { return mFolder + "/catalogue.db"; }
    RecordingResult connect();
    int connectOnce();
    int makeSchema();
    void disconnect();
    bool isReplaced() const;
    bool isSound();
    RecordingResult setAside();
    RecordingResult transact(const char* begin, const Work& work);
    RecordingResult failure(int error) const;

    const std::string mFolder;
    std::mutex mMutex;  // guards what follows
    sqlite3* mDatabase = nullptr;
    dev_t mDevice = 0;  // which file it is: another process may set a damaged one aside
    ino_t mInode = 0;
    bool mIsNew = false;
};

}  // namespace orvhost
