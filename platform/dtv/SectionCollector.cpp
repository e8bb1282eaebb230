#include "dtv/SectionCollector.h"

// The table library's headers use their types without including them.
// clang-format off
#include <cstddef>
#include <cstdint>
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
// clang-format on

#include <cstring>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr int MAX_SECTION_BYTES = 4096;

// The plainest decoder the library takes: no more than what all of its decoders begin with.
struct PlainDecoder {
    DVBPSI_DECODER_COMMON
};

}  // namespace

struct SectionCollector::Library {
    explicit Library(SectionCollector& owner)
        // Damaged tables are everyday: no word about them.
        : handle(dvbpsi_new([](dvbpsi_t*, dvbpsi_msg_level_t, const char*) {}, DVBPSI_MSG_NONE)) {
        if (handle != nullptr) {
            handle->p_sys = &owner;
            handle->p_decoder = static_cast<dvbpsi_decoder_t*>(
                dvbpsi_decoder_new(&gather, MAX_SECTION_BYTES, true, sizeof(PlainDecoder)));
        }
    }

    ~Library() {
        if (handle != nullptr) {
            if (handle->p_decoder != nullptr) {
                dvbpsi_decoder_delete(handle->p_decoder);
                handle->p_decoder = nullptr;
            }
            dvbpsi_delete(handle);
        }
    }

    static void gather(dvbpsi_t* handle, dvbpsi_psi_section_t* section) {
        auto* owner = static_cast<SectionCollector*>(handle->p_sys);
        const bool wanted =
            section->b_syntax_indicator ? section->b_current_next : owner->mForms == Forms::ANY;
        if (wanted && section->p_payload_end > section->p_payload_start) {
            owner->mSink.onSection(
                {owner->mPid, section->i_table_id, section->i_extension, section->i_version,
                 section->i_number, section->i_last_number, section->p_payload_start,
                 static_cast<size_t>(section->p_payload_end - section->p_payload_start)});
        }
        dvbpsi_DeletePSISections(section);
    }

    dvbpsi_t* const handle;
};

SectionCollector::SectionCollector(uint16_t pid, SectionSink& sink, Forms forms)
    : mPid(pid), mForms(forms), mSink(sink), mpLibrary(std::make_unique<Library>(*this)) {}

SectionCollector::~SectionCollector() = default;

void SectionCollector::push(const uint8_t* packet) {
    dvbpsi_t* handle = mpLibrary->handle;
    if (handle == nullptr || handle->p_decoder == nullptr) {
        return;
    }
    uint8_t copy[TS_PACKET_BYTES];  // the library wants to be able to write
    std::memcpy(copy, packet, sizeof(copy));
    dvbpsi_packet_push(handle, copy);
}

}  // namespace orvhost
