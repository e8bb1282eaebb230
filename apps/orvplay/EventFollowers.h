#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ControlSocket.h"
#include "EventQueue.h"

namespace orvplay {

// Hands the event lines of this player to the commands that follow them. None of them holds
// anything up: who does not read loses lines, and is told how many in their place,
//     {"event":"missed","count":12}
// One thread, that of the server; the queue is where lines come from other threads.
class EventFollowers {
public:
    // Beside them there is room for requests.
    static constexpr size_t MAX_FOLLOWERS = ControlServer::MAX_CONNECTIONS / 2;

    // Both outlive it.
    EventFollowers(ControlServer& server, EventQueue& queue) : mServer(server), mQueue(queue) {}
    ~EventFollowers() { mQueue.want(false); }
    EventFollowers(const EventFollowers&) = delete;  // the queue is wanted as long as it lives
    EventFollowers& operator=(const EventFollowers&) = delete;

    // From here on this connection gets every line. It is answered in any case.
    void add(int connection);
    // To be called often: hands on what was written.
    void look();
    // Nothing is written any more: waits until it has been read, so long at most.
    void finish(int64_t patienceNs);

private:
    struct Follower {
        int connection = 0;
        uint64_t missed = 0;
    };

    // False when it is gone.
    bool pass(Follower& follower, const std::string& line);
    bool tellMissed(Follower& follower);

    ControlServer& mServer;
    EventQueue& mQueue;
    std::vector<Follower> mFollowers;
};

}  // namespace orvplay
