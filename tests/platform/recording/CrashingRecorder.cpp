// Records, names, finishes, discards, imports, removes and repairs in a catalogue, tells each deed
// when it is done, and kills itself before the N-th call that changes a file.
//
//   crashing_recorder FOLDER N record STREAM     numbers of recordings come with each deed
//   crashing_recorder FOLDER N repair

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "recording/Catalogue.h"
#include "recording/RecordingStorages.h"

namespace {

int sCallsLeft = 0;

void step() {
    if (sCallsLeft > 0 && --sCallsLeft == 0) {
        kill(getpid(), SIGKILL);
    }
}

void tell(const char* deed, int number) {
    char line[64];
    const int size = snprintf(line, sizeof line, "%s %d\n", deed, number);
    syscall(SYS_write, STDOUT_FILENO, line, static_cast<size_t>(size));
}

void require(const orvhost::RecordingResult& result) {
    if (!result.ok()) {
        fprintf(stderr, "%s\n", result.message.c_str());
        _exit(1);
    }
}

int begin(orvhost::Catalogue& catalogue, orvhost::BegunRecording* begun) {
    require(catalogue.begin({}, begun));
    tell("begun", begun->details.number);
    return begun->details.number;
}

void record(orvhost::Catalogue& catalogue, const char* streamPath) {
    std::ifstream file(streamPath, std::ios::binary);
    const std::vector<char> stream{std::istreambuf_iterator<char>(file), {}};
    const size_t half = stream.size() / 2 + 100;  // inside a packet
    orvhost::BegunRecording begun;
    const int first = begin(catalogue, &begun);
    [[maybe_unused]] ssize_t n = write(begun.fd, stream.data(), half);
    require(catalogue.setLabels(first, "A", "B"));
    tell("named", first);
    n = write(begun.fd, stream.data() + half, stream.size() - half);
    tell("written", first);
    require(catalogue.finish(first, {119 * 40, static_cast<int64_t>(stream.size()), true}));
    close(begun.fd);
    tell("finished", first);
    require(catalogue.setLabels(first, "C", "D"));
    tell("renamed", first);

    const int second = begin(catalogue, &begun);
    n = write(begun.fd, stream.data(), half);
    tell("discarding", second);
    require(catalogue.discard(second));
    close(begun.fd);
    tell("gone", second);

    const int source = open(streamPath, O_RDONLY | O_CLOEXEC);
    orvhost::RecordingDetails imported;
    require(catalogue.importFile(source, "film.ts", {}, nullptr, &imported));
    tell("imported", imported.number);
    tell("discarding", first);
    require(catalogue.remove(first));
    tell("gone", first);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(list, int) : 0;
    va_end(list);
    if ((flags & O_CREAT) != 0) {
        step();
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
int rename(const char* from, const char* to) {
    step();
    return static_cast<int>(syscall(SYS_renameat, AT_FDCWD, from, AT_FDCWD, to));
}
int renameat2(int fromFd, const char* from, int toFd, const char* to, unsigned flags) {
    step();
    return static_cast<int>(syscall(SYS_renameat2, fromFd, from, toFd, to, flags));
}
int unlink(const char* path) {
    step();
    return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}
int ftruncate(int fd, off_t size) {
    step();
    return static_cast<int>(syscall(SYS_ftruncate, fd, size));
}
ssize_t write(int fd, const void* data, size_t size) {
    step();
    return syscall(SYS_write, fd, data, size);
}
ssize_t pwrite(int fd, const void* data, size_t size, off_t at) {
    step();
    return syscall(SYS_pwrite64, fd, data, size, at);
}

}  // extern "C"

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    const std::string folder = argv[1];
    orvhost::RecordingStorages storages;
    storages.set(0, folder + "/tv");
    storages.nameTemplate = "{channel} - {programme}";
    orvhost::RecordingResult result;
    sCallsLeft = atoi(argv[2]);
    const auto catalogue = orvhost::Catalogue::open(folder + "/catalogue", storages, &result);
    require(result);
    if (strcmp(argv[3], "repair") == 0) {
        require(catalogue->repair().result);
    } else {
        record(*catalogue, argv[4]);
    }
    return 0;
}
