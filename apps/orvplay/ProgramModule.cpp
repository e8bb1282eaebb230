#include "ProgramModule.h"

#include <dlfcn.h>

#include <filesystem>

namespace orvplay {

void* moduleEntry(const char* module, const char* symbol, std::string* error) {
    std::error_code failure;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", failure);
    const auto path = (program.parent_path() / "../lib" / module).lexically_normal();
    void* const loaded = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const entry = loaded == nullptr ? nullptr : dlsym(loaded, symbol);
    if (entry == nullptr) {
        const char* const reason = dlerror();
        *error = reason != nullptr ? reason : path.string();
    }
    return entry;
}

}  // namespace orvplay
