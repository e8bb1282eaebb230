#include "ChannelsCommand.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ChannelText.h"
#include "EventLog.h"
#include "ExitCode.h"
#include "channels/ChannelList.h"
#include "channels/DvbChannelFile.h"
#include "channels/M3u.h"

namespace orvplay {

namespace {

int fail(ExitCode code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

bool isPlayList(const ChannelsOptions& options) {
    const auto endsWith = [&](std::string_view end) {
        return options.file.size() > end.size() &&
               options.file.compare(options.file.size() - end.size(), end.size(), end) == 0;
    };
    return options.format.empty() ? endsWith(".m3u") || endsWith(".m3u8") : options.format == "m3u";
}

int print(const ChannelsOptions& options, const std::vector<Channel>& channels) {
    if (!options.json) {
        fputs(tableOf(channels).c_str(), stdout);
        return EXIT_OK;
    }
    EventLog log(true);
    for (const Channel& channel : channels) {
        if (!channel.name.empty()) {
            log.writeLine(toJson(channel));
        }
    }
    return EXIT_OK;
}

// What is a file beside the list it stands in is one everywhere.
void makeAbsolute(std::vector<Channel>* channels, const std::string& listFile) {
    const size_t slash = listFile.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : listFile.substr(0, slash);
    for (Channel& channel : *channels) {
        if (channel.source.empty() || channel.source.find("://") != std::string::npos ||
            channel.source.front() == '/') {
            continue;
        }
        const std::string path = folder + "/" + channel.source;
        if (char* const whole = realpath(path.c_str(), nullptr); whole != nullptr) {
            channel.source = whole;
            free(whole);
        }
    }
}

int import(const ChannelsOptions& options, ChannelList& list) {
    std::vector<Channel> channels;
    std::string text;
    std::string error;
    if (!readWhole(options.file, &text)) {
        return fail(EXIT_SOURCE, options.file + ": " + strerror(errno));
    }
    if (isPlayList(options)) {
        channels = parseM3u(text);
        makeAbsolute(&channels, options.file);
    } else if (!readDvbChannels(options.file, &channels, &error)) {
        return fail(EXIT_FAILED, error);
    }
    if (channels.empty()) {
        return fail(EXIT_FAILED, options.file + ": no channels in it; is --format right?");
    }
    size_t added = 0;
    if (!list.add(channels, &added, &error)) {
        return fail(EXIT_FAILED, error);
    }
    fprintf(stderr, "orvplay: %zu channels read, %zu of them new\n", channels.size(), added);
    return EXIT_OK;
}

// The library writes files only: one without a name, whose content is given out.
bool toDvbText(const std::vector<Channel>& channels, std::string* text, std::string* error) {
    const int fd = memfd_create("channels", MFD_CLOEXEC);
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const bool good = fd >= 0 && writeDvbChannels(path, channels, error) && readWhole(path, text);
    if (fd >= 0) {
        close(fd);
    }
    return good;
}

int exportTo(const ChannelsOptions& options, const std::vector<Channel>& all) {
    const bool playList = isPlayList(options);
    std::vector<Channel> channels;
    std::copy_if(all.begin(), all.end(), std::back_inserter(channels), [&](const Channel& c) {
        return playList ? !c.name.empty() && !c.source.empty() : c.dvb.isTuned();
    });
    std::string text;
    std::string error;
    if (playList) {
        text = toM3u(channels);
    } else if (!toDvbText(channels, &text, &error)) {
        return fail(EXIT_FAILED, error);
    }
    FILE* const out = options.file.empty() ? stdout : fopen(options.file.c_str(), "we");
    if (out == nullptr) {
        return fail(EXIT_FAILED, options.file + ": cannot be written: " + strerror(errno));
    }
    const bool written = fwrite(text.data(), 1, text.size(), out) == text.size();
    if ((out == stdout ? fflush(out) : fclose(out)) != 0 || !written) {
        return fail(EXIT_FAILED, "the channels cannot be written: " + std::string(strerror(errno)));
    }
    if (channels.size() < all.size()) {
        fprintf(stderr, "orvplay: %zu channels have no place in this format and are left out\n",
                all.size() - channels.size());
    }
    return EXIT_OK;
}

}  // namespace

int channelsCommand(const ChannelsOptions& options) {
    ChannelList list;
    if (options.action == ChannelsOptions::Action::IMPORT) {
        return import(options, list);
    }
    std::string error;
    if (!list.load(&error)) {
        return fail(EXIT_FAILED, error);
    }
    switch (options.action) {
        case ChannelsOptions::Action::EXPORT:
            return exportTo(options, list.channels());
        case ChannelsOptions::Action::SEARCH: {
            const std::vector<Channel> found = list.search(options.text);
            return found.empty() ? fail(EXIT_NOT_FOUND, "no channel \"" + options.text +
                                                            "\"; see: orvplay channels list")
                                 : print(options, found);
        }
        default:
            if (list.channels().empty()) {
                fprintf(stderr, "orvplay: no channels yet; find some: orvplay scan SOURCE\n");
            }
            return print(options, list.channels());
    }
}

}  // namespace orvplay
