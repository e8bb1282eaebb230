#include "dtv/ServiceTables.h"

#include <algorithm>
#include <utility>

#include "dtv/TableCursor.h"

namespace orvhost {

namespace {

constexpr uint16_t PID_PAT = 0x0000;
constexpr uint16_t PID_NIT = 0x0010;
constexpr uint16_t PID_SDT = 0x0011;
constexpr uint16_t LAST_RESERVED_PID = 0x002F;  // of the tables of ETSI EN 300 468 and ARIB
constexpr uint16_t FIRST_ONE_SEGMENT_PMT = 0x1FC8;
constexpr uint16_t LAST_ONE_SEGMENT_PMT = 0x1FCF;

constexpr uint8_t TABLE_PAT = 0x00;
constexpr uint8_t TABLE_PMT = 0x02;
constexpr uint8_t TABLE_NIT_ACTUAL = 0x40;
constexpr uint8_t TABLE_SDT_ACTUAL = 0x42;

constexpr uint8_t TAG_LANGUAGE = 0x0A;
constexpr uint8_t TAG_NETWORK_NAME = 0x40;
constexpr uint8_t TAG_SERVICE = 0x48;
constexpr uint8_t TAG_STREAM_IDENTIFIER = 0x52;
// ARIB STD-B10 part 2:
constexpr uint8_t TAG_AUDIO_COMPONENT = 0xC4;
constexpr uint8_t TAG_TS_INFORMATION = 0xCD;
constexpr uint8_t TAG_PARTIAL_RECEPTION = 0xFB;

// What a hostile PAT or SDT may cost at most.
constexpr size_t MAX_SERVICES = 256;
constexpr size_t MAX_STREAMS = 64;      // of a NIT
constexpr size_t MAX_ONE_SEGMENT = 64;  // services of a stream

void interpret(const Descriptor& d, ElementaryStream& stream) {
    constexpr size_t AUDIO_LANGUAGE_OFFSET = 6;
    switch (d.tag) {
        case TAG_LANGUAGE:
            stream.language = lettersAt(d.data, 0);
            break;
        case TAG_STREAM_IDENTIFIER:
            stream.componentTag = d.data.empty() ? -1 : d.data[0];
            break;
        case TAG_AUDIO_COMPONENT:
            if (stream.language.empty()) {
                stream.language = lettersAt(d.data, AUDIO_LANGUAGE_OFFSET);
            }
            break;
        default:
            break;
    }
}

}  // namespace

StreamKind streamKindOf(uint8_t streamType) {
    switch (streamType) {
        case 0x01:
        case 0x02:
        case 0x1B:
        case 0x24:
            return StreamKind::Video;
        case 0x03:
        case 0x04:
            return StreamKind::AudioMpeg;
        case 0x06:
            return StreamKind::Caption;
        case 0x0F:
            return StreamKind::AudioAdts;
        case 0x11:
            return StreamKind::AudioLatm;
        default:
            return StreamKind::Unknown;
    }
}

std::string latinText(const std::vector<uint8_t>& raw) {
    std::string text;
    for (uint8_t byte : raw) {
        if (byte >= 0x20 && byte < 0x7F) {
            text.push_back(static_cast<char>(byte));
        } else if (byte >= 0xA0) {
            text.push_back(static_cast<char>(0xC0 | byte >> 6));
            text.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
        }
    }
    return text;
}

Service readPmt(uint16_t serviceId, uint16_t pmtPid, const uint8_t* body, size_t size) {
    TableCursor cursor(body, size);
    Service service;
    service.serviceId = serviceId;
    service.pmtPid = pmtPid;
    service.pcrPid = cursor.pid();
    cursor.loop();  // the programme's own descriptors
    while (cursor.left() >= 5) {
        ElementaryStream& stream = service.streams.emplace_back();
        stream.streamType = cursor.u8();
        stream.kind = streamKindOf(stream.streamType);
        stream.pid = cursor.pid();
        stream.descriptors = descriptorsOf(cursor.loop());
        for (const Descriptor& d : stream.descriptors) {
            interpret(d, stream);
        }
    }
    return service;
}

uint16_t pmtPidIn(const Section& pat, uint16_t serviceId) {
    TableCursor cursor(pat.body, pat.size);
    while (cursor.left() >= 4) {
        const uint16_t id = cursor.u16();
        const uint16_t pid = cursor.pid();
        if (id == serviceId && pid > LAST_RESERVED_PID) {
            return pid;
        }
    }
    return PID_NONE;
}

// ---- which PIDs ------------------------------------------------------------------------------

ServiceTables::ServiceTables() {
    for (uint16_t pid : {PID_PAT, PID_NIT, PID_SDT}) {
        follow(pid);
    }
    for (uint16_t pid = FIRST_ONE_SEGMENT_PMT; pid <= LAST_ONE_SEGMENT_PMT; ++pid) {
        follow(pid);
    }
}

ServiceTables::~ServiceTables() = default;

void ServiceTables::follow(uint16_t pid) {
    mWanted[pid] = 1;
    auto& collector = mCollectors[pid];
    if (collector == nullptr) {
        collector = std::make_unique<SectionCollector>(pid, static_cast<SectionSink&>(*this));
    }
}

// After a new PAT: the PIDs it names, and no other PMT.
void ServiceTables::followPat() {
    mPatChanged = false;
    mWanted.fill(0);
    for (uint16_t pid : {PID_PAT, PID_NIT, PID_SDT}) {
        follow(pid);
    }
    for (const auto& [serviceId, pid] : mPmtPids) {
        follow(pid);
    }
    std::erase_if(mCollectors, [this](const auto& entry) { return mWanted[entry.first] == 0; });
    std::erase_if(mProgrammes, [this](const auto& entry) {
        const auto named = mPmtPids.find(entry.first);
        return named == mPmtPids.end() || named->second != entry.second.pmtPid;
    });
    std::erase_if(mPmts, [this](const auto& entry) { return !mProgrammes.contains(entry.first); });
}

void ServiceTables::push(const uint8_t* packet) {
    const auto collector = mCollectors.find(pidOf(packet));
    if (collector == mCollectors.end() || hasTransportError(packet) || isScrambled(packet)) {
        return;
    }
    collector->second->push(packet);
    if (mPatChanged) {
        followPat();
    }
}

// ---- what they say ---------------------------------------------------------------------------

bool ServiceTables::Progress::isNewVersion(const Section& section) {
    if (version == section.version) {
        return false;
    }
    *this = {};
    version = section.version;
    return true;
}

void ServiceTables::Progress::note(const Section& section) {
    seen.set(section.number);
    wanted = section.lastNumber + 1u;
}

void ServiceTables::onSection(const Section& section) {
    if (section.pid == PID_PAT && section.tableId == TABLE_PAT) {
        takePat(section);
    } else if (section.pid == PID_SDT && section.tableId == TABLE_SDT_ACTUAL) {
        takeSdt(section);
    } else if (section.pid == PID_NIT && section.tableId == TABLE_NIT_ACTUAL) {
        takeNit(section);
    } else if (section.pid > LAST_RESERVED_PID && section.tableId == TABLE_PMT) {
        takePmt(section);
    }
}

void ServiceTables::takePat(const Section& section) {
    if (mPat.isNewVersion(section)) {
        mPmtPids.clear();
    } else if (mPat.seen[section.number]) {
        return;
    }
    mPat.note(section);
    mTransportStreamId = section.extension;
    TableCursor cursor(section.body, section.size);
    while (cursor.left() >= 4) {
        const uint16_t serviceId = cursor.u16();
        const uint16_t pid = cursor.pid();
        const bool isPmt = serviceId != 0 && pid > LAST_RESERVED_PID && pid != PID_NONE;
        if (isPmt && mPmtPids.size() < MAX_SERVICES) {
            mPmtPids.emplace(serviceId, pid);
        }
    }
    mPatChanged = true;
}

void ServiceTables::takePmt(const Section& section) {
    const auto named = mPmtPids.find(section.extension);
    const bool expected = mPat.version >= 0
                              ? named != mPmtPids.end() && named->second == section.pid
                              : mProgrammes.size() < MAX_SERVICES;
    if (!expected || section.size < 4) {
        return;
    }
    mProgrammes[section.extension] =
        readPmt(section.extension, section.pid, section.body, section.size);
    mPmts[section.extension].assign(section.body, section.body + section.size);
}

void ServiceTables::takeSdt(const Section& section) {
    if (mSdt.isNewVersion(section)) {
        mLabels.clear();
    }
    mSdt.note(section);
    TableCursor cursor(section.body, section.size);
    mOriginalNetworkId = cursor.u16();
    cursor.u8();  // reserved
    while (cursor.left() >= 5 && mLabels.size() < MAX_SERVICES) {
        const uint16_t serviceId = cursor.u16();
        const bool hasEvents = (cursor.u8() & 1) != 0;  // EIT_present_following_flag
        for (const Descriptor& d : descriptorsOf(cursor.loop())) {
            if (d.tag == TAG_SERVICE) {
                TableCursor text(d.data);
                Label& label = mLabels[serviceId];
                label.hasEvents = hasEvents;
                label.type = text.u8();
                label.provider = text.part(text.u8()).bytes();
                label.name = text.part(text.u8()).bytes();
            }
        }
    }
}

void ServiceTables::takeNit(const Section& section) {
    TableCursor cursor(section.body, section.size);
    for (const Descriptor& d : descriptorsOf(cursor.loop())) {
        if (d.tag == TAG_NETWORK_NAME) {
            mNetworkName = latinText(d.data);
            mRawNetworkName = d.data;
        }
    }
    mNetworkId = section.extension;
    TableCursor streams = cursor.loop();
    while (streams.left() >= 6) {
        const uint16_t id = streams.u16();
        const uint16_t originalNetworkId = streams.u16();
        mOriginalNetworkId = mOriginalNetworkId < 0 ? originalNetworkId : mOriginalNetworkId;
        const std::vector<Descriptor> descriptors = descriptorsOf(streams.loop());
        if (mStreams.contains(id) || mStreams.size() < MAX_STREAMS) {
            mStreams[id] = readStream(descriptors);
        }
    }
}

ServiceTables::Stream ServiceTables::readStream(const std::vector<Descriptor>& descriptors) {
    Stream stream;
    for (const Descriptor& d : descriptors) {
        TableCursor cursor(d.data);
        if (d.tag == TAG_TS_INFORMATION && d.data.size() >= 2) {
            stream.remoteControlKey = cursor.u8();
            stream.name = cursor.part(cursor.u8() >> 2).bytes();
        }
        while (d.tag == TAG_PARTIAL_RECEPTION && cursor.left() >= 2 &&
               stream.oneSegment.size() < MAX_ONE_SEGMENT) {
            stream.oneSegment.push_back(cursor.u16());
        }
    }
    return stream;
}

void ServiceTables::addTo(BroadcastInformation* information) const {
    information->networkId = mNetworkId;
    information->originalNetworkId = mOriginalNetworkId;
    information->rawNetworkName = mRawNetworkName;
    if (mPat.version < 0) {
        return;
    }
    information->transportStreamId = mTransportStreamId;
    if (const auto found = mStreams.find(mTransportStreamId); found != mStreams.end()) {
        information->remoteControlKey = found->second.remoteControlKey;
        information->rawStreamName = found->second.name;
        information->oneSegment = found->second.oneSegment;
    }
}

std::vector<uint16_t> ServiceTables::servicesWithEvents() const {
    std::vector<uint16_t> list;
    for (const auto& [id, label] : mLabels) {
        if (label.hasEvents) {
            list.push_back(id);
        }
    }
    return list;
}

bool ServiceTables::isComplete() const {
    return mPat.isWhole() && mSdt.isWhole() &&
           std::all_of(mPmtPids.begin(), mPmtPids.end(),
                       [this](const auto& entry) { return mProgrammes.contains(entry.first); });
}

std::optional<TunedProgramme> ServiceTables::findProgramme(int videoPid, int audioPid,
                                                           uint16_t preferredId) const {
    std::optional<TunedProgramme> best;
    int bestScore = 0;
    for (const Service& service : services()) {
        const auto has = [&service](int pid) {
            return std::any_of(service.streams.begin(), service.streams.end(),
                               [pid](const ElementaryStream& s) { return s.pid == pid; });
        };
        int score = (has(videoPid) ? 4 : 0) + (has(audioPid) ? 2 : 0);
        score += score > 0 && service.serviceId == preferredId ? 1 : 0;
        if (score > bestScore) {
            bestScore = score;
            best = {mTransportStreamId, service, mPmts.at(service.serviceId)};
        }
    }
    return best;
}

std::vector<Service> ServiceTables::services() const {
    std::vector<Service> list;
    for (const auto& [id, programme] : mProgrammes) {
        Service& service = list.emplace_back(programme);
        const auto label = mLabels.find(id);
        if (label != mLabels.end()) {
            service.serviceType = label->second.type;
            service.rawName = label->second.name;
            service.name = latinText(service.rawName);
            service.provider = latinText(label->second.provider);
        }
    }
    return list;
}

}  // namespace orvhost
