#pragma once

// What the shared library shows of itself, and what of that it keeps.
#define ORVCLIENT_API __attribute__((visibility("default")))
#define ORVCLIENT_LOCAL __attribute__((visibility("hidden")))
