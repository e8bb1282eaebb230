#include <sqlite3.h>

#include <algorithm>
#include <initializer_list>

#include "recording/CatalogueDatabase.h"

namespace orvhost {

namespace {

// In the order of bindRow() and readRow().
constexpr char COLUMNS[] =
    "number, uid, path, next_path, stage, state, station, programme, creation_time, "
    "start_time, end_time, duration_ms, size_bytes, mode, storage, can_play, video_pid, "
    "audio_pid, audio_framing, position_ms";
constexpr char PLACES[] = "?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?";

std::string selectRows(const std::string& rest) {
    return std::string("SELECT ") + COLUMNS + " FROM recordings " + rest;
}

}  // namespace

// One statement, with its values bound in order. An error is kept in the rows.
class CatalogueRows::Statement {
public:
    Statement(CatalogueRows& rows, const std::string& sql) : mRows(rows) {
        check(sqlite3_prepare_v2(rows.mDatabase, sql.c_str(), -1, &mStatement, nullptr));
    }
    ~Statement() { sqlite3_finalize(mStatement); }
    Statement(const Statement&) = delete;  // owns the statement
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int64_t number) {
        check(sqlite3_bind_int64(mStatement, ++mBound, number));
        return *this;
    }
    // The text must outlive the steps.
    Statement& bind(std::string_view text) {
        const char* const from = text.empty() ? "" : text.data();
        check(sqlite3_bind_text(mStatement, ++mBound, from, static_cast<int>(text.size()),
                                SQLITE_STATIC));
        return *this;
    }
    Statement& bindNull() {
        ++mBound;
        return *this;
    }
    Statement& bindRow(const CatalogueRow& row);

    // True while there is a row.
    bool step() {
        if (mRows.mError != SQLITE_OK) {
            return false;
        }
        const int status = sqlite3_step(mStatement);
        if (status != SQLITE_ROW && status != SQLITE_DONE) {
            check(status);
        }
        return status == SQLITE_ROW;
    }
    int64_t number() { return sqlite3_column_int64(mStatement, mColumn++); }
    int number(int low, int high) {
        return static_cast<int>(std::clamp<int64_t>(number(), low, high));
    }
    std::string text() {
        const auto* from = sqlite3_column_text(mStatement, mColumn);
        const auto size = static_cast<size_t>(sqlite3_column_bytes(mStatement, mColumn++));
        return from != nullptr ? std::string(reinterpret_cast<const char*>(from), size) : "";
    }
    void readRow(CatalogueRow* row);

private:
    void check(int status) {
        if (status != SQLITE_OK && mRows.mError == SQLITE_OK) {
            mRows.mError = status;
        }
    }

    CatalogueRows& mRows;
    sqlite3_stmt* mStatement = nullptr;
    int mBound = 0;
    int mColumn = 0;
};

CatalogueRows::Statement& CatalogueRows::Statement::bindRow(const CatalogueRow& row) {
    const RecordingDetails& details = row.details;
    details.number == 0 ? bindNull() : bind(details.number);
    bind(row.uid).bind(details.path);
    row.nextPath.empty() ? bindNull() : bind(row.nextPath);
    bind(row.stage).bind(static_cast<int64_t>(details.state));
    bind(details.stationName).bind(details.programmeName);
    for (const int64_t number :
         {details.creationTimeS, details.startTimeS, details.endTimeS, details.durationMs,
          details.sizeBytes, int64_t{details.mode}, int64_t{details.storageType},
          int64_t{details.canPlay}, int64_t{details.videoPid}, int64_t{details.audioPid},
          int64_t{details.audioFraming}, details.positionMs}) {
        bind(number);
    }
    return *this;
}

void CatalogueRows::Statement::readRow(CatalogueRow* row) {
    RecordingDetails& details = row->details;
    mColumn = 0;
    details.number = number(0, INT32_MAX);
    row->uid = text();
    details.path = text();
    row->nextPath = text();
    row->stage = static_cast<CatalogueRow::Stage>(number(0, CatalogueRow::Removing));
    details.state =
        static_cast<RecordingState>(number(0, static_cast<int>(RecordingState::Missing)));
    details.stationName = text();
    details.programmeName = text();
    for (int64_t* value : {&details.creationTimeS, &details.startTimeS, &details.endTimeS,
                           &details.durationMs, &details.sizeBytes}) {
        *value = number();
    }
    details.mode = static_cast<int32_t>(number());
    details.storageType = static_cast<int32_t>(number());
    details.canPlay = number() != 0;
    for (int32_t* value : {&details.videoPid, &details.audioPid, &details.audioFraming}) {
        *value = static_cast<int32_t>(number());
    }
    details.positionMs = number();
}

bool CatalogueRows::insert(CatalogueRow* row) {
    CatalogueRow other;
    if (row->details.number != 0 && get(row->details.number, &other)) {
        return false;
    }
    Statement(*this,
              std::string("INSERT INTO recordings (") + COLUMNS + ") VALUES (" + PLACES + ")")
        .bindRow(*row)
        .step();
    row->details.number = static_cast<int>(sqlite3_last_insert_rowid(mDatabase));
    return mError == SQLITE_OK;
}

void CatalogueRows::replace(const CatalogueRow& row) {
    Statement(*this, std::string("UPDATE recordings SET (") + COLUMNS + ") = (" + PLACES +
                         ") WHERE number = ?1")
        .bindRow(row)
        .step();
}

void CatalogueRows::erase(int number) {
    Statement(*this, "DELETE FROM recordings WHERE number = ?").bind(number).step();
}

bool CatalogueRows::get(int number, CatalogueRow* row) {
    Statement statement(*this, selectRows("WHERE number = ?"));
    if (!statement.bind(number).step()) {
        return false;
    }
    statement.readRow(row);
    return true;
}

bool CatalogueRows::getWhere(const char* condition, std::string_view text, CatalogueRow* row) {
    Statement statement(*this, selectRows(std::string("WHERE ") + condition));
    if (!statement.bind(text).step()) {
        return false;
    }
    statement.readRow(row);
    return true;
}

bool CatalogueRows::getByUid(const std::string& uid, CatalogueRow* row) {
    return getWhere("uid = ?", uid, row);
}

bool CatalogueRows::getByPath(const std::string& path, CatalogueRow* row) {
    return getWhere("path = ?1 OR next_path = ?1", path, row);
}

std::vector<RecordingDetails> CatalogueRows::list(int afterNumber, int count) {
    Statement statement(*this,
                        selectRows("WHERE number > ? AND stage = 0 ORDER BY number LIMIT ?"));
    statement.bind(afterNumber).bind(count);
    std::vector<RecordingDetails> found;
    CatalogueRow row;
    while (statement.step()) {
        statement.readRow(&row);
        found.push_back(row.details);
    }
    return found;
}

std::vector<CatalogueRow> CatalogueRows::all() {
    Statement statement(*this, selectRows("ORDER BY number"));
    std::vector<CatalogueRow> found;
    while (statement.step()) {
        statement.readRow(&found.emplace_back());
    }
    return found;
}

int CatalogueRows::lastNumber() {
    Statement statement(*this, "SELECT seq FROM sqlite_sequence WHERE name = 'recordings'");
    return statement.step() ? statement.number(0, INT32_MAX) : 0;
}

// The row of sqlite_sequence is there once a number was given.
void CatalogueRows::raiseLastNumber(int number) {
    if (number <= lastNumber()) {
        return;
    }
    Statement(*this, "DELETE FROM sqlite_sequence WHERE name = 'recordings'").step();
    Statement(*this, "INSERT INTO sqlite_sequence (name, seq) VALUES ('recordings', ?)")
        .bind(number)
        .step();
}

}  // namespace orvhost
