#pragma once

#include <cstdint>

namespace OrvPlayer {

// Big-endian bit fields, most significant bit first, in a byte buffer that the caller owns.
//
// The reader and the writer below never leave the buffer. Bits past its end read as 0 and are not
// written; the position then stops at the end and hasOverrun() stays true for good, so a caller may
// read a whole structure and ask once. Not thread safe.
class BitInterface {
public:
    BitInterface(void* buffer, unsigned int size);
    virtual ~BitInterface();

    // Moves to the next whole byte. `*skipped` (may be null) becomes 1 when that moved, else 0.
    virtual void byteAlign(int* skipped) = 0;
    // Moves on by n bits. `*bytesSkipped` (may be null) receives the whole bytes passed.
    virtual void skipBits(unsigned char n, int* bytesSkipped) = 0;

    void resetBitCounter() { bitCounter = 0; }
    uint8_t getBitCounter() const { return bitCounter; }
    bool isByteAligned() const { return bitCounter == 0; }

    // Bytes from the current one, of which a part may be used, to the end.
    uint32_t getSize() const { return size; }
    bool hasOverrun() const { return overrun; }

protected:
    BitInterface(const BitInterface&) = default;
    BitInterface& operator=(const BitInterface&) = default;

    uint8_t bitCounter = 0;  // bits of the current byte already consumed, 0 to 7
    unsigned char* buffer;   // the current byte
    uint32_t size;           // bytes from `buffer` to the end
    bool overrun = false;    // a bit past the end was asked for
};

class ReadBitInterface : public BitInterface {
public:
    // The bytes are only read.
    ReadBitInterface(const void* buffer, unsigned int size);

    // The next n bits. Above 32 the position moves by all of them and the last 32 are returned.
    uint32_t readBits(unsigned char n);
    // The same without moving or marking an overrun.
    uint32_t peekBits(unsigned char n) const;
    // For 25 to 32 bits; any other count is logged and gives 0 without moving.
    uint32_t readBitsLong(unsigned char n);

    // Reads n bits at `data`, a pointer of the caller's, bounds included: of this object only the
    // bit counter is used and moved. `*bytesAdvanced` receives the bytes to step `data` by.
    //
    // Deliberate: where bitCounter + n is 17 to 24 the value comes out 8 bits too far right. See
    // BitInterfaceTest.OutsidePointerKeepsItsShift.
    uint32_t readBits(const unsigned char* data, unsigned char n, int* bytesAdvanced);

    void byteAlign(int* skipped) override;
    void skipBits(unsigned char n, int* bytesSkipped) override;

private:
    // Returns the whole bytes passed.
    uint32_t advance(unsigned int bits);
};

class WriteBitInterface : public BitInterface {
public:
    using BitInterface::BitInterface;

    // Writes the low n bits of `value`; a byte is cleared when it is entered, whatever it held.
    // Returns 0.
    int writeBits(unsigned int value, unsigned int n);

    // Both write zero bits.
    void byteAlign(int* padded) override;
    void skipBits(unsigned char n, int* bytesSkipped) override;
};

}  // namespace OrvPlayer
