#include "common/Module.h"

namespace OrvPlayer {

Module::Module(const std::string& name) : mName(name) {}

Module::Module(const Module& other) : android::RefBase(), mName(other.mName) {}

Module::~Module() = default;

int Module::onError(unsigned int code) {
    for (const ErrorListener* listener : mErrorListeners) {
        listener->onError(code, this);
    }
    return 0;
}

std::string Module::getModuleName() const {
    return mName;
}

int Module::addOutput(const android::sp<RingBuffer>& buffer, OutputPosition* position) {
    const OutputPosition entry = mOutputs.insert(mOutputs.end(), buffer);
    if (position != nullptr) {
        *position = entry;
    }
    return 0;
}

void Module::removeOutput(OutputPosition* position) {
    *position = mOutputs.erase(*position);
}

int Module::setInput(const android::sp<RingBuffer>& buffer) {
    mInput = buffer;
    return 0;
}

int Module::dump(FILE* stream, int indent) {
    if (stream == nullptr) {
        return 0;
    }
    fprintf(stream, "%s - Module Name: %s\n",
            std::string(static_cast<size_t>(indent), '\t').c_str(), mName.c_str());
    return 0;
}

void Module::addErrorListener(const ErrorListener& listener) {
    mErrorListeners.push_back(&listener);
}

}  // namespace OrvPlayer
