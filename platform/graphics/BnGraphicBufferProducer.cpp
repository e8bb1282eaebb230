#include "graphics/BnGraphicBufferProducer.h"

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "graphics/ProducerWire.h"

namespace android {

namespace wire = orvhost::producerwire;

namespace {

// While a producer has so many credits the next ones wait, and are then sent together: each message
// wakes its process up.
constexpr auto ENOUGH_CREDITS = 3;

}  // namespace

// The death of the process at the other end of one session.
class BnGraphicBufferProducer::LinkDeath : public IBinder::DeathRecipient {
public:
    LinkDeath(const wp<BnGraphicBufferProducer>& owner, int64_t session)
        : mOwner(owner), mSession(session) {}

    void binderDied(const wp<IBinder>& /*who*/) override {
        const sp<BnGraphicBufferProducer> owner = mOwner.promote();
        if (owner != nullptr) {
            owner->endSession(mSession);
        }
    }

private:
    const wp<BnGraphicBufferProducer> mOwner;
    const int64_t mSession;
};

struct BnGraphicBufferProducer::Session {
    struct Slot {
        uint32_t generation = 0;  // of its credit; 0: the producer does not have it
        bool known = false;       // the producer has mapped its memory
    };

    int64_t id = 0;
    int api = 0;
    pid_t pid = -1;
    sp<IBinder> link;
    sp<LinkDeath> death;
    uint32_t generation = 0;  // 0: no buffers are asked for
    uint32_t width = 0;
    uint32_t height = 0;
    PixelFormat format = 0;
    Slot slots[BUFFER_SLOTS];
    int toldWidth = -1;
    int toldHeight = -1;
};

struct BnGraphicBufferProducer::Credit {
    int slot = -1;
    sp<GraphicBuffer> buffer;  // null: known to the producer
};

struct BnGraphicBufferProducer::Message {
    uint32_t code = 0;  // of wire::ToProducer
    sp<IBinder> link;
    int64_t session = 0;
    status_t why = OK;               // ENDED
    std::unique_ptr<Session> ended;  // ENDED
    int width = 0;                   // DISPLAY_SIZE
    int height = 0;
    uint32_t generation = 0;  // CREDIT
    std::vector<Credit> credits;
};

BnGraphicBufferProducer::BnGraphicBufferProducer(const sp<orvhost::BufferQueueCore>& core)
    : mCore(core) {}

BnGraphicBufferProducer::~BnGraphicBufferProducer() {
    if (mSession != nullptr) {
        mCore->disconnect(mSession->api);
        forget(std::move(mSession));
    }
}

status_t BnGraphicBufferProducer::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                             uint32_t flags) {
    if (code < wire::CONNECT || code > wire::DISCONNECT) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.enforceInterface(descriptor)) {
        return PERMISSION_DENIED;
    }
    switch (code) {
        case wire::CONNECT:
            return onConnect(data);
        case wire::REQUEST_BUFFERS:
            return onRequestBuffers(data);
        case wire::QUEUE:
            return onQueue(data);
        case wire::PICTURE_READ:
            return onPictureRead(data);
        default:
            return onDisconnect(data);
    }
}

bool BnGraphicBufferProducer::isSession(int64_t id) const {
    return mSession != nullptr && mSession->id == id;
}

// Within a process its proxies see to it that one is connected; so when it connects again, the
// session that we know has ended and the message got lost.
bool BnGraphicBufferProducer::givesWay(const sp<IBinder>& link, pid_t pid) const {
    return mSession == nullptr || mSession->link == link || mSession->pid == pid ||
           !mSession->link->isBinderAlive();
}

status_t BnGraphicBufferProducer::onConnect(const Parcel& data) {
    auto session = std::make_unique<Session>();
    session->id = data.readInt64();
    session->api = data.readInt32();
    session->pid = IPCThreadState::self()->getCallingPid();
    session->link = data.readStrongBinder();
    if (session->link == nullptr) {
        return BAD_VALUE;
    }
    session->death = new LinkDeath(this, session->id);
    if (session->link->linkToDeath(session->death) == DEAD_OBJECT) {
        return DEAD_OBJECT;
    }
    Message refusal;
    refusal.code = wire::ENDED;
    refusal.link = session->link;
    refusal.session = session->id;
    std::unique_ptr<Session> former;
    {
        std::lock_guard<std::mutex> lock(mLock);
        refusal.why = BAD_VALUE;
        if (givesWay(session->link, session->pid)) {
            former = takeSession();
            refusal.why = mCore->connect(session->api);
        }
        if (refusal.why == OK) {
            mSession = std::move(session);
            mCore->setProducerListener(this);
        }
    }
    forget(std::move(former));
    if (refusal.why != OK) {
        send(refusal);
        forget(std::move(session));
        return refusal.why;
    }
    if (!refusal.link->isBinderAlive()) {
        endSession(refusal.session);  // it died before there was a session to end
        return DEAD_OBJECT;
    }
    tell();
    return OK;
}

status_t BnGraphicBufferProducer::onRequestBuffers(const Parcel& data) {
    const int64_t id = data.readInt64();
    const uint32_t generation = data.readUint32();
    const uint32_t width = data.readUint32();
    const uint32_t height = data.readUint32();
    const PixelFormat format = data.readInt32();
    uint32_t kept = 0;
    if (data.readUint32(&kept) != OK || generation == 0 ||
        GraphicBuffer::byteSizeOf(width, height, format) == 0) {
        return BAD_VALUE;
    }
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (!isSession(id)) {
            return BAD_VALUE;
        }
        const bool isNew = mSession->generation != generation;
        mSession->generation = generation;
        mSession->width = width;
        mSession->height = height;
        mSession->format = format;
        for (int i = 0; i < BUFFER_SLOTS; ++i) {
            Session::Slot& slot = mSession->slots[i];
            const bool isKept = slot.generation != 0 && (kept >> i & 1) != 0;
            if (slot.generation != 0 && slot.generation != generation && !isKept) {
                mCore->cancelBuffer(i);
                slot.generation = 0;
            }
            // The producer forgets the memory of all slots but those that it is writing to.
            slot.known = slot.known && (isKept || !isNew) && slot.generation != 0;
        }
    }
    tell();
    return OK;
}

status_t BnGraphicBufferProducer::onQueue(const Parcel& data) {
    const int64_t id = data.readInt64();
    const int slot = data.readInt32();
    const uint32_t dropped = data.readUint32();
    QueueBufferInput input;
    if (wire::readInput(data, &input) != OK) {
        return BAD_VALUE;
    }
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (!isSession(id) || slot < 0 || slot >= BUFFER_SLOTS ||
            mSession->slots[slot].generation == 0) {
            return BAD_VALUE;
        }
        mSession->slots[slot].generation = 0;
    }
    mCore->countDropped(dropped);
    const status_t status = mCore->queueBuffer(slot, input);
    tell();  // the slot of the picture before may be free
    return status;
}

status_t BnGraphicBufferProducer::onPictureRead(const Parcel& data) {
    const int64_t id = data.readInt64();
    int32_t slot = -1;
    const status_t status = data.readInt32(&slot);
    std::lock_guard<std::mutex> lock(mLock);
    if (status != OK || !isSession(id)) {
        return BAD_VALUE;
    }
    mCore->noteRead(slot);
    return OK;
}

status_t BnGraphicBufferProducer::onDisconnect(const Parcel& data) {
    int64_t id = 0;
    const status_t status = data.readInt64(&id);
    if (status == OK) {
        endSession(id);
    }
    return status;
}

void BnGraphicBufferProducer::endSession(int64_t id) {
    std::unique_ptr<Session> ended;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (isSession(id)) {
            ended = takeSession();
        }
    }
    forget(std::move(ended));
}

// Ends the session, if there is one, in the queue.
std::unique_ptr<BnGraphicBufferProducer::Session> BnGraphicBufferProducer::takeSession() {
    if (mSession != nullptr) {
        mCore->setProducerListener(nullptr);
        mCore->disconnect(mSession->api);
    }
    return std::move(mSession);
}

void BnGraphicBufferProducer::forget(std::unique_ptr<Session> session) {
    if (session != nullptr) {
        session->link->unlinkToDeath(session->death);
    }
}

void BnGraphicBufferProducer::onConsumerNews() {
    tell();
}

// Says to the producer what it does not know yet.
void BnGraphicBufferProducer::tell() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mIsNews = true;
        if (mIsTelling) {
            return;
        }
        mIsTelling = true;
    }
    bool isTaken = true;  // else the transport is full, and the next news worth another try
    for (;;) {
        Message message;  // dropped without the lock: it may hold the last of a session
        {
            std::lock_guard<std::mutex> lock(mLock);
            mIsTelling = (isTaken || mIsNews) && nextMessage(&message);
            mIsNews = false;
            if (!mIsTelling) {
                return;
            }
        }
        isTaken = send(message) == OK;
        forget(std::move(message.ended));
        if (!isTaken) {
            std::lock_guard<std::mutex> lock(mLock);
            undo(message);
        }
    }
}

bool BnGraphicBufferProducer::nextMessage(Message* message) {
    if (mSession == nullptr) {
        return false;
    }
    message->link = mSession->link;
    message->session = mSession->id;
    if (mCore->isAbandoned()) {
        message->code = wire::ENDED;
        message->why = NO_INIT;
        message->ended = takeSession();
        return true;
    }
    int width = 0;
    int height = 0;
    mCore->query(NATIVE_WINDOW_WIDTH, &width);
    mCore->query(NATIVE_WINDOW_HEIGHT, &height);
    if (width != mSession->toldWidth || height != mSession->toldHeight) {
        message->code = wire::DISPLAY_SIZE;
        message->width = mSession->toldWidth = width;
        message->height = mSession->toldHeight = height;
        return true;
    }
    return mSession->generation != 0 && nextCredits(message);
}

bool BnGraphicBufferProducer::nextCredits(Message* message) {
    const auto outstanding =
        std::count_if(std::begin(mSession->slots), std::end(mSession->slots),
                      [](const Session::Slot& slot) { return slot.generation != 0; });
    if (outstanding >= ENOUGH_CREDITS) {
        return false;
    }
    message->code = wire::CREDIT;
    message->generation = mSession->generation;
    Credit credit;
    while (nextCredit(&credit)) {
        message->credits.push_back(std::move(credit));
    }
    return !message->credits.empty();
}

bool BnGraphicBufferProducer::nextCredit(Credit* credit) {
    *credit = {};
    const status_t result =
        mCore->tryDequeueBuffer(&credit->slot, mSession->width, mSession->height, mSession->format,
                                GraphicBuffer::USAGE_SW_WRITE_OFTEN);
    if (result < 0) {
        return false;
    }
    Session::Slot& slot = mSession->slots[credit->slot];
    if ((result & BUFFER_NEEDS_REALLOCATION) != 0 || !slot.known) {
        mCore->requestBuffer(credit->slot, &credit->buffer);
    }
    slot = {mSession->generation, true};
    return true;
}

// The transport did not take the message.
void BnGraphicBufferProducer::undo(const Message& message) {
    if (!isSession(message.session)) {
        return;
    }
    if (message.code == wire::DISPLAY_SIZE) {
        mSession->toldWidth = mSession->toldHeight = -1;
    }
    for (const Credit& credit : message.credits) {
        if (mSession->slots[credit.slot].generation == message.generation) {
            mCore->cancelBuffer(credit.slot);
            mSession->slots[credit.slot] = {};
        }
    }
}

status_t BnGraphicBufferProducer::send(const Message& message) {
    Parcel data;
    data.writeInterfaceToken(wire::LINK_DESCRIPTOR);
    switch (message.code) {
        case wire::CREDIT:
            data.writeUint32(message.generation);
            for (const Credit& credit : message.credits) {
                data.writeInt32(credit.slot);
                data.writeInt32(credit.buffer != nullptr);
                if (credit.buffer != nullptr) {
                    data.writeFileDescriptor(credit.buffer->getDescriptor());
                }
            }
            break;
        case wire::DISPLAY_SIZE:
            data.writeInt32(message.width);
            data.writeInt32(message.height);
            break;
        default:
            data.writeInt64(message.session);
            data.writeInt32(message.why);
            break;
    }
    return message.link->transact(message.code, data, nullptr, IBinder::FLAG_ONEWAY);
}

// From here on what the interface says, for callers of this process.

status_t BnGraphicBufferProducer::requestBuffer(int slot, sp<GraphicBuffer>* buffer) {
    return mCore->requestBuffer(slot, buffer);
}

status_t BnGraphicBufferProducer::dequeueBuffer(int* slot, uint32_t width, uint32_t height,
                                                PixelFormat format, uint64_t usage) {
    return mCore->dequeueBuffer(slot, width, height, format, usage);
}

status_t BnGraphicBufferProducer::queueBuffer(int slot, const QueueBufferInput& input) {
    return mCore->queueBuffer(slot, input);
}

status_t BnGraphicBufferProducer::cancelBuffer(int slot) {
    return mCore->cancelBuffer(slot);
}

status_t BnGraphicBufferProducer::query(int what, int* value) {
    return mCore->query(what, value);
}

status_t BnGraphicBufferProducer::connect(int api) {
    return mCore->connect(api);
}

status_t BnGraphicBufferProducer::disconnect(int api) {
    return mCore->disconnect(api);
}

}  // namespace android
