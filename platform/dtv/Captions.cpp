#include <algorithm>

#include "dtv/Services.h"

namespace orvhost {

namespace {

constexpr uint8_t TAG_DATA_COMPONENT = 0xFD;  // ARIB STD-B10 part 2, 6.2.20

}  // namespace

bool isCaptions(const ElementaryStream& stream) {
    if (stream.kind != StreamKind::Caption) {
        return false;
    }
    const int tag = stream.componentTag;
    if ((tag & ~7) == 0x38 || tag == 0x88) {
        return false;  // superimposed text
    }
    if ((tag & ~7) == 0x30 || tag == 0x87) {
        return true;
    }
    return std::any_of(
        stream.descriptors.begin(), stream.descriptors.end(), [](const Descriptor& d) {
            const int id =
                d.tag == TAG_DATA_COMPONENT && d.data.size() >= 2 ? d.data[0] << 8 | d.data[1] : -1;
            return id == 0x0008 || id == 0x0012;
        });
}

}  // namespace orvhost
