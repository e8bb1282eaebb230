#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace orvhost {

// One section, whole and with a good CRC (ISO/IEC 13818-1 2.4.4). Its body lies behind
// last_section_number, in the short form behind section_length, and ends before the CRC; it is gone
// after the call that hands it over.
struct Section {
    uint16_t pid = 0;
    uint8_t tableId = 0;
    uint16_t extension = 0;
    uint8_t version = 0;
    uint8_t number = 0;
    uint8_t lastNumber = 0;
    const uint8_t* body = nullptr;
    size_t size = 0;
};

class SectionSink {
public:
    virtual ~SectionSink() = default;

    // May not destroy the collector that calls.
    virtual void onSection(const Section& section) = 0;
};

// Glues the sections of one PID together and checks them; damaged ones and those for later
// (current_next_indicator 0) are dropped. What a section says is for the sink to read: a good CRC
// does not make its inner lengths true, and the table library's own table decoders trust them.
class SectionCollector {
public:
    // ANY: sections in the short form too, as of the TDT, which have no number and no version, and
    // a CRC only in the TOT.
    enum class Forms { LONG, ANY };

    SectionCollector(uint16_t pid, SectionSink& sink, Forms forms = Forms::LONG);
    ~SectionCollector();
    SectionCollector(const SectionCollector&) = delete;  // the library knows us by address
    SectionCollector& operator=(const SectionCollector&) = delete;

    void push(const uint8_t* packet);

private:
    struct Library;  // hides the table library

    const uint16_t mPid;
    const Forms mForms;
    SectionSink& mSink;
    std::unique_ptr<Library> mpLibrary;
};

}  // namespace orvhost
