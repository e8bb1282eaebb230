#include "platform/media/player/MediaFile.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "pattern/TestPattern.h"

namespace orvtest {

namespace {

std::vector<uint8_t> drawPicture(const Film& film, int number) {
    const int chromaWidth = (film.width + 1) / 2;
    const int chromaHeight = (film.height + 1) / 2;
    const auto lumaBytes = static_cast<size_t>(film.width * film.height);
    const auto chromaBytes = static_cast<size_t>(chromaWidth * chromaHeight);
    std::vector<uint8_t> picture(lumaBytes + 2 * chromaBytes, LUMA);
    drawFrameNumber(picture.data(), film.width, film.width, film.height,
                    static_cast<uint32_t>(number));
    for (int plane = 0; plane < 2; ++plane) {
        uint8_t* chroma = &picture[lumaBytes + static_cast<size_t>(plane) * chromaBytes];
        for (size_t i = 0; i < chromaBytes; ++i) {
            const bool isLeft = static_cast<int>(i) % chromaWidth < chromaWidth / 2;
            chroma[i] = isLeft ? LEFT_COLOUR[plane] : RIGHT_COLOUR[plane];
        }
    }
    return picture;
}

}  // namespace

MediaFolder::MediaFolder() {
    if (mkdtemp(mPath.data()) == nullptr) {
        mPath.clear();
    }
}

MediaFolder::~MediaFolder() {
    std::error_code failure;
    std::filesystem::remove_all(mPath, failure);
}

std::string MediaFolder::add(const Film& film) const {
    const std::string file = path(film.name);
    const std::string sound = film.hasSound ? "-f lavfi -i sine=440:duration=60 -shortest" : "";
    const std::string command = "ffmpeg -v error -y -f rawvideo -pix_fmt yuv420p -s " +
                                std::to_string(film.width) + "x" + std::to_string(film.height) +
                                " -r " + std::to_string(PICTURES_PER_SECOND) + " -i - " + sound +
                                " " + film.options + " " + file;
    FILE* encoder = popen(command.c_str(), "w");
    if (encoder == nullptr) {
        return "";
    }
    for (int i = 0; i < film.pictures; ++i) {
        const std::vector<uint8_t> picture = drawPicture(film, i);
        fwrite(picture.data(), 1, picture.size(), encoder);
    }
    return pclose(encoder) == 0 ? file : "";
}

std::string MediaFolder::addSound(const char* name, int seconds) const {
    const std::string file = path(name);
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i sine=440:duration=" + std::to_string(seconds) + " " + file;
    return system(command.c_str()) == 0 ? file : "";
}

std::string MediaFolder::addBytes(const char* name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
    return path(name);
}

std::string MediaFolder::addPipe(const char* name) const {
    return mkfifo(path(name).c_str(), 0600) == 0 ? path(name) : "";
}

}  // namespace orvtest
