#include "dtv/ServiceTables.h"

// The table library's headers use their types without including them.
// clang-format off
#include <cstddef>
#include <cstdint>
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/demux.h>
#include <dvbpsi/nit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/sdt.h>
// clang-format on

#include <algorithm>
#include <cstring>
#include <utility>

namespace orvhost {

namespace {

constexpr uint16_t PID_PAT = 0x0000;
constexpr uint16_t PID_NIT = 0x0010;
constexpr uint16_t PID_SDT = 0x0011;
constexpr uint16_t FIRST_ONE_SEGMENT_PMT = 0x1FC8;
constexpr uint16_t LAST_ONE_SEGMENT_PMT = 0x1FCF;

constexpr uint8_t TABLE_PMT = 0x02;
constexpr uint8_t TABLE_NIT_ACTUAL = 0x40;
constexpr uint8_t TABLE_SDT_ACTUAL = 0x42;

constexpr uint8_t TAG_LANGUAGE = 0x0A;
constexpr uint8_t TAG_NETWORK_NAME = 0x40;
constexpr uint8_t TAG_SERVICE = 0x48;
constexpr uint8_t TAG_STREAM_IDENTIFIER = 0x52;
constexpr uint8_t TAG_AUDIO_COMPONENT = 0xC4;  // ARIB STD-B10 6.2.26

// What a hostile PAT or SDT may cost at most.
constexpr size_t MAX_PROGRAMMES = 256;
constexpr int MAX_SUBTABLES = 8;

struct TableHandleDeleter {
    void (*detach)(dvbpsi_t*) = nullptr;
    void operator()(dvbpsi_t* handle) const {
        if (dvbpsi_decoder_present(handle)) {
            detach(handle);
        }
        dvbpsi_delete(handle);
    }
};
using TableHandle = std::unique_ptr<dvbpsi_t, TableHandleDeleter>;

// Damaged tables are everyday: they are dropped without a word.
TableHandle newHandle(void (*detach)(dvbpsi_t*)) {
    return TableHandle(
        dvbpsi_new([](dvbpsi_t*, dvbpsi_msg_level_t, const char*) {}, DVBPSI_MSG_NONE),
        TableHandleDeleter{detach});
}

std::vector<uint8_t> dataOf(const dvbpsi_descriptor_t* d) {
    return d->p_data == nullptr ? std::vector<uint8_t>()
                                : std::vector<uint8_t>(d->p_data, d->p_data + d->i_length);
}

std::string languageAt(const std::vector<uint8_t>& data, size_t at) {
    std::string code;
    for (size_t i = at; i < at + 3 && at + 3 <= data.size(); ++i) {
        if (data[i] < 'A' || data[i] > 'z') {
            return {};
        }
        code.push_back(static_cast<char>(data[i]));
    }
    return code;
}

void interpret(const Descriptor& d, ElementaryStream& stream) {
    constexpr size_t AUDIO_LANGUAGE_OFFSET = 6;
    switch (d.tag) {
        case TAG_LANGUAGE:
            stream.language = languageAt(d.data, 0);
            break;
        case TAG_STREAM_IDENTIFIER:
            stream.componentTag = d.data.empty() ? -1 : d.data[0];
            break;
        case TAG_AUDIO_COMPONENT:
            if (stream.language.empty()) {
                stream.language = languageAt(d.data, AUDIO_LANGUAGE_OFFSET);
            }
            break;
        default:
            break;
    }
}

ElementaryStream streamOf(const dvbpsi_pmt_es_t* es) {
    ElementaryStream stream;
    stream.pid = es->i_pid & 0x1FFF;
    stream.streamType = es->i_type;
    stream.kind = streamKindOf(es->i_type);
    for (const dvbpsi_descriptor_t* d = es->p_first_descriptor; d != nullptr; d = d->p_next) {
        stream.descriptors.push_back({d->i_tag, dataOf(d)});
        interpret(stream.descriptors.back(), stream);
    }
    return stream;
}

// A text behind its length byte; cut where the descriptor ends. Moves `at` behind it.
std::vector<uint8_t> countedText(const std::vector<uint8_t>& data, size_t& at) {
    if (at >= data.size()) {
        return {};
    }
    const size_t begin = at + 1;
    const size_t end = std::min(begin + data[at], data.size());
    at = end;
    const auto first = data.begin();
    return {first + static_cast<std::ptrdiff_t>(begin), first + static_cast<std::ptrdiff_t>(end)};
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

// The library's decoders, one handle per PID and programme, and what their callbacks do. A callback
// runs inside the push of its own handle: it never frees that handle, so PMT decoders of an old PAT
// go only when a PAT calls.
struct ServiceTables::Decoders {
    struct Programme {
        uint16_t pid;
        TableHandle handle;
    };

    explicit Decoders(ServiceTables& tables)
        : owner(tables),
          pat(newHandle(dvbpsi_pat_detach)),
          nit(newHandle(dvbpsi_DetachDemux)),
          sdt(newHandle(dvbpsi_DetachDemux)) {
        if (pat != nullptr) {
            dvbpsi_pat_attach(pat.get(), onPat, this);
        }
        if (nit != nullptr) {
            dvbpsi_AttachDemux(nit.get(), onSubtable, this);
        }
        if (sdt != nullptr) {
            dvbpsi_AttachDemux(sdt.get(), onSubtable, this);
        }
    }

    static void onPat(void* self, dvbpsi_pat_t* table) {
        static_cast<Decoders*>(self)->takePat(*table);
        dvbpsi_pat_delete(table);
    }
    static void onPmt(void* self, dvbpsi_pmt_t* table) {
        static_cast<Decoders*>(self)->takePmt(*table);
        dvbpsi_pmt_delete(table);
    }
    static void onSdt(void* self, dvbpsi_sdt_t* table) {
        static_cast<Decoders*>(self)->takeSdt(*table);
        dvbpsi_sdt_delete(table);
    }
    static void onNit(void* self, dvbpsi_nit_t* table) {
        static_cast<Decoders*>(self)->takeNit(*table);
        dvbpsi_nit_delete(table);
    }
    static void onSubtable(dvbpsi_t* handle, uint8_t tableId, uint16_t extension, void* self) {
        auto* decoders = static_cast<Decoders*>(self);
        if (decoders->subtables >= MAX_SUBTABLES) {
            return;
        }
        if (tableId == TABLE_SDT_ACTUAL && handle == decoders->sdt.get()) {
            ++decoders->subtables;
            dvbpsi_sdt_attach(handle, tableId, extension, onSdt, self);
        } else if (tableId == TABLE_NIT_ACTUAL && handle == decoders->nit.get()) {
            ++decoders->subtables;
            dvbpsi_nit_attach(handle, tableId, extension, onNit, self);
        }
    }

    void addProgramme(uint16_t number, uint16_t pid) {
        TableHandle handle = newHandle(dvbpsi_pmt_detach);
        if (handle == nullptr || programmes.size() >= MAX_PROGRAMMES ||
            !dvbpsi_pmt_attach(handle.get(), number, onPmt, this)) {
            return;
        }
        programmes.emplace(number, Programme{pid, std::move(handle)});
        owner.mWanted[pid] = 1;
    }

    void takePat(const dvbpsi_pat_t& table) {
        if (!table.b_current_next) {
            return;
        }
        for (const auto& [number, programme] : programmes) {
            owner.mWanted[programme.pid] = 0;
        }
        programmes.clear();
        owner.mPmtPids.clear();
        owner.mWanted[PID_PAT] = owner.mWanted[PID_NIT] = owner.mWanted[PID_SDT] = 1;
        for (const dvbpsi_pat_program_t* p = table.p_first_program; p != nullptr; p = p->p_next) {
            const uint16_t pid = p->i_pid & 0x1FFF;
            if (p->i_number != 0 && pid != PID_NONE && owner.mPmtPids.size() < MAX_PROGRAMMES &&
                owner.mPmtPids.emplace(p->i_number, pid).second) {
                addProgramme(p->i_number, pid);
            }
        }
        owner.mHasPat = true;
        std::erase_if(owner.mProgrammes,
                      [this](const auto& entry) { return !owner.mPmtPids.contains(entry.first); });
    }

    void takePmt(const dvbpsi_pmt_t& table) {
        const auto programme = programmes.find(table.i_program_number);
        if (programme == programmes.end() || !table.b_current_next) {
            return;
        }
        Service service;
        service.serviceId = table.i_program_number;
        service.pmtPid = programme->second.pid;
        service.pcrPid = table.i_pcr_pid & 0x1FFF;
        for (const dvbpsi_pmt_es_t* es = table.p_first_es; es != nullptr; es = es->p_next) {
            service.streams.push_back(streamOf(es));
        }
        owner.mProgrammes[service.serviceId] = std::move(service);
    }

    void takeSdt(const dvbpsi_sdt_t& table) {
        for (const dvbpsi_sdt_service_t* s = table.p_first_service; s != nullptr; s = s->p_next) {
            for (const dvbpsi_descriptor_t* d = s->p_first_descriptor; d != nullptr;
                 d = d->p_next) {
                const std::vector<uint8_t> data = dataOf(d);
                if (d->i_tag != TAG_SERVICE || data.empty() ||
                    owner.mLabels.size() >= MAX_PROGRAMMES) {
                    continue;
                }
                size_t at = 1;
                Label label;
                label.type = data[0];
                label.provider = countedText(data, at);
                label.name = countedText(data, at);
                owner.mLabels[s->i_service_id] = std::move(label);
            }
        }
        owner.mHasSdt = true;
    }

    void takeNit(const dvbpsi_nit_t& table) {
        for (const dvbpsi_descriptor_t* d = table.p_first_descriptor; d != nullptr; d = d->p_next) {
            if (d->i_tag == TAG_NETWORK_NAME) {
                owner.mNetworkName = latinText(dataOf(d));
            }
        }
    }

    // Without a PAT only the section itself tells its programme.
    void discoverOneSegment(const uint8_t* packet) {
        const size_t payload = 4 + ((packet[3] & 0x20) != 0 ? 1u + packet[4] : 0u);
        if ((packet[1] & 0x40) == 0 || !hasPayload(packet) || payload >= TS_PACKET_BYTES) {
            return;
        }
        const size_t begin = payload + 1 + packet[payload];
        if (begin + 5 > TS_PACKET_BYTES || packet[begin] != TABLE_PMT) {
            return;
        }
        const auto number = static_cast<uint16_t>(packet[begin + 3] << 8 | packet[begin + 4]);
        if (!programmes.contains(number)) {
            addProgramme(number, pidOf(packet));
        }
    }

    static void push(const TableHandle& handle, uint8_t* packet) {
        if (handle != nullptr && dvbpsi_decoder_present(handle.get())) {
            dvbpsi_packet_push(handle.get(), packet);
        }
    }

    ServiceTables& owner;
    TableHandle pat;
    TableHandle nit;
    TableHandle sdt;
    std::map<uint16_t, Programme> programmes;  // by service id
    int subtables = 0;
};

ServiceTables::ServiceTables() : mpDecoders(std::make_unique<Decoders>(*this)) {
    mWanted[PID_PAT] = mWanted[PID_NIT] = mWanted[PID_SDT] = 1;
    for (uint16_t pid = FIRST_ONE_SEGMENT_PMT; pid <= LAST_ONE_SEGMENT_PMT; ++pid) {
        mWanted[pid] = 1;
    }
}

ServiceTables::~ServiceTables() = default;

void ServiceTables::push(const uint8_t* packet) {
    const uint16_t pid = pidOf(packet);
    if (hasTransportError(packet) || isScrambled(packet)) {
        return;
    }
    uint8_t copy[TS_PACKET_BYTES];  // the library wants to be able to write
    std::memcpy(copy, packet, sizeof(copy));
    switch (pid) {
        case PID_PAT:
            return Decoders::push(mpDecoders->pat, copy);
        case PID_NIT:
            return Decoders::push(mpDecoders->nit, copy);
        case PID_SDT:
            return Decoders::push(mpDecoders->sdt, copy);
        default:
            break;
    }
    if (!mHasPat && pid >= FIRST_ONE_SEGMENT_PMT && pid <= LAST_ONE_SEGMENT_PMT) {
        mpDecoders->discoverOneSegment(packet);
    }
    for (const auto& [number, programme] : mpDecoders->programmes) {
        if (programme.pid == pid) {
            Decoders::push(programme.handle, copy);
        }
    }
}

bool ServiceTables::isComplete() const {
    return mHasPat && mHasSdt &&
           std::all_of(mPmtPids.begin(), mPmtPids.end(),
                       [this](const auto& entry) { return mProgrammes.contains(entry.first); });
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
