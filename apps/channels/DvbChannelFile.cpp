#include "channels/DvbChannelFile.h"

#include <libdvbv5/countries.h>
#include <libdvbv5/dvb-file.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

namespace orvplay {

namespace {

struct FileFree {
    void operator()(dvb_file* file) const { dvb_file_free(file); }
};

std::string textOf(const char* text) {
    return text != nullptr ? text : std::string();
}

Channel channelOf(const dvb_entry& entry) {
    Channel channel;
    channel.name = textOf(entry.channel);
    channel.number = textOf(entry.vchannel);
    channel.serviceId = entry.service_id;
    channel.oneSegment = isOneSegmentId(entry.service_id, entry.network_id);
    DvbTuning& dvb = channel.dvb;
    for (unsigned i = 0; i < std::min<unsigned>(entry.n_props, DTV_MAX_COMMAND); ++i) {
        dvb.properties.emplace_back(entry.props[i].cmd, entry.props[i].u.data);
    }
    dvb.videoPids.assign(entry.video_pid, entry.video_pid + entry.video_pid_len);
    dvb.audioPids.assign(entry.audio_pid, entry.audio_pid + entry.audio_pid_len);
    for (unsigned i = 0; i < entry.other_el_pid_len; ++i) {
        dvb.otherPids.emplace_back(entry.other_el_pid[i].type, entry.other_el_pid[i].pid);
    }
    dvb.networkId = entry.network_id;
    dvb.transportId = entry.transport_id;
    dvb.satellite = entry.sat_number;
    dvb.bandPassHz = entry.freq_bpf;
    dvb.diseqcWait = entry.diseqc_wait;
    dvb.lnb = textOf(entry.lnb);
    dvb.location = textOf(entry.location);
    return channel;
}

// The library frees what it is given with free().
template <typename T>
T* allocate(size_t count) {
    return static_cast<T*>(calloc(std::max<size_t>(count, 1), sizeof(T)));
}

char* duplicate(const std::string& text) {
    return text.empty() ? nullptr : strdup(text.c_str());
}

uint16_t* duplicate(const std::vector<uint16_t>& list, unsigned* length) {
    auto* copy = allocate<uint16_t>(list.size());
    std::copy(list.begin(), list.end(), copy);
    *length = static_cast<unsigned>(list.size());
    return copy;
}

// A section's name stands in brackets on a line of its own.
std::string sectionName(std::string name) {
    for (char& c : name) {
        const bool isControl = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
        c = c == '[' ? '(' : c == ']' ? ')' : isControl ? ' ' : c;
    }
    return name;
}

// For ISDB-T the library writes a country of 0 where there is none, and refuses to read that again.
std::vector<std::pair<uint32_t, uint32_t>> propertiesOf(const DvbTuning& dvb) {
    auto properties = dvb.properties;
    std::erase(properties, std::pair<uint32_t, uint32_t>(DTV_COUNTRY_CODE, COUNTRY_UNKNOWN));
    const auto has = [&](uint32_t command, std::optional<uint32_t> value = {}) {
        return std::any_of(properties.begin(), properties.end(), [&](const auto& property) {
            return property.first == command && property.second == value.value_or(property.second);
        });
    };
    if (has(DTV_DELIVERY_SYSTEM, SYS_ISDBT) && !has(DTV_COUNTRY_CODE)) {
        properties.emplace_back(DTV_COUNTRY_CODE, isJapaneseNetwork(dvb.networkId) ? JP : BR);
    }
    return properties;
}

dvb_entry* entryOf(const Channel& channel) {
    auto* entry = allocate<dvb_entry>(1);
    const DvbTuning& dvb = channel.dvb;
    for (const auto& [command, value] : propertiesOf(dvb)) {
        if (entry->n_props < DTV_MAX_COMMAND) {
            entry->props[entry->n_props].cmd = command;
            entry->props[entry->n_props++].u.data = value;
        }
    }
    entry->channel = duplicate(sectionName(channel.name));
    entry->vchannel = duplicate(sectionName(channel.number));
    entry->location = duplicate(dvb.location);
    entry->lnb = duplicate(dvb.lnb);
    entry->service_id = channel.serviceId;
    entry->network_id = dvb.networkId;
    entry->transport_id = dvb.transportId;
    entry->video_pid = duplicate(dvb.videoPids, &entry->video_pid_len);
    entry->audio_pid = duplicate(dvb.audioPids, &entry->audio_pid_len);
    entry->other_el_pid = allocate<dvb_elementary_pid>(dvb.otherPids.size());
    for (const auto& [type, pid] : dvb.otherPids) {
        entry->other_el_pid[entry->other_el_pid_len++] = {type, pid};
    }
    entry->sat_number = dvb.satellite;
    entry->freq_bpf = dvb.bandPassHz;
    entry->diseqc_wait = dvb.diseqcWait;
    return entry;
}

}  // namespace

bool readDvbChannels(const std::string& path, std::vector<Channel>* channels, std::string* error) {
    const std::unique_ptr<dvb_file, FileFree> file(
        dvb_read_file_format(path.c_str(), SYS_UNDEFINED, FILE_DVBV5));
    if (file == nullptr) {
        *error = path + ": not a channel file in the format of dvbv5-scan";
        return false;
    }
    for (const dvb_entry* entry = file->first_entry; entry != nullptr; entry = entry->next) {
        channels->push_back(channelOf(*entry));
    }
    return true;
}

bool writeDvbChannels(const std::string& path, const std::vector<Channel>& channels,
                      std::string* error) {
    const std::unique_ptr<dvb_file, FileFree> file(allocate<dvb_file>(1));
    dvb_entry** next = &file->first_entry;
    for (const Channel& channel : channels) {
        if (channel.dvb.isTuned()) {
            *next = entryOf(channel);
            next = &(*next)->next;
            ++file->n_entries;
        }
    }
    errno = 0;
    if (dvb_write_file_format(path.c_str(), file.get(), SYS_UNDEFINED, FILE_DVBV5) != 0) {
        *error = path + ": cannot be written: " + strerror(errno);
        return false;
    }
    return true;
}

}  // namespace orvplay
