#pragma once

#include <utils/RefBase.h>

#include <cstdio>
#include <list>
#include <string>

#include "common/ErrorListener.h"
#include "common/RingBuffer.h"

namespace OrvPlayer {

// A stage of the pipeline: a name, at most one input ring buffer, any number of output ring
// buffers, and listeners for its failures.
//
// The controller constructs a module, wires it, starts and stops it, and drops it. Wiring takes no
// lock: it happens on the controller's thread while the module is stopped.
class Module : public virtual android::RefBase {
public:
    explicit Module(const std::string& name);
    // A new module with the other's name and nothing else.
    Module(const Module& other);
    Module& operator=(const Module&) = delete;  // the copy above is the only one that makes sense

    // Tells every error listener, in registration order. Any thread. Returns 0.
    virtual int onError(unsigned int code);
    virtual std::string getModuleName() const;

    // Start and stop the module's work (its threads). 0 for success.
    virtual int start() = 0;
    virtual int stop() = 0;

    using OutputPosition = std::list<android::sp<RingBuffer>>::iterator;

    // Appends an output. Where `position` is not null it receives the new entry, for a later
    // removeOutput. Returns 0.
    virtual int addOutput(const android::sp<RingBuffer>& buffer, OutputPosition* position);
    // Removes the entry at *position and moves *position on to the entry behind it.
    virtual void removeOutput(OutputPosition* position);
    // Replaces the input. Returns 0.
    virtual int setInput(const android::sp<RingBuffer>& buffer);

    // Writes the module's state, indented with `indent` tab characters; nothing for a null
    // stream. Returns 0.
    virtual int dump(FILE* stream, int indent);

    ~Module() override;

    // Asks the module's threads to exit, wakes them and returns at once, without a wait for what
    // they are at. Whoever stops many modules asks all of them before the first stop(), so that
    // their last waits pass side by side. The thread that starts and stops the module; stop() asks
    // by itself and must follow.
    virtual void requestExit() {}

    // The listener is not owned and must outlive the module.
    void addErrorListener(const ErrorListener& listener);

protected:
    std::list<android::sp<RingBuffer>> mOutputs;  // in the order of addOutput
    android::sp<RingBuffer> mInput;

private:
    std::list<const ErrorListener*> mErrorListeners;
    const std::string mName;
};

}  // namespace OrvPlayer
