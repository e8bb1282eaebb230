#include "Session.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <utility>
#include <vector>

using android::IBinder;
using android::sp;
using android::String16;
using orvhost::BinderConnection;

namespace orvclient {

namespace {

// After its connection is closed, how soon a process is certainly gone that ends at all.
constexpr std::chrono::milliseconds END_WAIT{1000};

constexpr char DAEMON[] = "orvplayerd";

// The program with its arguments.
std::vector<std::string> daemonCommand(const std::string& wanted) {
    std::error_code error;
    if (wanted.empty()) {
        const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
        const auto beside = self.parent_path() / DAEMON;
        if (!error && access(beside.c_str(), X_OK) == 0) {
            return {beside};
        }
        return {DAEMON};
    }
    if (std::filesystem::exists(wanted, error)) {
        return {wanted};  // blanks in it are its own
    }
    std::vector<std::string> words;
    std::istringstream stream(wanted);
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

// A process that ended says more than the connection that it left.
void explainEnd(ChildProcess* child, std::string* error) {
    if (child != nullptr && child->waitForEnd(END_WAIT)) {
        *error = "the player service " + child->describeEnd() + " before it served";
    }
}

std::shared_ptr<Session> startEmbedded(const Player::Options& options, std::string* error) {
    const std::vector<std::string> command = daemonCommand(options.daemon);
    if (command.empty()) {
        *error = "no program is named that is the player service";
        return nullptr;
    }
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        *error = std::string("no socket for the player service: ") + std::strerror(errno);
        return nullptr;
    }
    auto child = ChildProcess::start(command, sockets[1], options.errorOutput, error);
    close(sockets[1]);
    if (child == nullptr) {
        close(sockets[0]);
        return nullptr;
    }
    const sp<BinderConnection> connection =
        BinderConnection::overSocket(sockets[0], BinderConnection::APPLICATION, error);
    if (connection == nullptr) {
        explainEnd(child.get(), error);
        return nullptr;
    }
    return Session::over(connection, std::move(child), error);
}

}  // namespace

// A service on a bus may die while the bus lives on.
class Session::DeathWatch : public IBinder::DeathRecipient {
public:
    explicit DeathWatch(std::function<void()> callback) : mCallback(std::move(callback)) {}
    void binderDied(const android::wp<IBinder>& /*who*/) override { mCallback(); }

private:
    const std::function<void()> mCallback;
};

std::shared_ptr<Session> Session::start(const Player::Options& options, std::string* error) {
    if (options.service == Player::Service::EMBEDDED) {
        return startEmbedded(options, error);
    }
    const auto bus = options.service == Player::Service::SESSION_BUS ? BinderConnection::SESSION_BUS
                                                                     : BinderConnection::SYSTEM_BUS;
    const sp<BinderConnection> connection = BinderConnection::toBus(bus, "", error);
    return connection != nullptr ? over(connection, nullptr, error) : nullptr;
}

std::shared_ptr<Session> Session::over(sp<BinderConnection> connection,
                                       std::unique_ptr<ChildProcess> child, std::string* error) {
    const sp<IBinder> player = connection->getService(wire::playerDescriptor(), error);
    if (player != nullptr) {
        return std::shared_ptr<Session>(
            new Session(std::move(connection), std::move(child), player));
    }
    connection->disconnect();
    explainEnd(child.get(), error);
    return nullptr;
}

Session::Session(sp<BinderConnection> connection, std::unique_ptr<ChildProcess> child,
                 const sp<IBinder>& player)
    : mConnection(std::move(connection)), mChild(std::move(child)), mPlayer(player) {}

Session::~Session() {
    end();
}

void Session::listen(const sp<ClientEvents>& events, std::function<void()> onGone) {
    mEvents = events;
    const auto gone = [events, onGone = std::move(onGone)] {
        if (events->end()) {
            onGone();
        }
    };
    mDeathWatch = new DeathWatch(gone);
    if (mPlayer.binder()->linkToDeath(mDeathWatch) == android::DEAD_OBJECT) {
        gone();
    }
    mConnection->setDisconnectedCallback(gone);
}

sp<orvhost::ITuner> Session::tuner(std::string* error) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mTuner == nullptr) {
        mTuner = android::interface_cast<orvhost::ITuner>(
            mConnection->getService(String16(orvhost::ITuner::SERVICE_NAME), error));
    }
    return mTuner;
}

sp<orvhost::IMonitor> Session::monitor(std::string* error) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mMonitor == nullptr) {
        mMonitor = android::interface_cast<orvhost::IMonitor>(
            mConnection->getService(String16(orvhost::IMonitor::SERVICE_NAME), error));
    }
    return mMonitor;
}

sp<orvhost::IRecordings> Session::recordings(std::string* error) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mRecordings == nullptr) {
        mRecordings = android::interface_cast<orvhost::IRecordings>(
            mConnection->getService(String16(orvhost::IRecordings::SERVICE_NAME), error));
    }
    return mRecordings;
}

int Session::servicePid() const {
    if (mChild != nullptr) {
        return mChild->pid();
    }
    const int peer = mConnection->peerPid();
    return peer >= 0 ? peer : mConnection->ownerPid(mPlayer.binder());
}

std::string Session::reasonOfEnd() {
    if (mChild == nullptr) {
        return "the player service is gone";
    }
    mChild->waitForEnd(END_WAIT);
    return "the player service " + mChild->describeEnd();
}

void Session::end() {
    if (mEvents != nullptr) {
        mEvents->end();
    }
    mConnection->disconnect();
    if (mChild != nullptr) {
        mChild->end();
    }
}

}  // namespace orvclient
