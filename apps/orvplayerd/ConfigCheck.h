#pragma once

namespace orvplayerd {

// Looks at what the service reads when it runs: environment variables and the permissions file.
// Prints what it found, faults on standard error; 0 when there is none, else 1.
int checkConfig();

}  // namespace orvplayerd
