#include "Daemon.h"

#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <dtv/ITuner.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "MonitorService.h"
#include "SoundCounter.h"
#include "dtv/TunerService.h"
#include "recording/RecordingsService.h"
#include "service/PlayerLibrary.h"

namespace orvplayerd {

namespace {

using android::String16;
using orvhost::BinderConnection;

constexpr char PLAYER_NAME[] = "OrvPlayer";
constexpr uint32_t CLOSE_PLAYER = 8;  // of the player's interface
constexpr int END_MS = 450;

void say(const std::string& message) {
    fprintf(stderr, "orvplayerd: %s\n", message.c_str());
}

// Registers what applications may call. Never destroyed, as the player is not.
void makeServices() {
    auto* const sound = new SoundCounter;
    orvhost::setPlaybackTap(sound);
    const auto manager = android::defaultServiceManager();
    manager->addService(String16(orvhost::ITuner::SERVICE_NAME),
                        new orvhost::TunerService(orvhost::Tuner::instance()));
    manager->addService(String16(orvhost::IMonitor::SERVICE_NAME), new MonitorService(*sound));
    manager->addService(String16(orvhost::IRecordings::SERVICE_NAME),
                        new orvhost::RecordingsService(orvhost::Catalogue::instance));
    orvhost::RecordingsService::repairAtStart();
    OrvPlayer_instantiate();
}

// On a thread of its own: whatever holds it up, signals are still heard. One at a time.
void dumpAside() {
    static std::atomic<bool> busy{false};
    if (!busy.exchange(true)) {
        std::thread([] {
            writePlayerState(STDERR_FILENO);
            busy = false;
        }).detach();
    }
}

bool isSocket(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode);
}

}  // namespace

Daemon::Daemon(const Options& options)
    : mOptions(options), mLostFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Daemon::~Daemon() {
    if (mLostFd >= 0) {
        close(mLostFd);
    }
}

int Daemon::run() {
    if (isPeer() && !isSocket(mOptions.peerFd)) {
        say("--peer-fd " + std::to_string(mOptions.peerFd) +
            " is no open socket; orvplay starts this program itself");
        return EXIT_USAGE;
    }
    if (mSignals.fd() < 0 || mLostFd < 0) {
        say(std::string("no descriptors: ") + strerror(errno));
        return EXIT_FAILED;
    }
    makeServices();
    atexit([] { endProcessBy(END_MS, EXIT_OK); });  // the player's internal fault calls exit()
    if (!connect()) {
        return EXIT_SERVICE;
    }
    mConnection->setDisconnectedCallback([fd = mLostFd] { eventfd_write(fd, 1); });
    if (!isPeer() && !claimNames()) {
        return shutDown(EXIT_SERVICE);
    }
    announce();
    return serve();
}

bool Daemon::connect() {
    std::string error;
    if (isPeer()) {
        mConnection =
            BinderConnection::overSocket(mOptions.peerFd, BinderConnection::SERVICE, &error);
    } else {
        mConnection = BinderConnection::toBus(
            mOptions.system ? BinderConnection::SYSTEM_BUS : BinderConnection::SESSION_BUS,
            mOptions.busAddress, &error);
    }
    if (mConnection == nullptr) {
        say(error);
    }
    return mConnection != nullptr;
}

// The player's own name last: who waits for it finds the others.
bool Daemon::claimNames() {
    for (const char* name : {orvhost::ITuner::SERVICE_NAME, orvhost::IMonitor::SERVICE_NAME,
                             orvhost::IRecordings::SERVICE_NAME, PLAYER_NAME}) {
        std::string error;
        if (!mConnection->claimName(String16(name), &error)) {
            say(error);
            return false;
        }
    }
    return true;
}

void Daemon::announce() const {
    if (isPeer()) {
        return;  // standard error is the application's
    }
    say(std::string("ready on the ") + (mOptions.system               ? "system bus"
                                        : mOptions.busAddress.empty() ? "session bus"
                                                                      : "bus"));
    sd_notify(0, "READY=1");
}

// Until a signal or the end of the connection.
int Daemon::serve() {
    pollfd events[] = {{mSignals.fd(), POLLIN, 0}, {mLostFd, POLLIN, 0}};
    while (true) {
        if (poll(events, 2, -1) < 0 && errno != EINTR) {
            return shutDown(EXIT_FAILED, std::string("cannot wait: ") + strerror(errno));
        }
        for (int signal = mSignals.take(); signal != 0; signal = mSignals.take()) {
            if (signal != SIGUSR1) {
                return shutDown(EXIT_OK);
            }
            dumpAside();
        }
        if ((events[1].revents & POLLIN) != 0) {
            if (isPeer()) {
                return shutDown(EXIT_OK);  // the application has ended, and nobody else can come
            }
            return shutDown(EXIT_FAILED, "the bus is gone; start this again when there is one");
        }
    }
}

int Daemon::shutDown(int code, const std::string& message) {
    endProcessBy(END_MS, code);
    if (!message.empty()) {
        say(message);
    }
    if (!isPeer()) {
        sd_notify(0, "STOPPING=1");
    }
    orvhost::Tuner::instance().untune();
    closePlayer();
    mConnection->disconnect();
    return code;
}

// As an application would: what plays is stopped, a recording is finished.
void Daemon::closePlayer() {
    const auto player = android::defaultServiceManager()->checkService(String16(PLAYER_NAME));
    if (player != nullptr) {
        android::Parcel data;
        data.writeInterfaceToken(String16(PLAYER_NAME));
        android::Parcel reply;
        player->transact(CLOSE_PLAYER, data, &reply);
    }
}

}  // namespace orvplayerd
