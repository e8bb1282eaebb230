#include "ControlSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "MonotonicTime.h"

namespace orvplay {

namespace {

using nlohmann::json;

constexpr int64_t REQUEST_NS = 5'000'000'000;
constexpr int BACKLOG = 8;
constexpr char SUFFIX[] = ".sock";

// False for a path that is too long.
bool addressOf(const std::string& path, sockaddr_un* address) {
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path) {
        return false;
    }
    path.copy(address->sun_path, path.size());
    return true;
}

int makeSocket(int flags) {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
}

int connectTo(const std::string& path) {
    sockaddr_un address;
    const int fd = addressOf(path, &address) ? makeSocket(0) : -1;
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

// The folder is ours alone already; root is let in as everywhere.
bool isAllowed(int fd) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

std::string toLine(const json& object) {
    return object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string pathOf(const std::string& folder, int pid) {
    return folder + "/" + std::to_string(pid) + SUFFIX;
}

}  // namespace

std::string controlFolder(std::string* error) {
    const char* const runtime = getenv("XDG_RUNTIME_DIR");
    const std::string folder = runtime != nullptr && *runtime == '/'
                                   ? std::string(runtime) + "/orvplay"
                                   : "/tmp/orvplay-" + std::to_string(geteuid());
    struct stat found = {};
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        *error = folder + ": cannot be made: " + strerror(errno) + "; set XDG_RUNTIME_DIR";
        return "";
    }
    if (lstat(folder.c_str(), &found) != 0 || !S_ISDIR(found.st_mode) ||
        found.st_uid != geteuid() || (found.st_mode & 077) != 0) {
        *error = folder + ": is no folder of this user alone; remove it, or set XDG_RUNTIME_DIR";
        return "";
    }
    return folder;
}

ControlServer::~ControlServer() {
    for (const auto& [number, connection] : mConnections) {
        close(connection.fd);
    }
    if (mSocket >= 0) {
        close(mSocket);
        unlink(mPath.c_str());
    }
}

// Under its name it can be reached: a socket there that nobody listens at is taken for a dead one.
bool ControlServer::open(std::string* error) {
    const std::string folder = controlFolder(error);
    if (folder.empty()) {
        return false;
    }
    mPath = pathOf(folder, getpid());
    const std::string before = mPath + "~";
    sockaddr_un address;
    const bool fits = addressOf(before, &address);
    mSocket = fits ? makeSocket(SOCK_NONBLOCK) : -1;
    unlink(before.c_str());
    if (mSocket >= 0 && bind(mSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        listen(mSocket, BACKLOG) == 0 && rename(before.c_str(), mPath.c_str()) == 0) {
        return true;
    }
    *error = mPath + ": cannot be listened at: " +
             (fits ? strerror(errno) : "the name is too long; set XDG_RUNTIME_DIR");
    if (mSocket >= 0) {
        close(mSocket);
        mSocket = -1;
        unlink(before.c_str());
    }
    return false;
}

void ControlServer::wait(int64_t timeoutNs, const Handler& handler, std::span<pollfd> others) {
    std::vector<pollfd> watched;
    std::vector<int> numbers;
    for (const auto& [number, connection] : mConnections) {
        const bool sends = !connection.output.empty();
        const int events = (sends ? POLLOUT : 0) | (!sends || connection.stays ? POLLIN : 0);
        watched.push_back({connection.fd, static_cast<short>(events), 0});
        numbers.push_back(number);
    }
    const bool hasRoom = mConnections.size() < MAX_CONNECTIONS;
    watched.push_back({hasRoom ? mSocket : -1, POLLIN, 0});
    const size_t own = watched.size();
    watched.insert(watched.end(), others.begin(), others.end());
    const timespec timeout{static_cast<time_t>(timeoutNs / 1'000'000'000),
                           static_cast<long>(timeoutNs % 1'000'000'000)};
    if (ppoll(watched.data(), watched.size(), &timeout, nullptr) < 0) {
        for (pollfd& other : others) {
            other.revents = 0;
        }
        return;
    }
    std::copy(watched.begin() + static_cast<ptrdiff_t>(own), watched.end(), others.begin());
    const int64_t now = monotonicNs();
    for (size_t i = 0; i < numbers.size(); ++i) {
        Connection& connection = mConnections[numbers[i]];
        const bool isLate = !connection.asked && now >= connection.endNs;
        if (isLate || !serve(numbers[i], connection, watched[i].revents, handler)) {
            close(connection.fd);
            mConnections.erase(numbers[i]);
        }
    }
    if (watched[own - 1].revents != 0) {
        accept();
    }
}

void ControlServer::accept() {
    const int fd = accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
        return;
    }
    if (!isAllowed(fd)) {
        close(fd);
        return;
    }
    Connection& connection = mConnections[++mLastNumber];
    connection.fd = fd;
    connection.endNs = monotonicNs() + REQUEST_NS;
}

bool ControlServer::serve(int number, Connection& connection, short events,
                          const Handler& handler) {
    if (connection.stays) {
        return serveKept(connection, events);
    }
    if (events == 0) {
        return true;
    }
    return connection.output.empty() ? read(number, connection, handler) : write(connection);
}

// Who follows says nothing more, but leaves.
bool ControlServer::serveKept(Connection& connection, short events) {
    char bytes[4096];
    if ((events & ~POLLOUT) != 0) {
        const ssize_t got = ::read(connection.fd, bytes, sizeof bytes);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            return false;
        }
    }
    return (events & POLLOUT) == 0 || write(connection) || connection.output.empty();
}

bool ControlServer::read(int number, Connection& connection, const Handler& handler) {
    char bytes[4096];
    const ssize_t got = ::read(connection.fd, bytes, sizeof bytes);
    if (got <= 0) {
        return got < 0 && (errno == EAGAIN || errno == EINTR);
    }
    if (connection.asked) {
        return true;  // one request alone
    }
    connection.input.append(bytes, static_cast<size_t>(got));
    const size_t end = connection.input.find('\n');
    if (end == std::string::npos) {
        return connection.input.size() <= MAX_REQUEST_BYTES;
    }
    const json request = json::parse(connection.input.substr(0, end), nullptr, false);
    if (!request.is_object()) {
        answer(number, {{"ok", false}, {"code", 1}, {"message", "no JSON object in a line"}});
        return true;
    }
    connection.asked = true;
    handler(number, request);
    return true;
}

void ControlServer::answer(int connection, const Json& answer) {
    const auto found = mConnections.find(connection);
    if (found == mConnections.end()) {
        return;
    }
    found->second.asked = false;
    found->second.endNs = monotonicNs() + REQUEST_NS;
    found->second.output = toLine(answer);
}

void ControlServer::answerAndKeep(int connection, const Json& answer) {
    const auto found = mConnections.find(connection);
    if (found != mConnections.end()) {
        found->second.stays = true;
        found->second.output = toLine(answer);
    }
}

ControlServer::Sent ControlServer::send(int connection, const std::string& line) {
    const auto found = mConnections.find(connection);
    if (found == mConnections.end()) {
        return Sent::GONE;
    }
    std::string& output = found->second.output;
    if (output.size() + line.size() + 1 > MAX_OUTPUT_BYTES) {
        return Sent::NO_ROOM;
    }
    output += line;
    output += '\n';
    return Sent::TAKEN;
}

bool ControlServer::isSending(int connection) const {
    const auto found = mConnections.find(connection);
    return found != mConnections.end() && !found->second.output.empty();
}

bool ControlServer::write(Connection& connection) {
    const ssize_t sent =
        ::send(connection.fd, connection.output.data(), connection.output.size(), MSG_NOSIGNAL);
    if (sent < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    connection.output.erase(0, static_cast<size_t>(sent));
    return !connection.output.empty();  // the end of the answer is the end of the connection
}

std::vector<int> runningPlayers(std::string* error) {
    std::vector<int> players;
    const std::string folder = controlFolder(error);
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(folder, failure)) {
        const int pid = atoi(entry.path().stem().c_str());
        if (entry.path().extension() != SUFFIX || pid <= 0) {
            continue;
        }
        const int fd = connectTo(entry.path());
        if (fd >= 0) {
            close(fd);
            players.push_back(pid);
        } else if (errno == ECONNREFUSED) {
            unlink(entry.path().c_str());
        }
    }
    std::sort(players.begin(), players.end());
    return players;
}

PlayerLines::~PlayerLines() {
    if (mFd >= 0) {
        close(mFd);
    }
}

bool PlayerLines::ask(int pid, const json& request, json* answer, std::string* error) {
    constexpr int PATIENCE_MS = 60'000;  // longer than any command of the player lasts
    const std::string folder = controlFolder(error);
    mFd = folder.empty() ? -1 : connectTo(pathOf(folder, pid));
    const std::string line = toLine(request);
    std::string got;
    *answer = json();
    if (mFd >= 0 &&
        ::send(mFd, line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size())) {
        next(&got, PATIENCE_MS);
        *answer = json::parse(got, nullptr, false);
    }
    if (!answer->is_object()) {
        *error = "the player with process number " + std::to_string(pid) + " does not answer";
        return false;
    }
    return true;
}

PlayerLines::Got PlayerLines::next(std::string* line, int timeoutMs) {
    const int64_t endNs = monotonicNs() + int64_t{timeoutMs} * 1'000'000;
    char bytes[4096];
    while (!takeLine(line)) {
        const int64_t leftNs = std::max<int64_t>(endNs - monotonicNs(), 0);
        const timespec left{static_cast<time_t>(leftNs / 1'000'000'000),
                            static_cast<long>(leftNs % 1'000'000'000)};
        pollfd watched{mFd, POLLIN, 0};
        if (ppoll(&watched, 1, &left, nullptr) <= 0) {
            return Got::NOTHING;
        }
        const ssize_t size = read(mFd, bytes, sizeof bytes);
        if (size <= 0 || mInput.size() > ControlServer::MAX_OUTPUT_BYTES) {
            return Got::END;
        }
        mInput.append(bytes, static_cast<size_t>(size));
    }
    return Got::LINE;
}

bool PlayerLines::takeLine(std::string* line) {
    const size_t end = mInput.find('\n');
    if (end == std::string::npos) {
        return false;
    }
    *line = mInput.substr(0, end);
    mInput.erase(0, end + 1);
    return true;
}

bool askPlayer(int pid, const json& request, json* answer, std::string* error) {
    PlayerLines lines;
    return lines.ask(pid, request, answer, error);
}

}  // namespace orvplay
