#pragma once

// Settings of the machine, as short texts under dotted names. A name's value is, the first that is
// there:
//   1. the environment's ORV_PROPERTY_NAME, NAME with "_" for all but letters and digits, as in
//      ORV_PROPERTY_oneseg_extSdCard_path
//   2. a line "name=value" in the file $ORV_PROPERTIES, else, where that is not set, in
//      $XDG_CONFIG_HOME/orvplayer/properties.conf (~/.config/...), then in
//      /etc/orvplayer/properties.conf
// Blanks around name and value do not count; "#" begins a line of comment; of two lines for one
// name the last counts. A file that is not a regular one, or longer than 64 KiB, is passed over.
// This header stands before the packaged one of the same name.

constexpr int PROPERTY_VALUE_MAX = 92;  // bytes of a value, the zero included

extern "C" {

// Fills `value`, which has room for PROPERTY_VALUE_MAX bytes, always ended by a zero; longer values
// are cut. An empty or missing one gives the default, null counting as "". Returns the length. Any
// thread; reads the files anew each time, so it is nothing for a pipeline's thread.
int property_get(const char* key, char* value, const char* defaultValue);

}  // extern "C"
