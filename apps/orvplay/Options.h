#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvplay {

// Which streams of which source; a PID of 0 stands for none.
struct StreamOptions {
    std::string source;
    std::string service;         // name or number; empty: the first one
    std::optional<int> adapter;  // that receives the channel; nothing: the first one
    std::optional<uint16_t> videoPid;
    std::optional<uint16_t> audioPid;
    std::optional<uint16_t> captionPid;
    std::optional<uint16_t> pcrPid;
};

// Which player service plays.
struct ServiceOptions {
    std::string connect;   // "session" or "system": the bus of a running one; empty: our own
    bool restart = false;  // our own: another one in the place of one that ended by itself
    bool silent = false;   // our own: no sound output is opened
    bool media = false;    // a media file is to be played
};

struct PlayOptions : StreamOptions, ServiceOptions {
    bool headless = false;
    bool terminal = false;  // a screen on the terminal
    bool json = false;
    bool audio = true;
    bool keepGaps = false;
    bool resume = false;       // a recording: where playback of it stopped last
    double durationS = 0.0;    // from the first picture; 0: to the end
    std::string captionsOut;   // file for the captions, its format by its name; empty: none
    std::string snapshot;      // PNG of the screen at the end; empty: none
    std::string record;        // record what plays, called so, "-": by its channel; empty: not
    int storage = 0;           // for the recording
    std::string onSignalLost;  // commands for the shell; empty: none
    std::string onSignalBack;
    std::string asLive;  // a file as if on air, with this script of faults, "-": without
    std::string faults;  // the script itself
    std::string timing;  // file for how presentation is timed; empty: none
};

struct RecordOptions : StreamOptions, ServiceOptions {
    std::string name;        // what the recording is called besides its channel
    int storage = 0;         // by the service's number
    double durationS = 0.0;  // 0: to the end
    bool json = false;
};

struct RecordSwitchOptions {
    bool start = true;
    std::string name;
    std::optional<int> storage;  // else as that player was told
    bool discard = false;        // at the stop
    int player = 0;              // process number; 0: the one that runs
};

struct RecordingsOptions : ServiceOptions {
    enum class Action { LIST, SHOW, REMOVE, IMPORT };
    Action action = Action::LIST;
    std::vector<int> numbers;
    std::string file;  // to import
    std::string channel;
    std::string name;
    int storage = 0;
    bool json = false;
};

struct ChannelsOptions {
    enum class Action { LIST, SEARCH, IMPORT, EXPORT };
    Action action = Action::LIST;
    std::string text;    // to search for
    std::string file;    // to import, or to write to; empty: standard output
    std::string format;  // "dvbv5" or "m3u"; empty: by the file's name
    bool json = false;
};

struct ZapOptions {
    std::string channel = "next";  // name or number, "next", "previous" or "last"
    int player = 0;                // process number; 0: the one that runs
    int count = 1;
    bool history = false;  // show that alone
    int lines = 20;        // of it
    bool json = false;
};

struct ScanOptions {
    std::string source;         // empty: a DVB adapter
    std::string region = "br";  // whose channels the adapter is tuned to
    int adapter = 0;
    double timeoutS = 3.0;  // the longest wait for packets, of each channel
    bool keep = true;       // add what is found to the channels
    bool json = false;
};

// What is asked of players that run.
struct FleetOptions {
    int player = 0;  // process number; 0: the one that runs, or all of them
    bool json = false;
    bool openMetrics = false;
};

struct SnapshotOptions : StreamOptions, ServiceOptions {
    int count = 1;
    int everyMs = 1000;
    double atS = 0.0;  // of a media file, where the first one is from
    std::string out;   // file, folder or "-"; empty: dated names in this folder
};

struct UnitsOptions : StreamOptions {
    std::string stream;           // "video", "audio" or "captions"; empty: all
    std::string stage = "units";  // or "pes": the packets that the parser delivers
    std::string out;              // file for their bytes; empty: none
    bool quiet = false;           // the summary alone
};

struct CaptionsOptions : StreamOptions {
    std::string format = "txt";  // or "srt", "vtt", "jsonl"
    std::string out;             // empty: standard output
};

struct PlotOptions {
    std::string file;
    std::string out = "timing.png";  // or .svg
};

struct ProbeOptions : StreamOptions {
    bool json = false;
    double durationS = 5.0;  // of a paced source
};

}  // namespace orvplay
