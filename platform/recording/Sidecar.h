#pragma once

#include <string>
#include <string_view>

#include "recording/RecordingDetails.h"

namespace orvhost {

// NAME.json: what the catalogue knows of a recording, beside it, so that a lost catalogue can be
// made again and a recording may move to another folder or machine. `uid` tells it from others
// whatever its number and path; path and position are not in the file.
struct Sidecar {
    std::string uid;  // 32 hexadecimal digits
    RecordingDetails details;
};

std::string newUid();

std::string sidecarText(const Sidecar& sidecar);

// False for what is no sidecar of this program. Values that are missing or out of their range are
// those of an empty RecordingDetails; labels are cut to MAX_LABEL_BYTES.
bool parseSidecar(std::string_view text, Sidecar* sidecar);

// The file at details.sidecarPath(), in one step: it is the old one or the new one, whole, also
// after a power failure.
RecordingResult writeSidecar(const Sidecar& sidecar);
// False when there is none that can be read. The path is taken from where it stands.
bool readSidecar(const std::string& sidecarPath, Sidecar* sidecar);

// Replaces a small file in one step.
RecordingResult replaceFile(const std::string& path, const std::string& content);

}  // namespace orvhost
