#pragma once

#include <binder/Parcel.h>

#include "binder/BinderConnection.h"
#include "binder/BinderPeer.h"
#include "binder/BinderPool.h"
#include "binder/ObjectTable.h"
#include "binder/WireMessage.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvhost {

// What stands behind a BinderConnection: the sd-bus connection, who waits for which answer, the
// objects that cross it, and the calls to be executed.
//
// sd-bus is not thread safe, not even the counts of its messages: everything that touches it is
// done with mLock, and a message is taken apart and dropped under it. Objects that might end with
// a reference are dropped after it (Guard). No call of others' code is made with the lock.
//
// Reading is done by whoever needs it. A thread that waits for an answer watches the socket itself
// and mostly reads its own; while none does, the pool watches it, and the thread that reads a call
// executes it and answers. One thread at most watches at a time:
//
//   a thread begins to wait     -> it watches, if no other waiting thread does
//   it has its answer           -> another waiting thread watches, or else the pool
//   it reads a call             -> the pool executes that
//   the pool reads a call       -> that thread executes it; unless that is brief, another one of
//                                  the pool watches meanwhile
class BinderTransport final : public std::enable_shared_from_this<BinderTransport>,
                              public BinderPool::Work {
public:
    // Of one-way calls to one process that are not known to be executed: more are refused.
    static constexpr Load MAX_UNSETTLED{1024, 4 * 1024 * 1024, 128};
    static constexpr Load MAX_EXPENDABLE{512, 2 * 1024 * 1024, 64};
    // Threads that execute one-way calls: the calls of one process are executed by one at a time.
    static constexpr size_t MAX_DRAINING = 3;

    BinderTransport();
    ~BinderTransport();
    BinderTransport(const BinderTransport&) = delete;  // known by address to threads and proxies
    BinderTransport& operator=(const BinderTransport&) = delete;

    // Takes a connection that is ready, and begins to read. `peer` is the other end of a socket,
    // null on a bus.
    bool start(sd_bus* bus, std::shared_ptr<BinderPeer> peer, std::string* error);

    // As IBinder::transact().
    android::status_t transact(const android::BpBinder& proxy, uint32_t code,
                               const android::Parcel& data, android::Parcel* reply, uint32_t flags);
    // The proxy is being destroyed.
    void release(const android::BpBinder& proxy);

    // As BinderConnection's. *detail: what a bus says about a failure, if it says anything.
    android::status_t getService(const android::String16& name,
                                 android::sp<android::IBinder>* service, std::string* detail);
    // On a bus. ALREADY_EXISTS: another process has it.
    android::status_t claimName(const android::String16& name);
    pid_t ownerPid(const android::BpBinder& proxy);
    void setDisconnectedCallback(std::function<void()> callback);
    bool isConnected() const;
    pid_t peerPid() const;
    void disconnect();
    BinderConnection::Figures figures() const;

private:
    // Holds mLock; what is to be dropped meanwhile goes after it is released.
    class Guard {
    public:
        explicit Guard(const BinderTransport& transport)
            : mTransport(const_cast<BinderTransport&>(transport)), mHeld(transport.mLock) {}
        ~Guard() { unlock(); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

        void lock() { mHeld.lock(); }
        void unlock();
        void wait(std::condition_variable& condition);

    private:
        BinderTransport& mTransport;
        std::unique_lock<std::mutex> mHeld;
    };

    // A thread that waits for an answer; lives on its stack.
    struct Waiter {
        std::condition_variable answered;
        bool isDone = false;
        bool isWatching = false;  // the socket, not the condition
        // Who is to answer. Null: who has the name that was called, until it answers; or the bus.
        std::shared_ptr<BinderPeer> peer;
        android::status_t status = android::DEAD_OBJECT;
        std::string detail;                 // of an error
        android::Parcel* answer = nullptr;  // of the thread's: empty before
        bool asksBus = false;               // for a number
        uint32_t number = 0;
    };

    // A one-way call that asked to be told when it is executed, and with it those before it.
    struct Settlement {
        std::shared_ptr<BinderPeer> peer;
        Load load;
    };

    enum Watcher { NOBODY, POOL, WAITER };
    // What reading a message led to; ONE_WAY: a peer whose calls are to be drained.
    enum Step { NOTHING, MORE, CALL, ONE_WAY };

    // BinderPool::Work
    void readable() override;
    void writable() override;
    bool runTask() override;

    // Sending. With mLock.
    sd_bus_message* newCall(const BinderPeer& peer, const char* member) const;
    android::status_t resolve(const std::vector<ParcelAccess::Object>& objects, BinderPeer& peer,
                              std::vector<wire::Reference>* references);
    void unresolve(const std::vector<wire::Reference>& references, const BinderPeer& peer);
    bool send(sd_bus_message* message, uint64_t* cookie);
    android::status_t sendOneWay(sd_bus_message* message, const std::shared_ptr<BinderPeer>& peer,
                                 const Load& load, bool* isSent);
    void noteQueued();

    // Waiting and reading. With mLock, but not while they wait.
    android::status_t callAndWait(Guard& guard, sd_bus_message* message, Waiter* waiter,
                                  bool* isSent);
    void dispatch(Step step, IncomingCall call);
    void watchAsWaiter(Guard& guard, Waiter* waiter);
    void passWatching();
    void postBuffered();
    static void letOthersIn(Guard& guard);
    bool hasBuffered() const;
    void finish(Waiter* waiter);

    // Taking apart what arrived. With mLock.
    Step takeOne(IncomingCall* call);
    Step handleCall(sd_bus_message* message, const std::shared_ptr<BinderPeer>& peer,
                    IncomingCall* call);
    Step handleTransact(sd_bus_message* message, IncomingCall* call);
    Step handleOneWay(sd_bus_message* message, IncomingCall* call);
    void handleAnswer(sd_bus_message* message, bool isError);
    android::status_t readAnswer(sd_bus_message* message, const std::shared_ptr<BinderPeer>& peer,
                                 android::Parcel* answer);
    // False, and an empty parcel, when the message makes no sense.
    bool readParcel(sd_bus_message* message, const std::shared_ptr<BinderPeer>& peer,
                    android::Parcel* parcel);
    bool attach(const wire::ReceivedParcel& from, const std::shared_ptr<BinderPeer>& peer,
                ParcelAccess::Received* object);
    android::sp<android::IBinder> proxyOf(const std::shared_ptr<BinderPeer>& peer, uint64_t id);
    void refuse(sd_bus_message* message, const char* error, const char* why);
    bool mayLog() const;

    // On a bus. With mLock.
    bool isBus() const { return mPeer == nullptr; }
    sd_bus_message* newBusCall(const char* member) const;
    std::shared_ptr<BinderPeer> senderOf(sd_bus_message* message);
    void park(sd_bus_message* message, const std::shared_ptr<BinderPeer>& peer);
    void handleIdentity(sd_bus_message* message, const std::string& name, bool isError);
    void handleSignal(sd_bus_message* message);
    void loseProcess(const std::string& name);
    android::status_t askBus(Guard& guard, sd_bus_message* message, Waiter* waiter);

    // Executing. Without mLock.
    void execute(IncomingCall* call);
    android::status_t executeTarget(const IncomingCall& call, android::Parcel* reply) const;
    void answer(IncomingCall* call, android::status_t status, const android::Parcel& reply);
    // These hold it between what they do.
    void drain(Guard& guard);
    void tellNotices(Guard& guard);

    // The end. With mLock.
    void end();
    void bury(const std::shared_ptr<BinderPeer>& peer);
    void drop(IncomingCall call);
    void dropOneWay(BinderPeer& peer);
    void notice(std::function<void()> what);

    BinderPool mPool;
    mutable std::atomic<int64_t> mLogAgainMs{0};  // about callers that are refused
    const int mWakeFd;  // ends the wait of the thread that watches as WAITER

    mutable std::mutex mLock;
    // With mLock.
    sd_bus* mBus = nullptr;
    bool mHasEnded = false;
    bool mIsDisconnecting = false;  // of our own: nobody is told
    bool mMayHoldMore = true;       // the handshake may have read messages along with it
    bool mIsWatchingWriting = false;
    Watcher mWatcher = NOBODY;
    std::shared_ptr<BinderPeer> mPeer;  // at the other end of a socket
    std::unordered_map<std::string, std::shared_ptr<BinderPeer>> mPeers;  // by name
    std::unordered_map<uint64_t, std::string> mIdentifying;  // the bus was asked who it is
    ObjectTable mObjects;
    ObjectTable::Dropped mDropped;
    std::vector<std::unique_ptr<android::Parcel>> mDroppedParcels;
    size_t mDroppedOneWay = 0;
    std::unordered_map<uint64_t, Waiter*> mWaiters;         // by the cookie of their call
    std::unordered_map<uint64_t, Settlement> mSettlements;  // likewise
    std::deque<IncomingCall> mCalls;                        // read by a thread that waits
    Load mCallsLoad;                                        // of these
    std::deque<std::shared_ptr<BinderPeer>> mToDrain;
    size_t mDraining = 0;  // threads that execute one-way calls
    std::deque<std::function<void()>> mNotices;
    bool mIsTelling = false;
    std::function<void()> mDisconnected;
};

}  // namespace orvhost
