#pragma once

#include <media/stagefright/foundation/AString.h>
#include <utils/RefBase.h>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace android {

// A small set of named, typed values; the media classes describe a stream's format with it.
//
// Setting a name again replaces value and type. A find succeeds only when the name holds a value
// of exactly that type, and leaves its outputs alone otherwise. Not synchronised: a message that
// has been handed over is not written to any more.
class AMessage : public RefBase {
public:
    AMessage() = default;
    AMessage(const AMessage&) = delete;  // counted: use dup()
    AMessage& operator=(const AMessage&) = delete;

    void setInt32(const char* name, int32_t value);
    void setInt64(const char* name, int64_t value);
    void setString(const char* name, const char* value);
    void setString(const char* name, const AString& value);
    // Edges are inclusive: a picture of width w goes from left 0 to right w - 1.
    void setRect(const char* name, int32_t left, int32_t top, int32_t right, int32_t bottom);

    bool findInt32(const char* name, int32_t* value) const;
    bool findInt64(const char* name, int64_t* value) const;
    bool findString(const char* name, AString* value) const;
    bool findRect(const char* name, int32_t* left, int32_t* top, int32_t* right,
                  int32_t* bottom) const;

    bool contains(const char* name) const;
    size_t countEntries() const { return mItems.size(); }
    void clear() { mItems.clear(); }

    // A copy that shares nothing with this message.
    sp<AMessage> dup() const;

protected:
    ~AMessage() override = default;

private:
    struct Rect {
        int32_t left, top, right, bottom;
    };
    using Value = std::variant<int32_t, int64_t, AString, Rect>;
    struct Item {
        std::string name;
        Value value;
    };

    void set(const char* name, Value value);
    template <typename T>
    const T* find(const char* name) const;

    std::vector<Item> mItems;  // a handful: searched from the front
};

}  // namespace android
