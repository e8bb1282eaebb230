#include "StreamSelection.h"

#include <algorithm>

#include "channels/SearchText.h"

using orvhost::ElementaryStream;
using orvhost::PID_NONE;
using orvhost::Service;
using orvhost::StreamKind;

namespace orvplay {

namespace {

bool isAudio(StreamKind kind) {
    return kind == StreamKind::AudioLatm || kind == StreamKind::AudioAdts ||
           kind == StreamKind::AudioMpeg;
}

bool hasVideo(const Service& service) {
    return std::any_of(service.streams.begin(), service.streams.end(),
                       [](const ElementaryStream& s) { return s.kind == StreamKind::Video; });
}

uint16_t captionPidOf(const Service& service) {
    const auto found = std::find_if(service.streams.begin(), service.streams.end(),
                                    [](const ElementaryStream& s) { return isCaptions(s); });
    return found != service.streams.end() ? found->pid : uint16_t{0};
}

bool holds(const Service& service, uint16_t pid) {
    return service.pcrPid == pid ||
           std::any_of(service.streams.begin(), service.streams.end(),
                       [pid](const ElementaryStream& s) { return s.pid == pid; });
}

const Service* serviceNamed(const std::vector<Service>& services, const std::string& wanted) {
    for (const Service& service : services) {
        if (std::to_string(service.serviceId) == wanted || service.name == wanted) {
            return &service;
        }
    }
    const std::string name = searchText(wanted);
    for (const Service& service : services) {
        if (!name.empty() && searchText(service.name) == name) {
            return &service;
        }
    }
    return nullptr;
}

// The service that the wishes point at: by its name, else by a PID, else the first with a picture.
const Service* pickService(const std::vector<Service>& services, const StreamOptions& options) {
    if (!options.service.empty()) {
        return serviceNamed(services, options.service);
    }
    for (const auto& pid :
         {options.videoPid, options.audioPid, options.captionPid, options.pcrPid}) {
        for (const Service& service : services) {
            if (pid.has_value() && *pid != 0 && holds(service, *pid)) {
                return &service;
            }
        }
    }
    const auto found = std::find_if(services.begin(), services.end(), hasVideo);
    return found != services.end() ? &*found : services.empty() ? nullptr : &services.front();
}

std::string listOf(const std::vector<Service>& services) {
    std::string list;
    for (const Service& service : services) {
        list += (list.empty() ? "" : ", ") + describe(service);
    }
    return list.empty() ? "none" : list;
}

std::string pidsOf(const Service& service) {
    std::string list;
    for (const ElementaryStream& stream : service.streams) {
        list += (list.empty() ? "" : ", ") + std::to_string(stream.pid);
    }
    return list.empty() ? "none" : list;
}

void listTracks(const Service& service, StreamSelection* selection) {
    for (const ElementaryStream& stream : service.streams) {
        if (isAudio(stream.kind)) {
            selection->sounds.push_back({stream.pid, stream.kind, stream.language});
            if (stream.pid == selection->audioPid) {
                selection->audioKind = stream.kind;
            }
        } else if (isCaptions(stream)) {
            selection->captions.push_back({stream.pid, stream.kind, stream.language});
        }
    }
}

// A stream that the user named and that no table has.
void addMissing(uint16_t pid, StreamKind kind, std::vector<Track>* tracks) {
    const bool there = std::any_of(tracks->begin(), tracks->end(),
                                   [pid](const Track& track) { return track.pid == pid; });
    if (pid != 0 && pid != PID_NONE && !there) {
        tracks->push_back({pid, kind, ""});
    }
}

}  // namespace

std::string describe(const Service& service) {
    return std::to_string(service.serviceId) +
           (service.name.empty() ? "" : " \"" + service.name + "\"");
}

std::string describe(const Track& track) {
    return "PID " + std::to_string(track.pid) +
           (track.language.empty() ? "" : " (" + track.language + ")");
}

const Track* StreamSelection::nextSound() const {
    const auto current = std::find_if(sounds.begin(), sounds.end(),
                                      [this](const Track& track) { return track.pid == audioPid; });
    if (current == sounds.end()) {
        return sounds.empty() ? nullptr : &sounds.front();
    }
    const Track* next = current + 1 != sounds.end() ? &*(current + 1) : &sounds.front();
    return next != &*current ? next : nullptr;
}

const Track* StreamSelection::nextCaptions(bool shown) const {
    if (captions.empty()) {
        return nullptr;
    }
    if (!shown) {
        return &captions.front();
    }
    const auto current = std::find_if(captions.begin(), captions.end(), [this](const Track& track) {
        return track.pid == captionPid;
    });
    return current != captions.end() && current + 1 != captions.end() ? &*(current + 1) : nullptr;
}

orvclient::LiveSource StreamSelection::liveSource() const {
    orvclient::LiveSource source;
    source.pcrPid = pcrPid;
    source.videoPid = videoPid;
    source.audioPid = audioPid;
    source.captionPid = captionPid;
    source.isLatm = audioKind == StreamKind::AudioLatm;
    source.isMpegAudio = audioKind == StreamKind::AudioMpeg;
    return source;
}

bool selectStreams(const std::vector<Service>& services, const StreamOptions& options,
                   StreamSelection* selection, std::string* error) {
    const Service* service = pickService(services, options);
    if (service == nullptr && !options.service.empty()) {
        *error = "no service \"" + options.service + "\" in " + options.source +
                 "; there are: " + listOf(services);
        return false;
    }
    if (service != nullptr) {
        for (const auto& pid :
             {options.videoPid, options.audioPid, options.captionPid, options.pcrPid}) {
            if (pid.has_value() && *pid != 0 && *pid != PID_NONE && !holds(*service, *pid)) {
                *error = "no PID " + std::to_string(*pid) + " in service " + describe(*service) +
                         " of " + options.source + "; its streams: " + pidsOf(*service);
                return false;
            }
        }
        selection->serviceId = service->serviceId;
        selection->serviceName = service->name;
        selection->pcrPid = service->pcrPid == PID_NONE ? 0 : service->pcrPid;
        selection->captionPid = captionPidOf(*service);
        for (const ElementaryStream& stream : service->streams) {
            if (stream.kind == StreamKind::Video && selection->videoPid == 0) {
                selection->videoPid = stream.pid;
            }
            if (isAudio(stream.kind) && selection->audioPid == 0) {
                selection->audioPid = stream.pid;
            }
        }
    }
    selection->videoPid = options.videoPid.value_or(selection->videoPid);
    selection->audioPid = options.audioPid.value_or(selection->audioPid);
    selection->captionPid = options.captionPid.value_or(selection->captionPid);
    selection->pcrPid = options.pcrPid.value_or(selection->pcrPid);
    if (service != nullptr) {
        listTracks(*service, selection);
    }
    addMissing(selection->audioPid, selection->audioKind, &selection->sounds);
    addMissing(selection->captionPid, StreamKind::Caption, &selection->captions);
    if (selection->videoPid == 0 && selection->audioPid == 0 && selection->captionPid == 0) {
        *error = "nothing to play in " + options.source +
                 ": no service with picture, sound or captions; try: orvplay probe " +
                 options.source;
        return false;
    }
    return true;
}

}  // namespace orvplay
