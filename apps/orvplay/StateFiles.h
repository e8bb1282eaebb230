#pragma once

#include <functional>
#include <string>

namespace orvplay {

// What this program remembers from one run to the next, as files in $XDG_STATE_HOME/orvplay,
// without that variable in ~/.local/state/orvplay.

// Empty when there is no such file, or it cannot be read.
std::string readStateFile(const std::string& name);

// Puts what `change` makes of a file's text in its place, in one step: who reads meanwhile sees one
// or the other, and several programs that do so lose nothing of each other. False, and one line in
// *error, when that cannot be written.
bool changeStateFile(const std::string& name,
                     const std::function<std::string(const std::string& text)>& change,
                     std::string* error);

}  // namespace orvplay
