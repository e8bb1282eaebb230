#pragma once

namespace OrvPlayer {

class Module;

// Told of asynchronous failures of a module: `code` is of the form 0xSSNNN, the high digits naming
// the kind of module. Called on any module's thread; must not block and must outlive the module.
class ErrorListener {
public:
    virtual ~ErrorListener() = default;
    virtual void onError(unsigned int code, const Module* module) const = 0;
};

}  // namespace OrvPlayer
