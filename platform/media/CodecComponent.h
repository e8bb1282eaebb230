#pragma once

namespace orvhost {

// What a codec decodes and what it is called.
struct CodecComponent {
    enum class Kind { Avc, Aac, MpegAudio };

    Kind kind;
    const char* name;
    const char* mime;

    bool isVideo() const { return kind == Kind::Avc; }

    // Null for what this host does not decode.
    static const CodecComponent* byMime(const char* mime);
    static const CodecComponent* byName(const char* name);
};

}  // namespace orvhost
