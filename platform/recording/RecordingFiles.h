#pragma once

#include <string>

#include "recording/FileBytes.h"
#include "recording/RecordingDetails.h"

// The three files of a recording: NAME.ts, and beside it NAME.json and NAME.index. Paths are those
// of NAME.ts.
namespace orvhost {

// Whether one of the three is there.
bool isNameTaken(const std::string& path);

// Creates NAME.ts, locked for who writes it. -1 with errno set, EEXIST when it is there.
int createRecordingFile(const std::string& path);

enum class Openness { Opened, InUse, Gone, Failed };

// Opens it for reading and writing, with the lock, unless a live process holds that: the lock
// belongs to the open file, so that other descriptors of the same process count like others'.
Openness openUnused(const std::string& path, UniqueFd* file);

// Gives the files another name, one after the other; those that have it already stay. Nothing is
// written over: StorageError, and all stay, when another NAME.ts is there; of the other two the one
// that cannot be renamed goes.
RecordingResult moveRecordingFiles(const std::string& from, const std::string& to);

// The files go; that one is not there is no failure.
RecordingResult removeRecordingFiles(const std::string& path);

// Cuts the file behind its last whole packet: what is no packet there (a piece, or blocks of zeros
// after a power failure) goes, and so does space that was reserved. The file keeps its times. Bytes
// that are left, or -1 with errno set.
int64_t trimToPackets(int fd);

bool exists(const std::string& path);
// Bytes of a file, 0 where there is none.
int64_t fileSize(const std::string& path);

}  // namespace orvhost
