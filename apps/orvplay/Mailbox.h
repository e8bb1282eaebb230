#pragma once

#include <atomic>
#include <memory>

namespace orvplay {

// Hands the newest of something from any thread to another. Neither side ever waits: one not
// fetched yet gives way to the next.
template <typename Content>
class Mailbox {
public:
    Mailbox() = default;
    ~Mailbox() { take(); }
    Mailbox(const Mailbox&) = delete;  // other threads know it by address
    Mailbox& operator=(const Mailbox&) = delete;

    void put(std::unique_ptr<Content> content) {
        const std::unique_ptr<Content> replaced(mContent.exchange(content.release()));
    }
    // Null when nothing came since the last call.
    std::unique_ptr<Content> take() { return std::unique_ptr<Content>(mContent.exchange(nullptr)); }

private:
    std::atomic<Content*> mContent{nullptr};
};

}  // namespace orvplay
