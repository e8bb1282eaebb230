#include "loss/TakenApart.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string_view>

#include "dtv/Tuner.h"

namespace orvtest {

namespace {

constexpr int TABLES_TIMEOUT_MS = 3000;

// The tuner on these bytes, for as long as the object lives.
class Tuned {
public:
    explicit Tuned(const std::vector<uint8_t>& stream) : mFd(memfd_create("stream", MFD_CLOEXEC)) {
        size_t done = 0;
        while (done < stream.size()) {
            const ssize_t n = write(mFd, stream.data() + done, stream.size() - done);
            if (n <= 0) {
                return;
            }
            done += static_cast<size_t>(n);
        }
        lseek(mFd, 0, SEEK_SET);
        orvhost::TuneOptions options;
        options.paced = false;
        mResult = orvhost::Tuner::instance().tune(mFd, options);
    }
    ~Tuned() {
        orvhost::Tuner::instance().untune();
        close(mFd);
    }
    Tuned(const Tuned&) = delete;  // owns the descriptor
    Tuned& operator=(const Tuned&) = delete;

    bool ok() const { return mResult.ok(); }
    const std::string& message() const { return mResult.message; }

private:
    const int mFd;
    orvhost::TuneResult mResult{orvhost::TuneStatus::ReadError, "no memory file"};
};

uint64_t hashOf(const orvplay::Unit& unit) {
    const std::string_view bytes(reinterpret_cast<const char*>(unit.bytes), unit.size);
    return std::hash<std::string_view>()(bytes);
}

// ITU-T H.264 annex B: a start code, and nal_unit_type 7 in the byte behind it.
bool hasSps(const orvplay::Unit& unit) {
    static constexpr uint8_t START_CODE[] = {0, 0, 1};
    const uint8_t* const end = unit.bytes + unit.size;
    const uint8_t* at = unit.bytes;
    while ((at = std::search(at, end, START_CODE, START_CODE + sizeof START_CODE)) != end) {
        at += sizeof START_CODE;
        if (at != end && (*at & 0x1F) == 7) {
            return true;
        }
    }
    return false;
}

}  // namespace

TakenApart takeApart(const std::vector<uint8_t>& stream, const orvplay::StreamSelection& selection,
                     bool pes) {
    TakenApart taken;
    const Tuned tuned(stream);
    taken.tuned = tuned.ok();
    if (!taken.tuned) {
        return taken;
    }
    orvplay::UnitFlow flow(
        selection, pes ? orvplay::UnitFlow::Cut::PES : orvplay::UnitFlow::Cut::UNITS,
        [&taken](const orvplay::UnitFlow::Stream& from, const orvplay::Unit& unit) {
            if (from.role == OrvPlayer::PID_TYPE_CLOSED_CAPTION) {
                return true;
            }
            std::vector<TakenUnit>& list = from.name == "video" ? taken.video : taken.audio;
            list.push_back({unit.pts90k, hashOf(unit), unit.size, hasSps(unit)});
            return true;
        });
    taken.end = flow.run();
    return taken;
}

bool selectFirstService(const std::vector<uint8_t>& stream, orvplay::StreamSelection* selection,
                        std::string* error) {
    const Tuned tuned(stream);
    if (!tuned.ok()) {
        *error = tuned.message();
        return false;
    }
    const orvhost::ServiceList list = orvhost::Tuner::instance().services(TABLES_TIMEOUT_MS);
    if (list.services.empty()) {
        *error = list.result.message;
        return false;
    }
    return orvplay::selectStreams(list.services, {}, selection, error);
}

}  // namespace orvtest
