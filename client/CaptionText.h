#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvclient {

// Caption text as the player hands it over, code points of 32 bits in the machine's byte order at
// any address, as UTF-8. What is no Unicode character becomes U+FFFD.
std::string captionUtf8(const uint8_t* codePoints, size_t bytes);

}  // namespace orvclient
