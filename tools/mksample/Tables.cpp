#include "mksample/Tables.h"

// The library's headers rely on these two.
#include <cstddef>
#include <cstdint>

#include <dvbpsi/dvbpsi.h>

#include <dvbpsi/descriptor.h>
#include <dvbpsi/nit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/sdt.h>

#include <memory>
#include <utility>

#include "mksample/BroadcastCoding.h"
#include "mksample/Guide.h"

namespace mksample {
namespace {

// In terrestrial networks of one stream both have the same id.
constexpr uint16_t kNetworkId = 0x0640;
constexpr uint16_t kJapaneseNetworkId = 0x7FE8;
constexpr char kNetworkName[] = "ORV Network";
constexpr char kStreamName[] = "ORV";
constexpr char kProviderName[] = "ORV";
constexpr uint8_t kRemoteControlKey = 6;

constexpr uint16_t kNitPid = 0x10;
constexpr uint16_t kSdtPid = 0x11;
constexpr int kPatPeriodMs = 100;
constexpr int kSdtPeriodMs = 500;
constexpr int kNitPeriodMs = 1000;

constexpr uint8_t kTableNitActual = 0x40;
constexpr uint8_t kTableSdtActual = 0x42;
constexpr uint8_t kServiceTypeTv = 1;
constexpr uint8_t kRunning = 4;
constexpr uint8_t kStreamTypeH264 = 0x1B;
constexpr uint8_t kStreamTypePrivatePes = 0x06;

constexpr uint16_t kCaptionCoding = 0x0008;  // data_component_id, ARIB STD-B10 annex J
constexpr uint8_t kSynchronousCaptions = 0x3D;

constexpr uint8_t kDescriptorLanguage = 0x0A;
constexpr uint8_t kDescriptorNetworkName = 0x40;
constexpr uint8_t kDescriptorServiceList = 0x41;
constexpr uint8_t kDescriptorService = 0x48;
constexpr uint8_t kDescriptorStreamIdentifier = 0x52;
constexpr uint8_t kDescriptorTsInformation = 0xCD;
constexpr uint8_t kDescriptorDataComponent = 0xFD;
constexpr uint8_t kDescriptorPartialReception = 0xFB;

struct DvbPsiDeleter {
    void operator()(dvbpsi_t* handle) const { dvbpsi_delete(handle); }
    void operator()(dvbpsi_pat_t* table) const { dvbpsi_pat_delete(table); }
    void operator()(dvbpsi_pmt_t* table) const { dvbpsi_pmt_delete(table); }
    void operator()(dvbpsi_sdt_t* table) const { dvbpsi_sdt_delete(table); }
    void operator()(dvbpsi_nit_t* table) const { dvbpsi_nit_delete(table); }
    void operator()(dvbpsi_psi_section_t* list) const { dvbpsi_DeletePSISections(list); }
};
template <typename T>
using Handle = std::unique_ptr<T, DvbPsiDeleter>;

// The content of a descriptor, built byte by byte.
struct Bytes {
    std::vector<uint8_t> data;

    Bytes& u8(unsigned value) {
        data.push_back(static_cast<uint8_t>(value));
        return *this;
    }
    Bytes& u16(unsigned value) { return u8(value >> 8).u8(value & 0xFF); }
    Bytes& text(const std::string& value) {
        data.insert(data.end(), value.begin(), value.end());
        return *this;
    }
    Bytes& sizedText(const std::string& value) {
        return u8(static_cast<unsigned>(value.size())).text(value);
    }
    uint8_t size() const { return static_cast<uint8_t>(data.size()); }
};

std::vector<std::vector<uint8_t>> takeSections(dvbpsi_psi_section_t* first) {
    const Handle<dvbpsi_psi_section_t> owner(first);
    if (first == nullptr) {
        throw Failure("libdvbpsi could not make a table");
    }
    std::vector<std::vector<uint8_t>> sections;
    for (const dvbpsi_psi_section_t* section = first; section != nullptr;
         section = section->p_next) {
        sections.emplace_back(section->p_data, section->p_data + 3 + section->i_length);
    }
    return sections;
}

// Whose tables they are.
struct Network {
    Country country;
    uint16_t id;
};

Table buildPat(dvbpsi_t* handle, const std::vector<ServiceInfo>& services, const Network& network) {
    const Handle<dvbpsi_pat_t> pat(dvbpsi_pat_new(network.id, 0, true));
    dvbpsi_pat_program_add(pat.get(), 0, kNitPid);
    for (const ServiceInfo& service : services) {
        dvbpsi_pat_program_add(pat.get(), service.serviceId, service.pmtPid);
    }
    return {0, kPatPeriodMs, takeSections(dvbpsi_pat_sections_generate(handle, pat.get(), 64)), {}};
}

Table buildPmt(dvbpsi_t* handle, const ServiceInfo& service) {
    const Handle<dvbpsi_pmt_t> pmt(dvbpsi_pmt_new(service.serviceId, 0, true, service.pcrPid));
    dvbpsi_pmt_es_t* video = dvbpsi_pmt_es_add(pmt.get(), kStreamTypeH264, service.videoPid);
    Bytes videoTag = Bytes().u8(service.videoComponentTag);
    dvbpsi_pmt_es_descriptor_add(video, kDescriptorStreamIdentifier, videoTag.size(),
                                 videoTag.data.data());
    for (const AudioInfo& audio : service.audio) {
        dvbpsi_pmt_es_t* entry = dvbpsi_pmt_es_add(pmt.get(), audio.streamType, audio.pid);
        Bytes tag = Bytes().u8(audio.componentTag);
        dvbpsi_pmt_es_descriptor_add(entry, kDescriptorStreamIdentifier, tag.size(),
                                     tag.data.data());
        Bytes language = Bytes().text(audio.language).u8(0);
        dvbpsi_pmt_es_descriptor_add(entry, kDescriptorLanguage, language.size(),
                                     language.data.data());
    }
    if (service.captionPid != 0) {
        dvbpsi_pmt_es_t* captions =
            dvbpsi_pmt_es_add(pmt.get(), kStreamTypePrivatePes, service.captionPid);
        Bytes tag = Bytes().u8(service.captionComponentTag);
        dvbpsi_pmt_es_descriptor_add(captions, kDescriptorStreamIdentifier, tag.size(),
                                     tag.data.data());
        Bytes component = Bytes().u16(kCaptionCoding).u8(kSynchronousCaptions);
        dvbpsi_pmt_es_descriptor_add(captions, kDescriptorDataComponent, component.size(),
                                     component.data.data());
    }
    return {service.pmtPid,
            kPatPeriodMs,
            takeSections(dvbpsi_pmt_sections_generate(handle, pmt.get())),
            {}};
}

Table buildSdt(dvbpsi_t* handle, const std::vector<ServiceInfo>& services, const Network& network) {
    const Handle<dvbpsi_sdt_t> sdt(
        dvbpsi_sdt_new(kTableSdtActual, network.id, 0, true, network.id));
    const bool hasEvents = network.country != Country::None;
    for (const ServiceInfo& service : services) {
        dvbpsi_sdt_service_t* entry =
            dvbpsi_sdt_service_add(sdt.get(), service.serviceId, false, hasEvents, kRunning, false);
        const auto name = broadcastText(service.name, network.country);
        const auto provider = broadcastText(kProviderName, network.country);
        Bytes description = Bytes()
                                .u8(kServiceTypeTv)
                                .sizedText({provider.begin(), provider.end()})
                                .sizedText({name.begin(), name.end()});
        dvbpsi_sdt_service_descriptor_add(entry, kDescriptorService, description.size(),
                                          description.data.data());
    }
    return {
        kSdtPid, kSdtPeriodMs, takeSections(dvbpsi_sdt_sections_generate(handle, sdt.get())), {}};
}

Table buildNit(dvbpsi_t* handle, const std::vector<ServiceInfo>& services, const Network& network) {
    const Handle<dvbpsi_nit_t> nit(
        dvbpsi_nit_new(kTableNitActual, network.id, network.id, 0, true));
    const auto name = broadcastText(kNetworkName, network.country);
    Bytes networkName = Bytes().text({name.begin(), name.end()});
    dvbpsi_nit_descriptor_add(nit.get(), kDescriptorNetworkName, networkName.size(),
                              networkName.data.data());
    dvbpsi_nit_ts_t* stream = dvbpsi_nit_ts_add(nit.get(), network.id, network.id);
    Bytes list;
    Bytes partial;
    for (const ServiceInfo& service : services) {
        list.u16(service.serviceId).u8(kServiceTypeTv);
        if (service.partialReception) {
            partial.u16(service.serviceId);
        }
    }
    dvbpsi_nit_ts_descriptor_add(stream, kDescriptorServiceList, list.size(), list.data.data());
    const auto streamName = broadcastText(kStreamName, network.country);
    // Key on the remote control, length of the name and no transmission types, then the name.
    Bytes information = Bytes()
                            .u8(kRemoteControlKey)
                            .u8(static_cast<unsigned>(streamName.size()) << 2)
                            .text({streamName.begin(), streamName.end()});
    dvbpsi_nit_ts_descriptor_add(stream, kDescriptorTsInformation, information.size(),
                                 information.data.data());
    if (!partial.data.empty()) {
        dvbpsi_nit_ts_descriptor_add(stream, kDescriptorPartialReception, partial.size(),
                                     partial.data.data());
    }
    return {kNitPid,
            kNitPeriodMs,
            takeSections(dvbpsi_nit_sections_generate(handle, nit.get(), kTableNitActual)),
            {}};
}

}  // namespace

std::vector<Table> buildTables(const std::vector<ServiceInfo>& services, Country country) {
    const Handle<dvbpsi_t> handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    if (!handle) {
        throw Failure("out of memory");
    }
    const Network network{country, country == Country::Japan ? kJapaneseNetworkId : kNetworkId};
    std::vector<Table> tables{buildPat(handle.get(), services, network)};
    for (const ServiceInfo& service : services) {
        tables.push_back(buildPmt(handle.get(), service));
    }
    tables.push_back(buildSdt(handle.get(), services, network));
    tables.push_back(buildNit(handle.get(), services, network));
    for (Table& table : buildGuide(services, country, network.id, network.id)) {
        tables.push_back(std::move(table));
    }
    return tables;
}

}  // namespace mksample
