#include "EventFollowers.h"

#include <algorithm>

#include "ExitCode.h"
#include "MonotonicTime.h"

namespace orvplay {

using Sent = ControlServer::Sent;

void EventFollowers::add(int connection) {
    look();  // what was written before is not for this one
    if (mFollowers.empty()) {
        mQueue.take();  // of those who left
    }
    if (mFollowers.size() >= MAX_FOLLOWERS) {
        mServer.answer(connection, {{"ok", false},
                                    {"code", EXIT_FAILED},
                                    {"message", "as many follow this player as it lets"}});
        return;
    }
    mServer.answerAndKeep(connection, {{"ok", true}});
    mFollowers.push_back({connection, 0});
    mQueue.want(true);
}

void EventFollowers::look() {
    if (mFollowers.empty()) {
        return;
    }
    const EventQueue::Taken taken = mQueue.take();
    std::erase_if(mFollowers, [&](Follower& follower) {
        for (const std::string& line : taken.lines) {
            if (!pass(follower, line)) {
                return true;
            }
        }
        follower.missed += taken.missed;
        return !tellMissed(follower);
    });
    mQueue.want(!mFollowers.empty());
}

bool EventFollowers::pass(Follower& follower, const std::string& line) {
    if (!tellMissed(follower)) {
        return false;
    }
    const Sent sent =
        follower.missed == 0 ? mServer.send(follower.connection, line) : Sent::NO_ROOM;
    follower.missed += sent == Sent::NO_ROOM ? 1 : 0;
    return sent != Sent::GONE;
}

bool EventFollowers::tellMissed(Follower& follower) {
    Sent sent = Sent::TAKEN;
    if (follower.missed != 0) {
        const std::string count = std::to_string(follower.missed);
        sent = mServer.send(follower.connection, R"({"event":"missed","count":)" + count + "}");
    } else if (!mServer.isOpen(follower.connection)) {
        sent = Sent::GONE;
    }
    follower.missed = sent == Sent::TAKEN ? 0 : follower.missed;
    return sent != Sent::GONE;
}

void EventFollowers::finish(int64_t patienceNs) {
    const int64_t endNs = monotonicNs() + patienceNs;
    look();
    const auto isBusy = [this](const Follower& follower) {
        return follower.missed != 0 || mServer.isSending(follower.connection);
    };
    while (std::any_of(mFollowers.begin(), mFollowers.end(), isBusy)) {
        const int64_t leftNs = endNs - monotonicNs();
        if (leftNs <= 0) {
            return;
        }
        mServer.wait(leftNs, [this](int connection, const ControlServer::Json&) {
            mServer.answer(connection, {{"ok", false},
                                        {"code", EXIT_SERVICE},
                                        {"message", "this player is about to end"}});
        });
        look();
    }
}

}  // namespace orvplay
