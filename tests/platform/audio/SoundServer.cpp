#include "platform/audio/SoundServer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

constexpr auto BOUND = std::chrono::seconds(10);

bool canConnect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isUp = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    close(fd);
    return isUp;
}

}  // namespace

bool SoundServer::isInstalled() {
    return access("/usr/bin/pulseaudio", X_OK) == 0;
}

SoundServer::SoundServer() {
    std::string pattern = std::filesystem::temp_directory_path() / "orv-audio-XXXXXX";
    mFolder = mkdtemp(pattern.data());
    mSocket = mFolder + "/native";
    setenv("PULSE_SERVER", ("unix:" + mSocket).c_str(), 1);
    setenv("XDG_RUNTIME_DIR", mFolder.c_str(), 1);
    setenv("HOME", mFolder.c_str(), 1);
}

SoundServer::~SoundServer() {
    kill();
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
}

bool SoundServer::start() {
    const std::string script = mFolder + "/default.pa";
    std::ofstream(script) << "load-module module-native-protocol-unix auth-anonymous=1 socket="
                          << mSocket
                          << "\nload-module module-null-sink norewinds=1 sink_name=room"
                             "\nload-module module-null-sink norewinds=1 sink_name=ears "
                             "sink_properties='device.bus=bluetooth device.form_factor=headphone'"
                             "\nset-default-sink room\n";
    mPid = fork();
    if (mPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execl("/usr/bin/pulseaudio", "pulseaudio", "-n", "--daemonize=no", "--system=no",
              "--use-pid-file=no", "--exit-idle-time=-1", "--log-level=error", "-F", script.c_str(),
              nullptr);
        _exit(127);
    }
    const auto deadline = std::chrono::steady_clock::now() + BOUND;
    while (!canConnect(mSocket)) {
        if (std::chrono::steady_clock::now() > deadline || waitpid(mPid, nullptr, WNOHANG) != 0) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void SoundServer::kill() {
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        mPid = -1;
    }
}

void SoundServer::freeze() {
    if (mPid > 0) {
        ::kill(mPid, SIGSTOP);
        waitpid(mPid, nullptr, WUNTRACED);
    }
}

void SoundServer::thaw() {
    if (mPid > 0) {
        ::kill(mPid, SIGCONT);
    }
}

BeepListener::BeepListener(const char* pSource) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    mPid = fork();
    if (mPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execl(ORV_BEEP_LISTENER, ORV_BEEP_LISTENER, pSource, nullptr);
        _exit(127);
    }
    close(ends[1]);
    mReader = std::thread([this, fd = ends[0]] { readLines(fd); });
}

BeepListener::~BeepListener() {
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        mReader.join();
    }
}

// The first line says that sound comes in, each other one holds the time of a beep.
void BeepListener::readLines(int fd) {
    FILE* const pFile = fdopen(fd, "r");
    char line[64];
    while (fgets(line, sizeof(line), pFile) != nullptr) {
        const std::lock_guard<std::mutex> guard(mLock);
        if (mIsListening) {
            mBeepsNs.push_back(std::atoll(line));
        }
        mIsListening = true;
        mChanged.notify_all();
    }
    fclose(pFile);
}

bool BeepListener::awaitListening() {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, BOUND, [this] { return mIsListening; });
}

std::vector<int64_t> BeepListener::awaitBeeps(size_t count, int64_t sinceNs) {
    std::unique_lock<std::mutex> lock(mLock);
    std::vector<int64_t> beeps;
    mChanged.wait_for(lock, BOUND, [&] {
        beeps.clear();
        for (const int64_t beepNs : mBeepsNs) {
            if (beepNs > sinceNs && beeps.size() < count) {
                beeps.push_back(beepNs);
            }
        }
        return beeps.size() == count;
    });
    return beeps;
}
