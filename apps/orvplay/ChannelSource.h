#pragma once

#include <string>

#include "Options.h"
#include "channels/Channel.h"
#include "dtv/dvb/DvbParameters.h"

namespace orvplay {

// Puts the source of a channel, and its service where none was named, in the place of the
// channel's name or number (or "dvb:" and that). Files, URIs, recordings and "-" stay as they are;
// files go before channels, so that "./" is never needed for one. The adapter that was asked for
// goes into the source of a channel, and any other source is refused one. EXIT_OK, or the exit code
// after one line on standard error.
int resolveChannel(StreamOptions* options);

// Puts there the channel that played last, else the first of the user's.
int resumeChannel(StreamOptions* options);

// What the tuner is told for a channel: its source, or the URI of its DVB tuning, on that adapter.
// Empty for a tuning that is not of ISDB-T.
std::string sourceOf(const Channel& channel, int adapter = 0);

// The adapter that a dvb:// source names; 0 for all others.
int adapterOf(const std::string& source);

// What is the same for all names of one source: of a file its whole path, of a URI its parts in
// their usual order. Sources with equal places are one multiplex.
std::string placeOf(const std::string& source);

// Where an adapter received a channel.
void setPlace(const orvhost::DvbParameters& place, Channel* channel);

}  // namespace orvplay
