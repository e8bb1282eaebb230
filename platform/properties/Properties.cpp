#include <cutils/properties.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr off_t MAX_FILE_BYTES = 64 * 1024;
constexpr const char* SYSTEM_FILE = "/etc/orvplayer/properties.conf";
constexpr const char* USER_FILE = "/orvplayer/properties.conf";

std::string environment(const std::string& name) {
    const char* const value = getenv(name.c_str());
    return value != nullptr ? value : "";
}

std::vector<std::string> files() {
    if (const std::string chosen = environment("ORV_PROPERTIES"); !chosen.empty()) {
        return {chosen};
    }
    std::string folder = environment("XDG_CONFIG_HOME");
    if (const std::string home = environment("HOME"); folder.empty() && !home.empty()) {
        folder = home + "/.config";
    }
    return folder.empty() ? std::vector<std::string>{SYSTEM_FILE}
                          : std::vector<std::string>{folder + USER_FILE, SYSTEM_FILE};
}

std::string contents(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        return "";
    }
    std::string text;
    struct stat file = {};
    if (fstat(fd, &file) == 0 && S_ISREG(file.st_mode) && file.st_size <= MAX_FILE_BYTES) {
        text.resize(static_cast<size_t>(file.st_size));
        const ssize_t count = read(fd, text.data(), text.size());
        text.resize(count > 0 ? static_cast<size_t>(count) : 0);
    }
    close(fd);
    return text;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view BLANKS = " \t\r";
    const size_t first = text.find_first_not_of(BLANKS);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::string valueIn(std::string_view text, std::string_view key) {
    std::string_view value;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const size_t separator = line.find('=');
        if (separator != std::string_view::npos && trimmed(line.substr(0, separator)) == key) {
            value = trimmed(line.substr(separator + 1));
        }
    }
    return std::string(value);
}

std::string variableOf(std::string key) {
    std::replace_if(
        key.begin(), key.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return "ORV_PROPERTY_" + key;
}

std::string valueOf(const std::string& key) {
    std::string value = environment(variableOf(key));
    for (const std::string& file : files()) {
        if (value.empty()) {
            value = valueIn(contents(file), key);
        }
    }
    return value;
}

}  // namespace

int property_get(const char* key, char* value, const char* defaultValue) {
    std::string found = key != nullptr ? valueOf(key) : "";
    if (found.empty() && defaultValue != nullptr) {
        found = defaultValue;
    }
    const size_t length = std::min(found.size(), static_cast<size_t>(PROPERTY_VALUE_MAX - 1));
    memcpy(value, found.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}
