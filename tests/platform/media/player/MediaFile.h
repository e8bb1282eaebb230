#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvtest {

// What a film of the tests is made of. Every picture carries its number; left and right half have
// each one colour.
struct Film {
    const char* name;     // its ending chooses the container
    const char* options;  // of ffmpeg, for the coded streams
    int width = 160;
    int height = 120;
    int pictures = 25;
    bool hasSound = true;
};

constexpr int PICTURES_PER_SECOND = 25;
constexpr uint8_t LUMA = 100;                 // below the marks
constexpr uint8_t LEFT_COLOUR[] = {90, 170};  // Cb, Cr
constexpr uint8_t RIGHT_COLOUR[] = {180, 110};

// A folder of media files, made by the ffmpeg program, that goes away with the object.
class MediaFolder {
public:
    MediaFolder();
    ~MediaFolder();
    MediaFolder(const MediaFolder&) = delete;  // owns its folder
    MediaFolder& operator=(const MediaFolder&) = delete;

    // The path of the new file; empty when ffmpeg failed.
    std::string add(const Film& film) const;
    std::string addSound(const char* name, int seconds) const;
    std::string addBytes(const char* name, const std::string& bytes) const;
    std::string addPipe(const char* name) const;
    std::string path(const char* name) const { return mPath + "/" + name; }

private:
    std::string mPath = "/tmp/orvmedia-XXXXXX";
};

}  // namespace orvtest
