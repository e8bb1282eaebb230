#pragma once

#include <orvclient/Player.h>

#include <string>

// What the player opens and records to, as it wants to be told: every parameter ends with ';'.
// Names cannot be escaped, so those that hold a separator are refused: false, and one line for
// people in *error.
namespace orvclient {

std::string liveUri(const LiveSource& source);

// The file stands among the parameters: as the URI's path it would lose its last character.
bool recordingUri(const std::string& path, const LiveSource& source, std::string* uri,
                  std::string* error);

// A media file is opened by its path alone, which the service's own folder must not change.
bool mediaFile(const std::string& path, std::string* absolute, std::string* error);

bool recorderUri(const RecordingLabels& labels, std::string* uri, std::string* error);

}  // namespace orvclient
