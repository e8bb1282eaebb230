#pragma once

#include <string>

namespace orvplay {

// What of a text counts when people search: without case, accents, width of letters and digits,
// and signs between them; words one blank apart. "São João HD" and "sao joao ｈｄ" are the same. Of
// bytes that are no UTF-8 nothing counts.
std::string searchText(const std::string& utf8);

}  // namespace orvplay
