// Writes the seeds of this folder's fuzzers: tsparser_seeds FOLDER

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/TsBuilder.h"

namespace {

using namespace orvtest;

constexpr unsigned PID = 0x111;

class Folder {
public:
    Folder(const std::string& root, const char* fuzzer)
        : mPath(std::filesystem::path(root) / fuzzer) {
        std::filesystem::create_directories(mPath);
    }
    void write(const char* name, uint8_t choice, const Bytes& bytes) const {
        std::ofstream file(mPath / name, std::ios::binary);
        file.put(static_cast<char>(choice));
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

private:
    std::filesystem::path mPath;
};

// Every flag of the adaptation field and its extension, with private data.
Bytes fullField() {
    Bytes packet{0x47, 0x41, 0x11, 0x30, 60, 0xFF};
    packet = packet + TsBuilder::pcrBytes(27'000'000) + TsBuilder::pcrBytes(54'000'000);
    packet = packet + Bytes{9, 4, 1, 2, 3, 4, 11, 0xE0, 0x80, 1, 2, 3, 4, 0x61, 5, 7, 8, 9};
    packet.resize(TsBuilder::PACKET, 0xFF);
    return packet;
}

TsBuilder stream() {
    TsBuilder made;
    return made.pes(PID, 0xE0, 90'000, Bytes(400, 'A'), 27'000'000, 87'000)
        .pcr(PID, 28'000'000)
        .pes(PID, 0xE0, 93'000, Bytes(200, 'B'))
        .lose(PID, 1)
        .pes(PID, 0xE0, 96'000, Bytes(100, 'C'))
        .pes(PID, 0xE0, NO_TIME, Bytes(100, 'D'));
}

// Behind the start code, as the fuzzer wants it.
Bytes body(const Bytes& pes) {
    return Bytes(pes.begin() + 3, pes.end());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const Folder ts(argv[1], "ts_packet_fuzzer");
    ts.write("stream", 0, stream().build());
    ts.write("stream_retained", 3, stream().build());
    ts.write("full_field", 1, fullField() + fullField());

    const Folder pes(argv[1], "pes_packet_fuzzer");
    const auto writePes = [&pes](const char* name, const Bytes& packet) {
        pes.write(name, static_cast<uint8_t>(packet.size() - 3), body(packet));
    };
    writePes("stamps", TsBuilder::pesBytes(0xE0, 90'000, {1, 2, 3}, 87'000));
    writePes("audio", TsBuilder::pesBytes(0xC0, 90'000, {1, 2, 3}));
    writePes("padding", TsBuilder::pesBytes(0xBE, NO_TIME, {1, 2, 3}));
    writePes("every_field", Bytes{0, 0, 1, 0xBD, 0, 0, 0x80, 0xFF, 47} + Bytes(23, 0x21) +
                                Bytes{0xF1} + Bytes(23, 0x42) + Bytes(4, 'x'));

    const Folder parser(argv[1], "ts_parser_fuzzer");
    const char* const ROLES[] = {"pcr", "video", "audio", "captions"};
    for (uint8_t role = 0; role < 4; ++role) {
        const auto slices = static_cast<uint8_t>(role << 3);
        parser.write(ROLES[role], 0x20 | slices | role, stream().build());
    }
    return 0;
}
