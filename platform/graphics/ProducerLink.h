#pragma once

#include <binder/Binder.h>
#include <gui/IGraphicBufferProducer.h>
#include <ui/GraphicBuffer.h>

#include <condition_variable>
#include <mutex>

namespace orvhost {

// The slots of another process's queue as its producer knows them: which are credited to it, and
// the picture that may be lent. The object that the queue's side calls with its credits, and that
// hears when that side dies. It says nothing itself: BpGraphicBufferProducer does, and calls this
// one from any thread.
//
//   AWAY  --credit-->  CREDITED  --take-->  TAKEN  --queued-->  AWAY
//                          ^-----------------cancel
//
// What comes from the other side is not to be trusted. It names slots, which are checked, and
// memory, which GraphicBuffer checks and maps at the size that was asked for here; the worst that
// it can do is spoil its own picture.
class ProducerLink : public android::BBinder, public android::IBinder::DeathRecipient {
public:
    static constexpr int SLOTS = android::IGraphicBufferProducer::BUFFER_SLOTS;

    // What the queue is to be asked for.
    struct Request {
        uint32_t generation = 0;  // 0: nothing
        uint32_t width = 0;
        uint32_t height = 0;
        android::PixelFormat format = 0;
        uint32_t kept = 0;  // bit n: slot n is with the producer
    };

    ProducerLink() = default;
    ProducerLink(const ProducerLink&) = delete;  // an object that others call
    ProducerLink& operator=(const ProducerLink&) = delete;

    bool isBrief(uint32_t /*code*/) const override { return true; }

    // The results are those of IGraphicBufferProducer; so is NO_INIT once the queue has ended, or
    // without a session, or when the queue has another producer than this session's.
    android::status_t begin(int api, int64_t session);
    android::status_t end(int api, int64_t* session);
    // Whether that is another size: then all credits are void.
    android::status_t setSize(uint32_t width, uint32_t height, android::PixelFormat format,
                              bool* changed);
    Request request() const;
    // A credit of that size. Waits 5 ms, for the first of a size 100 ms, then WOULD_BLOCK. The
    // wait of 100 ms comes once until the queue answers again.
    android::status_t take(uint32_t width, uint32_t height, int* slot);
    android::status_t bufferOf(int slot, android::sp<android::GraphicBuffer>* buffer) const;
    // Whether that slot may be queued.
    android::status_t taken(int slot) const;
    // The queue has the picture that was written to a slot taken. No credit for that slot comes
    // before another picture is queued.
    void queued(int slot);
    // Gives up a slot taken or lent. *returned: it is of another size than the request and must go
    // back to the queue, with the next one.
    android::status_t cancel(int slot, bool* returned);
    android::status_t lend(int* slot);
    android::status_t query(int what, int* value) const;

    // The queue is gone for good: drops all memory, wakes whoever waits.
    void die();
    void binderDied(const android::wp<android::IBinder>& who) override;

protected:
    ~ProducerLink() override = default;
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    enum class State { AWAY, CREDITED, TAKEN };

    struct Slot {
        State state = State::AWAY;
        bool requested = false;  // the producer knows this buffer
        android::sp<android::GraphicBuffer> buffer;
    };

    android::status_t onCredits(const android::Parcel& data);
    android::status_t onCredit(const android::Parcel& data, uint32_t generation);
    android::status_t onDisplaySize(const android::Parcel& data);
    android::status_t onEnded(const android::Parcel& data);
    void credit(uint32_t generation, int slot, const android::sp<android::GraphicBuffer>& buffer);

    // All of these with mLock held.
    android::status_t check() const;
    bool isTaken(int slot) const;
    bool isCurrent(const android::sp<android::GraphicBuffer>& buffer) const;
    int findCredit() const;
    void nextGeneration();
    void forgetSlots(bool takenToo);

    mutable std::mutex mLock;          // a leaf
    std::condition_variable mChanged;  // a credit came, or the session or the queue ended

    Slot mSlots[SLOTS];
    int mApi = 0;  // 0: no session
    int64_t mSession = 0;
    bool mRefused = false;
    bool mEnded = false;
    uint32_t mGeneration = 0;
    uint32_t mWidth = 0;  // 0: none asked for in this session
    uint32_t mHeight = 0;
    android::PixelFormat mFormat = 0;
    bool mAnswered = true;     // a credit has come since the size was set
    bool mMayWaitLong = true;  // for the first one
    bool mSizeIsNews = false;  // the producer does not know that its buffers are out of date
    bool mComplained = false;  // about memory that was refused, in this session

    // The picture queued last; its slot is the queue's until a newer one is queued.
    int mLatestSlot = -1;
    android::sp<android::GraphicBuffer> mLatest;
    int mLentSlot = -1;  // never handed out to be written to
    android::sp<android::GraphicBuffer> mLent;

    int mDisplayWidth = 0;
    int mDisplayHeight = 0;
};

}  // namespace orvhost
