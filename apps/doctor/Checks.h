#pragma once

#include <string>

#include "Finding.h"

// One function for each thing that the player stands on. Each looks at the machine as it is, with
// the rights of the user who asks, changes nothing and ends within a few seconds, whatever does not
// answer. Commands that mend are those of Debian 12.
namespace orvdoctor {

// Adapters below ROOT/dev/dvb: whether there are any, and whether this user may use them. `root` is
// empty but in tests.
Finding checkTuner(const std::string& root = "");

// Whether the window's own module loads, and reaches a display by its own test.
Finding checkDisplay();

// Whether a PulseAudio server, or PipeWire in its stead, takes this user's connection. `root` is
// where installed servers are looked for, to tell how to start one.
Finding checkSound(const std::string& root = "");

// A font for texts, and the characters of captions in the fonts that there are.
Finding checkFonts();

// The decoders of pictures and sound; and which library decodes AAC.
Findings checkCodecs();

// orvplayerd as orvplay starts it: where it is, its version, and whether it serves.
Finding checkService();

// The session bus, and whether orvplayerd is, or can be started, there. Only applications of a
// service that runs already need one.
Finding checkBus();

// Where channels, recordings and the sockets of running players go.
Finding checkFolders();

// What the kernel grants: sealed shared memory, descriptors, and receive buffers.
Findings checkLimits();

// All of them, in the order in which they are told.
Findings checkAll();

}  // namespace orvdoctor
