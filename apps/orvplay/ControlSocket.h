#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

namespace orvplay {

// How other commands of the same user reach a player that runs: a local socket of each,
//     $XDG_RUNTIME_DIR/orvplay/PID.sock, without that variable /tmp/orvplay-UID/PID.sock
// in a folder that nobody else may enter. One request, one answer, a JSON object in a line each:
//     {"command":"record.start","name":"News"}       {"ok":true,"number":12}
//     {"command":"record.pause"}                     {"ok":false,"code":2,"message":"..."}
// `code` is what the command that asked should exit with. An answer may be followed by lines, as
// long as who asked stays.

// The folder, made where it is not. Empty, and one line in *error, when there is none that is safe.
std::string controlFolder(std::string* error);

// The player's end. It is polled by the thread that plays, so that requests are served between
// other things and need no locks; nothing here waits for who asks.
class ControlServer {
public:
    using Json = nlohmann::json;
    // A request: to be answered at once or later, by its number.
    using Handler = std::function<void(int connection, const Json& request)>;

    static constexpr size_t MAX_CONNECTIONS = 16;
    static constexpr size_t MAX_REQUEST_BYTES = 65'536;
    // Of lines that a connection has not taken yet.
    static constexpr size_t MAX_OUTPUT_BYTES = 262'144;

    ControlServer() = default;
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;  // owns descriptors
    ControlServer& operator=(const ControlServer&) = delete;

    // False, and one line in *error, when nobody can reach this player.
    bool open(std::string* error);

    // Waits so long for requests, a signal ends that early, and hands those that came to the
    // handler. Just waits when it is not open. What else is to be waited for goes into `others`,
    // whose `revents` are set.
    void wait(int64_t timeoutNs, const Handler& handler, std::span<pollfd> others = {});

    // Who asked may be gone: nothing happens then.
    void answer(int connection, const Json& answer);
    // The same for one that gets lines afterwards, until it leaves.
    void answerAndKeep(int connection, const Json& answer);
    enum class Sent { TAKEN, NO_ROOM, GONE };
    // Such a line, without its end.
    Sent send(int connection, const std::string& line);
    bool isOpen(int connection) const { return mConnections.contains(connection); }
    // It has not taken all of it yet.
    bool isSending(int connection) const;

private:
    struct Connection {
        int fd = -1;
        bool asked = false;  // its request is with the handler
        bool stays = false;  // for lines
        int64_t endNs = 0;   // it has asked, or taken its answer, by then
        std::string input;
        std::string output;
    };

    void accept();
    // False when the connection is over.
    bool serve(int number, Connection& connection, short events, const Handler& handler);
    bool read(int number, Connection& connection, const Handler& handler);
    static bool serveKept(Connection& connection, short events);
    static bool write(Connection& connection);

    int mSocket = -1;
    std::string mPath;
    int mLastNumber = 0;
    std::map<int, Connection> mConnections;
};

// The PIDs of the players of this user that can be reached; what dead ones left is removed.
std::vector<int> runningPlayers(std::string* error);

// Asks a player and waits for its answer. False, and one line in *error, when none came.
bool askPlayer(int pid, const nlohmann::json& request, nlohmann::json* answer, std::string* error);

// The same with the lines that follow an answer.
//
//   PlayerLines lines;
//   if (lines.ask(pid, {{"command", "events"}}, &answer, &error)) {
//       while ((got = lines.next(&line, 500)) != PlayerLines::Got::END) { ... }
//   }
class PlayerLines {
public:
    PlayerLines() = default;
    ~PlayerLines();
    PlayerLines(const PlayerLines&) = delete;  // owns a descriptor
    PlayerLines& operator=(const PlayerLines&) = delete;

    // Once.
    bool ask(int pid, const nlohmann::json& request, nlohmann::json* answer, std::string* error);
    enum class Got { LINE, NOTHING, END };
    // The next line without its end, after waiting so long for it; a signal ends that early. END:
    // the player closed.
    Got next(std::string* line, int timeoutMs);

private:
    bool takeLine(std::string* line);

    int mFd = -1;
    std::string mInput;
};

}  // namespace orvplay
