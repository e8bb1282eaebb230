#include "PlayerUri.h"

#include <utils/String16.h>
#include <utils/String8.h>

#include <filesystem>

namespace orvclient {

namespace {

std::string parameter(const std::string& key, const std::string& value) {
    return key + "=" + value + ";";
}

std::string streams(const LiveSource& source) {
    const bool isLatm = source.isLatm && !source.isMpegAudio;
    return parameter("pcrPid", std::to_string(source.pcrPid)) +
           parameter("videoPid", std::to_string(source.videoPid)) +
           parameter("audioPid", std::to_string(source.audioPid)) +
           parameter("subtitlePid", std::to_string(source.captionPid)) +
           parameter("IsLATMAudio", isLatm ? "1" : "0") +
           parameter("isMPEG2Audio", source.isMpegAudio ? "1" : "0");
}

// What crosses the border as UTF-16 and back unharmed.
bool isUtf8(const std::string& text) {
    const android::String8 back(android::String16(text.data(), text.size()));
    return std::string(back.c_str(), back.size()) == text;
}

// A zero byte would end the text at the other side, and what follows it would be lost.
bool isFree(const std::string& text, const std::string& separators, std::string* error) {
    const size_t at = text.find_first_of(separators + '\0');
    if (at == std::string::npos) {
        if (!isUtf8(text)) {
            *error = "\"" + text + "\": the player takes names in UTF-8 alone; choose another one";
            return false;
        }
        return true;
    }
    const std::string which =
        text[at] == '\0' ? std::string("a zero byte") : std::string("'") + text[at] + "'";
    *error = "\"" + text.substr(0, text.find('\0')) + "\": the player takes no name that holds " +
             which + "; choose another one";
    return false;
}

}  // namespace

std::string liveUri(const LiveSource& source) {
    return "MTV://tuner/live?" + streams(source);
}

bool recordingUri(const std::string& path, const LiveSource& source, std::string* uri,
                  std::string* error) {
    if (path.empty()) {
        *error = "the recording has no name";
        return false;
    }
    if (!isFree(path, ";#?", error)) {
        return false;
    }
    *uri = "FILE:///recording?" + parameter("filePath", path) + streams(source);
    return true;
}

bool mediaFile(const std::string& path, std::string* absolute, std::string* error) {
    std::error_code failure;
    *absolute = std::filesystem::absolute(path, failure).string();
    if (path.empty() || failure) {
        *error = "\"" + path + "\": no such file; check the path";
        return false;
    }
    return isFree(*absolute, "", error);
}

bool recorderUri(const RecordingLabels& labels, std::string* uri, std::string* error) {
    if (!isFree(labels.channel, ";#", error) || !isFree(labels.programme, ";#", error)) {
        return false;
    }
    *uri = "MTV://recorder/live?" + parameter("channelName", labels.channel) +
           parameter("programName", labels.programme) +
           parameter("storageType", std::to_string(labels.storage));
    return true;
}

}  // namespace orvclient
