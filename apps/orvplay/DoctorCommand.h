#pragma once

namespace orvplay {

// `orvplay doctor`: EXIT_OK when all is there that watching television needs.
int doctorCommand(bool json);

}  // namespace orvplay
