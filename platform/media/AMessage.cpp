#include <media/stagefright/foundation/AMessage.h>

#include <utility>

namespace android {

void AMessage::set(const char* name, Value value) {
    for (Item& item : mItems) {
        if (item.name == name) {
            item.value = std::move(value);
            return;
        }
    }
    mItems.push_back({name, std::move(value)});
}

template <typename T>
const T* AMessage::find(const char* name) const {
    for (const Item& item : mItems) {
        if (item.name == name) {
            return std::get_if<T>(&item.value);
        }
    }
    return nullptr;
}

void AMessage::setInt32(const char* name, int32_t value) {
    set(name, value);
}

void AMessage::setInt64(const char* name, int64_t value) {
    set(name, value);
}

void AMessage::setString(const char* name, const char* value) {
    set(name, AString(value));
}

void AMessage::setString(const char* name, const AString& value) {
    set(name, value);
}

void AMessage::setRect(const char* name, int32_t left, int32_t top, int32_t right, int32_t bottom) {
    set(name, Rect{left, top, right, bottom});
}

bool AMessage::findInt32(const char* name, int32_t* value) const {
    const auto* found = find<int32_t>(name);
    if (found != nullptr) {
        *value = *found;
    }
    return found != nullptr;
}

bool AMessage::findInt64(const char* name, int64_t* value) const {
    const auto* found = find<int64_t>(name);
    if (found != nullptr) {
        *value = *found;
    }
    return found != nullptr;
}

bool AMessage::findString(const char* name, AString* value) const {
    const auto* found = find<AString>(name);
    if (found != nullptr) {
        *value = *found;
    }
    return found != nullptr;
}

bool AMessage::findRect(const char* name, int32_t* left, int32_t* top, int32_t* right,
                        int32_t* bottom) const {
    const auto* found = find<Rect>(name);
    if (found != nullptr) {
        *left = found->left;
        *top = found->top;
        *right = found->right;
        *bottom = found->bottom;
    }
    return found != nullptr;
}

bool AMessage::contains(const char* name) const {
    for (const Item& item : mItems) {
        if (item.name == name) {
            return true;
        }
    }
    return false;
}

sp<AMessage> AMessage::dup() const {
    sp<AMessage> copy = new AMessage;
    copy->mItems = mItems;
    return copy;
}

}  // namespace android
