#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace orvtest {

// What dump(stream, indent) writes of an object.
template <typename Dumped>
std::string reportOf(Dumped& dumped, int indent = 0) {
    char* text = nullptr;
    size_t size = 0;
    FILE* memory = open_memstream(&text, &size);
    dumped.dump(memory, indent);
    fclose(memory);
    std::string report(text);
    free(text);
    return report;
}

}  // namespace orvtest
