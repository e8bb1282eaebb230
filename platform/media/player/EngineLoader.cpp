#include "media/player/EngineLoader.h"

#include <dlfcn.h>

#include <filesystem>

namespace orvhost {

namespace {

constexpr char MODULE[] = "orvmediafile.so";

std::filesystem::path modulePath() {
    Dl_info here = {};
    std::error_code failure;
    std::filesystem::path folder;
    if (dladdr(reinterpret_cast<const void*>(&modulePath), &here) != 0) {
        folder = std::filesystem::canonical(here.dli_fname, failure).parent_path();
    }
    if (folder.empty() || failure) {  // a program's own name need not be a path
        folder = std::filesystem::read_symlink("/proc/self/exe", failure).parent_path();
    }
    const auto beside = folder / MODULE;
    return std::filesystem::exists(beside, failure)
               ? beside
               : (folder / "../lib" / MODULE).lexically_normal();
}

CreateMediaEngine* load(std::string* error) {
    const auto path = modulePath();
    // Never closed: threads of its libraries may run until the process ends.
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    auto* create = module == nullptr
                       ? nullptr
                       : reinterpret_cast<CreateMediaEngine*>(dlsym(module, MEDIA_ENGINE_FUNCTION));
    if (create == nullptr) {
        const char* told = dlerror();
        const std::string reason = told != nullptr ? told : path.string();
        *error = "no module for media files: " + reason +
                 (reason.find("libmpv") != std::string::npos ? "; install libmpv2" : "");
    }
    return create;
}

}  // namespace

std::unique_ptr<MediaEngine> createMediaEngine(MediaEngineClient& client, PictureSink& sink,
                                               std::string* error) {
    CreateMediaEngine* create = load(error);
    return std::unique_ptr<MediaEngine>(create != nullptr ? create(client, sink) : nullptr);
}

}  // namespace orvhost
