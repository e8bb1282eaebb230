#pragma once

#include <string>

#include "CommandText.h"

namespace orvmanual {

// Scripts that complete a program's commands, options, their choices and files, for each shell.
std::string bashCompletion(const CommandText& program);
std::string zshCompletion(const CommandText& program);
std::string fishCompletion(const CommandText& program);

}  // namespace orvmanual
