#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

// Whatever of graphic buffers this process has open and mapped.
struct Holdings {
    size_t descriptors = 0;
    size_t mappings = 0;
    bool operator==(const Holdings&) const = default;

    static Holdings now() {
        Holdings found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            const auto target = std::filesystem::read_symlink(entry.path(), gone).string();
            found.descriptors += target.find("GraphicBuffer") != std::string::npos;
        }
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);) {
            found.mappings += line.find("GraphicBuffer") != std::string::npos;
        }
        return found;
    }
};
