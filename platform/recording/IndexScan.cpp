#include <algorithm>

#include "dtv/ServiceTables.h"
#include "recording/FileBytes.h"
#include "recording/PacketWalk.h"
#include "recording/RecordingScanner.h"

namespace orvhost {

namespace {

constexpr uint64_t TABLES_BYTES = 8 << 20;  // they stand in the first seconds
Service chooseService(const std::vector<Service>& services, uint16_t serviceId) {
    const auto isVideo = [](const ElementaryStream& s) { return s.kind == StreamKind::Video; };
    const Service* best = nullptr;
    int bestRank = 0;
    for (const Service& service : services) {
        const bool video = std::any_of(service.streams.begin(), service.streams.end(), isVideo);
        const bool asked = serviceId != 0 && service.serviceId == serviceId;
        const int rank = asked ? 4 : video ? 3 : service.pcrPid != PID_NONE ? 2 : 1;
        if (rank > bestRank) {
            best = &service;
            bestRank = rank;
        }
    }
    return best == nullptr ? Service() : *best;
}

}  // namespace

IndexedProgramme programmeOf(const std::vector<Service>& services, uint16_t serviceId) {
    const Service service = chooseService(services, serviceId);
    IndexedProgramme programme;
    programme.serviceId = service.serviceId;
    programme.pcrPid = service.pcrPid;
    for (const ElementaryStream& stream : service.streams) {
        if (stream.kind == StreamKind::Video && programme.videoPid == PID_NONE) {
            programme.videoPid = stream.pid;
            programme.videoType = stream.streamType;
        }
    }
    return programme;
}

std::vector<Service> findServices(int recordingFd) {
    ServiceTables tables;
    PacketWalk walk(recordingFd, 0, 0);
    while (!tables.isComplete() && walk.offset() < TABLES_BYTES && walk.next()) {
        for (size_t i = 0; i < walk.count(); ++i) {
            if (tables.wants(pidOf(walk.packet(i)))) {
                tables.push(walk.packet(i));
            }
        }
    }
    return tables.services();
}

IndexedProgramme findProgramme(int recordingFd, uint16_t serviceId) {
    return programmeOf(findServices(recordingFd), serviceId);
}

bool extendIndex(int recordingFd, RecordingIndex* index, const IndexProgress& progress) {
    std::vector<RandomAccessPoint>& points = index->points;
    RecordingScanner scanner(index->programme);
    uint64_t start = 0;
    if (!points.empty()) {
        scanner.resumeAt(points.back());
        start = points.back().offset;
    }
    PacketWalk walk(recordingFd, start, points.empty() ? 0 : index->packetBytes);
    const uint64_t total = sizeOfFile(recordingFd);
    bool goOn = !progress || progress(start, total);
    while (goOn && walk.next()) {
        scanner.chooseClock(walk.contiguous(), walk.count());
        for (size_t i = 0; i < walk.count(); ++i) {
            scanner.add(walk.packet(i), walk.offsetOf(i), &points);
        }
        index->scannedBytes = walk.offset();
        index->duration27M = scanner.duration27M();
        goOn = !progress || progress(index->scannedBytes, std::max(total, index->scannedBytes));
    }
    if (!goOn || walk.isBroken()) {
        return false;
    }
    index->packetBytes = static_cast<uint32_t>(walk.packetBytes());
    index->scannedBytes = walk.offset();
    return true;
}

}  // namespace orvhost
