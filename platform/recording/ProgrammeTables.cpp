#include "recording/ProgrammeTables.h"

// The table library's headers use their types without including them.
// clang-format off
#include <cstddef>
#include <cstdint>
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
// clang-format on

#include <algorithm>
#include <cstring>
#include <utility>

namespace orvhost {

namespace {

constexpr uint16_t PID_PAT = 0x0000;
constexpr uint8_t TABLE_PAT = 0x00;
constexpr uint8_t TABLE_PMT = 0x02;
constexpr size_t SECTION_HEADER_BYTES = 8;
constexpr size_t CRC_BYTES = 4;
constexpr size_t MAX_BODY_BYTES = 1024 - SECTION_HEADER_BYTES - CRC_BYTES;

struct LibraryDeleter {
    void operator()(dvbpsi_t* handle) const { dvbpsi_delete(handle); }
    void operator()(dvbpsi_psi_section_t* section) const { dvbpsi_DeletePSISections(section); }
};

// Empty when there is no memory.
std::vector<uint8_t> sectionOf(uint8_t tableId, uint16_t extension, uint8_t version,
                               const std::vector<uint8_t>& body) {
    const std::unique_ptr<dvbpsi_t, LibraryDeleter> handle(
        dvbpsi_new([](dvbpsi_t*, dvbpsi_msg_level_t, const char*) {}, DVBPSI_MSG_NONE));
    const size_t size = SECTION_HEADER_BYTES + body.size() + CRC_BYTES;
    const std::unique_ptr<dvbpsi_psi_section_t, LibraryDeleter> section(
        dvbpsi_NewPSISection(static_cast<int>(size)));
    if (handle == nullptr || section == nullptr) {
        return {};
    }
    section->i_table_id = tableId;
    section->b_syntax_indicator = true;
    section->b_private_indicator = false;
    section->i_length = static_cast<uint16_t>(size - 3);
    section->i_extension = extension;
    section->i_version = version;
    section->b_current_next = true;
    section->i_number = 0;
    section->i_last_number = 0;
    section->p_payload_start = section->p_data + SECTION_HEADER_BYTES;
    section->p_payload_end = section->p_payload_start + body.size();
    std::copy(body.begin(), body.end(), section->p_payload_start);
    dvbpsi_BuildPSISection(handle.get(), section.get());
    return {section->p_data, section->p_data + size};
}

}  // namespace

ProgrammeTables::ProgrammeTables(TunedProgramme programme)
    : mProgramme(std::move(programme)),
      mPatCollector(PID_PAT, static_cast<SectionSink&>(*this)),
      mNewPmtPid(mProgramme.service.pmtPid) {
    followPmtPid(mNewPmtPid);
    buildPat();
    buildPmt();
    collectPids();
}

ProgrammeTables::~ProgrammeTables() = default;

void ProgrammeTables::followPmtPid(uint16_t pid) {
    mProgramme.service.pmtPid = pid;
    mPmtCollector = std::make_unique<SectionCollector>(pid, static_cast<SectionSink&>(*this));
}

void ProgrammeTables::collectPids() {
    const Service& service = mProgramme.service;
    mPids = {PID_PAT, service.pmtPid};
    const auto add = [this](uint16_t pid) {
        if (pid != PID_NONE && std::find(mPids.begin(), mPids.end(), pid) == mPids.end()) {
            mPids.push_back(pid);
        }
    };
    add(service.pcrPid);
    for (const ElementaryStream& stream : service.streams) {
        add(stream.pid);
    }
}

// ---- following -------------------------------------------------------------------------------

void ProgrammeTables::onSection(const Section& section) {
    if (section.number != 0 && section.tableId == TABLE_PMT) {
        return;  // a PMT is one section
    }
    const Service& service = mProgramme.service;
    if (section.pid == PID_PAT && section.tableId == TABLE_PAT) {
        const uint16_t pid = pmtPidIn(section, service.serviceId);
        mNewPmtPid = pid != PID_NONE ? pid : mNewPmtPid;
    } else if (section.pid != PID_PAT && section.tableId == TABLE_PMT &&
               section.extension == service.serviceId && section.size >= 4 &&
               section.size <= MAX_BODY_BYTES) {
        mNewPmt.assign(section.body, section.body + section.size);
    }
}

bool ProgrammeTables::push(const uint8_t* packet) {
    if (hasTransportError(packet) || isScrambled(packet)) {
        return false;
    }
    (pidOf(packet) == PID_PAT ? mPatCollector : *mPmtCollector).push(packet);
    bool changed = false;
    if (mNewPmtPid != mProgramme.service.pmtPid) {
        followPmtPid(mNewPmtPid);
        ++mPat.version;
        buildPat();
        buildPmt();
        changed = true;
    }
    if (!mNewPmt.empty() && mNewPmt != mProgramme.pmt) {
        mProgramme.pmt = std::exchange(mNewPmt, {});
        const Service old = std::move(mProgramme.service);
        mProgramme.service =
            readPmt(old.serviceId, old.pmtPid, mProgramme.pmt.data(), mProgramme.pmt.size());
        ++mPmt.version;
        buildPmt();
        changed = true;
    }
    mNewPmt.clear();
    if (changed) {
        collectPids();
    }
    return changed;
}

// ---- writing ---------------------------------------------------------------------------------

void ProgrammeTables::buildPat() {
    const Service& service = mProgramme.service;
    const auto high = [](unsigned value) { return static_cast<uint8_t>(value >> 8); };
    build(mPat, PID_PAT, TABLE_PAT, mProgramme.transportStreamId,
          {high(service.serviceId), static_cast<uint8_t>(service.serviceId),
           high(0xE000u | service.pmtPid), static_cast<uint8_t>(service.pmtPid)});
}

void ProgrammeTables::buildPmt() {
    const Service& service = mProgramme.service;
    build(mPmt, service.pmtPid, TABLE_PMT, service.serviceId, mProgramme.pmt);
}

// A section as packets of its own, whose counters come with stamp().
void ProgrammeTables::build(Table& table, uint16_t pid, uint8_t tableId, uint16_t extension,
                            const std::vector<uint8_t>& body) const {
    const std::vector<uint8_t> section = sectionOf(tableId, extension, table.version & 0x1F, body);
    table.packets.clear();
    for (size_t at = 0; at < section.size();) {
        const bool first = at == 0;
        const size_t head = first ? 5 : 4;  // with the pointer field
        const size_t part = std::min(TS_PACKET_BYTES - head, section.size() - at);
        std::array<uint8_t, TS_PACKET_BYTES> packet;
        packet.fill(0xFF);
        packet[0] = TS_SYNC_BYTE;
        packet[1] = static_cast<uint8_t>((first ? 0x40 : 0) | pid >> 8);
        packet[2] = static_cast<uint8_t>(pid);
        packet[3] = 0x10;
        packet[4] = 0;
        std::memcpy(packet.data() + head, section.data() + at, part);
        table.packets.insert(table.packets.end(), packet.begin(), packet.end());
        at += part;
    }
}

void ProgrammeTables::stamp(Table& table, std::vector<uint8_t>& out) {
    for (size_t at = 0; at < table.packets.size(); at += TS_PACKET_BYTES) {
        table.packets[at + 3] = static_cast<uint8_t>(0x10 | (table.counter++ & 0x0F));
    }
    out.insert(out.end(), table.packets.begin(), table.packets.end());
}

const std::vector<uint8_t>& ProgrammeTables::nextPackets() {
    mNext.clear();
    stamp(mPat, mNext);
    stamp(mPmt, mNext);
    return mNext;
}

}  // namespace orvhost
