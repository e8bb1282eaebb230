#include "dtv/TableCursor.h"

namespace orvhost {

std::vector<Descriptor> descriptorsOf(TableCursor loop) {
    std::vector<Descriptor> list;
    while (loop.left() >= 2) {
        Descriptor& d = list.emplace_back();
        d.tag = loop.u8();
        d.data = loop.part(loop.u8()).bytes();
    }
    return list;
}

std::string lettersAt(const std::vector<uint8_t>& data, size_t at) {
    if (at + 3 > data.size()) {
        return {};
    }
    std::string code;
    for (size_t i = at; i < at + 3; ++i) {
        const uint8_t lower = data[i] | 0x20;
        if (lower < 'a' || lower > 'z') {
            return {};
        }
        code.push_back(static_cast<char>(data[i]));
    }
    return code;
}

}  // namespace orvhost
