#include "mksample/Guide.h"

// The library's headers rely on these two.
#include <cstddef>
#include <cstdint>

#include <dvbpsi/dvbpsi.h>

#include <dvbpsi/psi.h>

#include <algorithm>
#include <memory>

#include "mksample/BroadcastCoding.h"

namespace mksample {
namespace {

constexpr uint16_t kEitPid = 0x12;
constexpr uint16_t kOneSegmentEitPid = 0x27;
constexpr uint16_t kTotPid = 0x14;
constexpr int kEitPeriodMs = 1000;
constexpr int kTotPeriodMs = 1000;
constexpr uint8_t kTableEitPresentFollowing = 0x4E;
constexpr uint8_t kTableTot = 0x73;
constexpr uint8_t kDescriptorShortEvent = 0x4D;
constexpr uint8_t kDescriptorLocalTimeOffset = 0x58;
constexpr uint16_t kRunning = 4 << 13;

constexpr int kDay = 61365;  // 2026-11-21 as modified Julian date
constexpr int kStartS = (20 * 60 + 30) * 60;
constexpr uint16_t kFirstEvent = 0x2001;

struct Programme {
    const char* name;
    const char* text;
    int beginsS;  // after the start of the day
    int lastsS;
};

struct CountryGuide {
    const char* country;   // ISO 3166
    const char* language;  // ISO 639-2
    const char* service;
    const char* oneSegmentService;
    Programme programmes[2];
};

constexpr CountryGuide kBrazil = {
    "BRA",
    "por",
    "ORV São João HD",
    "ORV 1SEG São João",
    {{"Notícias da Região", "O dia em imagens: economia, esporte e previsão do tempo.", 20 * 3600,
      3600},
     {"Cinema: A Estação", "Três irmãos voltam à cidade onde nasceram.", 21 * 3600, 2 * 3600}}};
constexpr CountryGuide kJapan = {
    "JPN",
    "jpn",
    "ＯＲＶテレビ１",
    "ＯＲＶ携帯",
    {{"ニュース８", "今日の出来事をわかりやすく伝える。", 20 * 3600, 3600},
     {"映画「海の色」", "町に帰った兄と妹の夏。ORV制作", 21 * 3600, 2 * 3600}}};

const CountryGuide& guideOf(Country country) {
    return country == Country::Japan ? kJapan : kBrazil;
}

uint8_t decimal(int value) {
    return static_cast<uint8_t>(value / 10 % 10 << 4 | value % 10);
}

void appendDuration(std::vector<uint8_t>* out, int seconds) {
    out->insert(out->end(),
                {decimal(seconds / 3600), decimal(seconds / 60 % 60), decimal(seconds % 60)});
}

void append16(std::vector<uint8_t>* out, unsigned value) {
    out->insert(out->end(), {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
}

void appendSized(std::vector<uint8_t>* out, const std::vector<uint8_t>& bytes) {
    out->push_back(static_cast<uint8_t>(bytes.size()));
    out->insert(out->end(), bytes.begin(), bytes.end());
}

std::vector<uint8_t> shortEvent(const CountryGuide& guide, Country country,
                                const Programme& programme) {
    std::vector<uint8_t> out(guide.language, guide.language + 3);
    appendSized(&out, broadcastText(programme.name, country));
    appendSized(&out, broadcastText(programme.text, country));
    return out;
}

// A section of the long form, or of the short one, which has no number. The library's own makers
// are not for these: what is on air and what comes next need a section each, and its TOT is four
// bytes too short.
std::vector<uint8_t> buildSection(dvbpsi_t* handle, uint8_t tableId,
                                  const std::vector<uint8_t>& body, bool isLong,
                                  uint16_t extension = 0, uint8_t number = 0) {
    constexpr size_t kMost = 1024;
    constexpr size_t kCrc = 4;
    const size_t header = isLong ? 8 : 3;
    const std::unique_ptr<dvbpsi_psi_section_t, void (*)(dvbpsi_psi_section_t*)> section(
        dvbpsi_NewPSISection(kMost), dvbpsi_DeletePSISections);
    if (section == nullptr || header + body.size() + kCrc > kMost) {
        throw Failure("libdvbpsi could not make a table");
    }
    section->i_table_id = tableId;
    section->b_syntax_indicator = isLong;
    section->b_private_indicator = true;
    section->i_length = static_cast<uint16_t>(header - 3 + body.size() + kCrc);
    section->i_extension = extension;
    section->i_version = 0;
    section->b_current_next = true;
    section->i_number = number;
    section->i_last_number = 1;
    section->p_payload_start = section->p_data + header;
    std::copy(body.begin(), body.end(), section->p_payload_start);
    section->p_payload_end = section->p_payload_start + body.size();
    dvbpsi_BuildPSISection(handle, section.get());
    return {section->p_data, section->p_data + 3 + section->i_length};
}

Table buildEit(dvbpsi_t* handle, const ServiceInfo& service, Country country,
               uint16_t transportStreamId, uint16_t networkId) {
    const CountryGuide& guide = guideOf(country);
    Table table{service.partialReception ? kOneSegmentEitPid : kEitPid, kEitPeriodMs, {}, {}};
    for (uint8_t number = 0; number < 2; ++number) {
        const Programme& programme = guide.programmes[number];
        std::vector<uint8_t> body;
        append16(&body, transportStreamId);
        append16(&body, networkId);
        body.insert(body.end(), {1, kTableEitPresentFollowing});
        append16(&body, kFirstEvent + number);
        append16(&body, kDay);
        appendDuration(&body, programme.beginsS);
        appendDuration(&body, programme.lastsS);
        const std::vector<uint8_t> event = shortEvent(guide, country, programme);
        append16(&body, kRunning | static_cast<unsigned>(event.size() + 2));
        body.push_back(kDescriptorShortEvent);
        appendSized(&body, event);
        table.sections.push_back(
            buildSection(handle, kTableEitPresentFollowing, body, true, service.serviceId, number));
    }
    return table;
}

std::vector<std::vector<uint8_t>> buildTot(Country country, double seconds) {
    const std::unique_ptr<dvbpsi_t, void (*)(dvbpsi_t*)> handle(
        dvbpsi_new(nullptr, DVBPSI_MSG_NONE), dvbpsi_delete);
    const int now = kStartS + static_cast<int>(seconds);
    std::vector<uint8_t> body;
    append16(&body, static_cast<unsigned>(kDay + now / 86400));
    appendDuration(&body, now % 86400);
    const char* code = guideOf(country).country;
    std::vector<uint8_t> offset(code, code + 3);
    offset.push_back(0x02);                // every region, ahead
    append16(&offset, 0);                  // by nothing
    offset.insert(offset.end(), 5, 0xFF);  // no change is planned
    append16(&offset, 0);
    append16(&body, 0xF000 | static_cast<unsigned>(offset.size() + 2));
    body.push_back(kDescriptorLocalTimeOffset);
    appendSized(&body, offset);
    return {buildSection(handle.get(), kTableTot, body, false)};
}

}  // namespace

std::string serviceNameOf(Country country, bool partialReception) {
    if (country == Country::None) {
        return partialReception ? "ORV 1SEG" : "ORV HD";
    }
    const CountryGuide& guide = guideOf(country);
    return partialReception ? guide.oneSegmentService : guide.service;
}

uint16_t serviceIdOf(Country country, bool partialReception) {
    // Which bits say that it is for partial reception is different.
    if (country == Country::Japan) {
        return partialReception ? 0x05B0 : 0x0430;
    }
    return partialReception ? 0xC818 : 0xC800;
}

std::vector<Table> buildGuide(const std::vector<ServiceInfo>& services, Country country,
                              uint16_t transportStreamId, uint16_t networkId) {
    std::vector<Table> tables;
    if (country == Country::None) {
        return tables;
    }
    const std::unique_ptr<dvbpsi_t, void (*)(dvbpsi_t*)> handle(
        dvbpsi_new(nullptr, DVBPSI_MSG_NONE), dvbpsi_delete);
    for (const ServiceInfo& service : services) {
        tables.push_back(buildEit(handle.get(), service, country, transportStreamId, networkId));
    }
    tables.push_back({kTotPid, kTotPeriodMs, {}, [country](double seconds) {
                          return buildTot(country, seconds);
                      }});
    return tables;
}

}  // namespace mksample
