#pragma once

#include <dtv/TunerTypes.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orvhost {

// Reads forward through the bytes of a table and never past their end: what is missing reads as 0
// or as nothing. The bytes stay the caller's.
class TableCursor {
public:
    TableCursor(const uint8_t* data, size_t size) : mAt(data), mLeft(size) {}
    explicit TableCursor(const std::vector<uint8_t>& data)
        : TableCursor(data.data(), data.size()) {}

    size_t left() const { return mLeft; }

    uint8_t u8() {
        if (mLeft == 0) {
            return 0;
        }
        --mLeft;
        return *mAt++;
    }
    uint16_t u16() {
        const unsigned high = u8();
        return static_cast<uint16_t>(high << 8 | u8());
    }
    uint16_t pid() { return u16() & 0x1FFF; }

    // The next `size` bytes on their own, cut where these end.
    TableCursor part(size_t size) {
        const size_t taken = size < mLeft ? size : mLeft;
        const TableCursor inner(mAt, taken);
        mAt += taken;
        mLeft -= taken;
        return inner;
    }
    // A loop behind its 12-bit length.
    TableCursor loop() { return part(u16() & 0x0FFF); }

    std::vector<uint8_t> bytes() const { return {mAt, mAt + mLeft}; }

private:
    const uint8_t* mAt;
    size_t mLeft;
};

// The descriptors of a loop; the last one is cut where the loop ends.
std::vector<Descriptor> descriptorsOf(TableCursor loop);

// The three letters of a language or a country; empty when they are none.
std::string lettersAt(const std::vector<uint8_t>& data, size_t at);

}  // namespace orvhost
