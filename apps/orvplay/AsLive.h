#pragma once

#include <orvclient/Tuner.h>

#include "EventLog.h"
#include "Messages.h"
#include "Options.h"
#include "TimingLog.h"

namespace orvplay {

// `--as-live=SCRIPT`: a file as if it were on air, with faults.

// Reads the script that was asked for into options->faults. EXIT_OK, or the exit code after one
// line on standard error that tells the line of the script.
int readFaultScript(PlayOptions* options, Messages& messages);

// Tells the faults that happened since the last call as events, and to `timing`.
void tellFaults(orvclient::Tuner& tuner, EventLog& events, TimingLog& timing);

}  // namespace orvplay
