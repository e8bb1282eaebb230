#pragma once

#include <string>

namespace orvplay {

// The entry of a part of this program that is loaded when it is asked for: in ../lib from the
// program's folder, where it is built and installed. It stays until the process ends. Null, and one
// line in *error, when it is not there or a library that it needs is not.
void* moduleEntry(const char* module, const char* symbol, std::string* error);

}  // namespace orvplay
