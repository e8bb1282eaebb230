#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A PulseAudio of its own, in a temporary folder, with two outputs that play into nothing at the
// pace of the clock: "room", a loudspeaker and the default, and "ears", which passes for Bluetooth
// headphones. The process is pointed to it by PULSE_SERVER.
class SoundServer {
public:
    static bool isInstalled();

    SoundServer();  // the folder and the address; nothing runs yet
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;  // owns a process
    SoundServer& operator=(const SoundServer&) = delete;

    bool start();  // true when clients can connect
    void kill();
    void freeze();
    void thaw();

private:
    std::string mFolder;
    std::string mSocket;
    pid_t mPid = -1;
};

// Listens to an output of the server and notes when a beep starts to be heard. The listening itself
// is done by a process of its own: two connections in one process share lock-free lists inside
// libpulse, which ThreadSanitizer takes for races.
class BeepListener {
public:
    explicit BeepListener(const char* pSource);
    ~BeepListener();
    BeepListener(const BeepListener&) = delete;  // its thread holds its address
    BeepListener& operator=(const BeepListener&) = delete;

    bool awaitListening();

    // Monotonic times of the first `count` beeps that began after `sinceNs`; fewer after 10 s.
    std::vector<int64_t> awaitBeeps(size_t count, int64_t sinceNs);

private:
    void readLines(int fd);

    pid_t mPid = -1;
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mIsListening = false;
    std::vector<int64_t> mBeepsNs;
    std::thread mReader;
};
