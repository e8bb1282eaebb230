#pragma once

#include <dtv/TunerTypes.h>

#include <string>

namespace orvhost {

// Opens what a user named as a source: a file, a FIFO, or "-" for a duplicate of standard input.
// Never waits. Gives a close-on-exec descriptor that the caller closes, or -1 with the reason in
// `result`.
int openSourceFile(const std::string& path, TuneResult& result);

// What messages call it.
std::string sourceNameOf(const std::string& path);

// Says why something of that name cannot be read.
void failSource(TuneResult& result, const std::string& name, int error);

}  // namespace orvhost
