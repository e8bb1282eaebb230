// LOAS and ADTS framing. Byte 0 chooses the framing, byte 1 how the rest is cut into pieces.
// Beside memory, two promises are checked: a stream never gives more than it holds, and the calls
// are bounded by its bytes.

#include <aac/TransportDecoder.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

void check(bool holds) {
    if (!holds) {
        abort();
    }
}

int onConfig(void* context, const CSAudioSpecificConfig* asc, unsigned char, unsigned char*) {
    check(asc->m_aot != 0);
    return ++*static_cast<unsigned*>(context) % 16 == 0;  // some are refused
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    HANDLE_TRANSPORTDEC decoder =
        transportDec_Open((data[0] & 1) != 0 ? TT_MP4_ADTS : TT_MP4_LOAS, 1, 1);
    unsigned configs = 0;
    transportDec_RegisterAscCallback(decoder, onConfig, &configs);
    unsigned pieceSeed = data[1];
    const uint8_t* at = data + 2;
    const uint8_t* const end = data + size;
    size_t given = 0;
    size_t calls = 0;
    while (at < end) {
        pieceSeed = pieceSeed * 1103515245u + 12345u;
        const auto left = static_cast<unsigned>(end - at);
        const unsigned piece = std::min(left, data[1] == 0 ? left : 1 + (pieceSeed >> 16) % 200);
        unsigned valid = piece;
        while (valid > 0) {
            transportDec_FillData(decoder, at, piece, &valid, 0);
            int result;
            while ((result = transportDec_ReadAccessUnit(decoder, 0)) !=
                   TRANSPORTDEC_NOT_ENOUGH_BITS) {
                check(++calls <= 2 * size);
                if (result == TRANSPORTDEC_OK) {
                    const int bits = transportDec_GetAuBitsTotal(decoder, 0);
                    check(bits > 0 && bits % 8 == 0);
                    // One byte more than there is reads as zero.
                    std::vector<uint8_t> unit(static_cast<size_t>(bits) / 8 + 1, 0xFF);
                    FDKreadBytes(transportDec_GetBitstream(decoder, 0), unit.data(),
                                 static_cast<unsigned>(unit.size()));
                    check(unit.back() == 0);
                    given += unit.size() - 1;
                }
            }
        }
        at += piece;
    }
    check(given <= size);
    transportDec_Close(&decoder);
    return 0;
}
