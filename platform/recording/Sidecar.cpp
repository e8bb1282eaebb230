#include "recording/Sidecar.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>

#include "recording/RecordingName.h"
#include "recording/RecordingStorages.h"

namespace orvhost {

namespace {

using Json = nlohmann::json;

constexpr char FORMAT[] = "orvplayer-recording";
constexpr size_t MAX_SIDECAR_BYTES = 64 * 1024;
constexpr int64_t MAX_TIME_S = int64_t{1} << 40;
constexpr const char* STATES[] = {"recording", "whole", "repaired", "missing"};

// The whole number under this name, when it lies in [low, high].
template <typename T>
void take(const Json& object, const char* name, int64_t low, int64_t high, T* value) {
    const auto found = object.find(name);
    if (found == object.end() || !found->is_number_integer()) {
        return;
    }
    if (found->is_number_unsigned() && found->get<uint64_t>() > INT64_MAX) {
        return;
    }
    const auto number = found->get<int64_t>();
    if (number >= low && number <= high) {
        *value = static_cast<T>(number);
    }
}

std::string textAt(const Json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_string()
               ? cleanText(found->get_ref<const std::string&>())
               : "";
}

bool isUid(const std::string& text) {
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

RecordingState stateNamed(const std::string& name) {
    const auto* const found = std::find(std::begin(STATES), std::end(STATES), name);
    return found == std::end(STATES) ? RecordingState::Recording
                                     : static_cast<RecordingState>(found - std::begin(STATES));
}

// Durable once its folder is; 0, or an error number.
int writeDurably(const std::string& path, const std::string& content) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) {
        return errno;
    }
    size_t done = 0;
    int error = 0;
    while (done < content.size() && error == 0) {
        const ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n >= 0) {
            done += static_cast<size_t>(n);
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    if (error == 0 && fsync(fd) != 0) {
        error = errno;
    }
    close(fd);
    return error;
}

}  // namespace

std::string newUid() {
    std::array<uint8_t, 16> bytes{};
    // So few bytes come whole, and fail only where the kernel has no such call.
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        const uint64_t words[] = {static_cast<uint64_t>(now.tv_sec) << 30 | now.tv_nsec,
                                  static_cast<uint64_t>(getpid())};
        memcpy(bytes.data(), words, sizeof words);
    }
    std::string uid;
    for (const uint8_t byte : bytes) {
        uid += "0123456789abcdef"[byte >> 4];
        uid += "0123456789abcdef"[byte & 15];
    }
    return uid;
}

std::string sidecarText(const Sidecar& sidecar) {
    const RecordingDetails& details = sidecar.details;
    nlohmann::ordered_json object;
    object["format"] = FORMAT;
    object["version"] = 1;
    object["id"] = sidecar.uid;
    object["number"] = details.number;
    object["state"] = STATES[static_cast<size_t>(details.state)];
    object["channel"] = details.stationName;
    object["programme"] = details.programmeName;
    object["creationTime"] = details.creationTimeS;
    object["startTime"] = details.startTimeS;
    object["endTime"] = details.endTimeS;
    object["durationMs"] = details.durationMs;
    object["sizeBytes"] = details.sizeBytes;
    object["mode"] = details.mode;
    object["storageType"] = details.storageType;
    object["canPlay"] = details.canPlay;
    object["videoPid"] = details.videoPid;
    object["audioPid"] = details.audioPid;
    object["audioFraming"] = details.audioFraming;
    return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

bool parseSidecar(std::string_view text, Sidecar* sidecar) {
    if (text.size() > MAX_SIDECAR_BYTES) {
        return false;
    }
    const Json object = Json::parse(text, nullptr, false);
    if (!object.is_object() || textAt(object, "format") != FORMAT) {
        return false;
    }
    *sidecar = {};
    sidecar->uid = textAt(object, "id");
    if (!isUid(sidecar->uid)) {
        return false;
    }
    RecordingDetails& details = sidecar->details;
    take(object, "number", 1, INT32_MAX, &details.number);
    details.state = stateNamed(textAt(object, "state"));
    details.stationName = textAt(object, "channel");
    details.programmeName = textAt(object, "programme");
    take(object, "creationTime", 0, MAX_TIME_S, &details.creationTimeS);
    take(object, "startTime", 0, MAX_TIME_S, &details.startTimeS);
    take(object, "endTime", 0, MAX_TIME_S, &details.endTimeS);
    take(object, "durationMs", 0, MAX_TIME_S * 1000, &details.durationMs);
    take(object, "sizeBytes", 0, INT64_MAX, &details.sizeBytes);
    take(object, "mode", INT32_MIN, INT32_MAX, &details.mode);
    take(object, "storageType", 0, RecordingStorages::MAX_TYPE, &details.storageType);
    const auto canPlay = object.find("canPlay");
    details.canPlay = canPlay != object.end() && canPlay->is_boolean() && canPlay->get<bool>();
    take(object, "videoPid", -1, 0x1FFF, &details.videoPid);
    take(object, "audioPid", -1, 0x1FFF, &details.audioPid);
    take(object, "audioFraming", 0, 2, &details.audioFraming);
    return true;
}

RecordingResult replaceFile(const std::string& path, const std::string& content) {
    const std::string temporary = path + ".new";
    int error = writeDurably(temporary, content);
    if (error == 0 && rename(temporary.c_str(), path.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(temporary.c_str());
        return storageFailure(error, path);
    }
    // The name is durable with its folder; where a folder cannot be synchronised it is soon.
    const int folder =
        open(path.substr(0, path.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
    return {};
}

RecordingResult writeSidecar(const Sidecar& sidecar) {
    return replaceFile(sidecar.details.sidecarPath(), sidecarText(sidecar));
}

bool readSidecar(const std::string& sidecarPath, Sidecar* sidecar) {
    // Not blocking: a name may stand for a pipe.
    const int fd = open(sidecarPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status = {};
    std::string text;
    if (fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        text.resize(MAX_SIDECAR_BYTES + 1);
        const ssize_t n = read(fd, text.data(), text.size());
        text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    }
    if (fd >= 0) {
        close(fd);
    }
    if (!parseSidecar(text, sidecar)) {
        return false;
    }
    sidecar->details.path = sidecarPath.substr(0, sidecarPath.rfind('.')) + ".ts";
    return true;
}

}  // namespace orvhost
