#include "dtv/EventTables.h"

#include "dtv/BroadcastTime.h"
#include "dtv/TableCursor.h"
#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr uint8_t TABLE_EIT_PRESENT_FOLLOWING = 0x4E;
constexpr uint8_t TABLE_TDT = 0x70;
constexpr uint8_t TABLE_TOT = 0x73;
constexpr uint8_t TAG_SHORT_EVENT = 0x4D;
constexpr uint8_t TAG_LOCAL_TIME_OFFSET = 0x58;
constexpr uint8_t SECTION_FOLLOWING = 1;

// What a hostile EIT may cost at most; of each service two sections, of each of these one event.
constexpr size_t MAX_SECTIONS = 2 * 256;

void readShortEvent(const Descriptor& d, BroadcastEvent* event) {
    TableCursor cursor(d.data);
    event->language = lettersAt(d.data, 0);
    cursor.part(3);
    event->rawName = cursor.part(cursor.u8()).bytes();
    event->rawText = cursor.part(cursor.u8()).bytes();
}

// Four decimal digits, hours and minutes.
int readMinutes(TableCursor& cursor) {
    const unsigned digits = cursor.u16();
    const auto digit = [digits](int place) { return static_cast<int>(digits >> place & 0x0F); };
    return (digit(12) * 10 + digit(8)) * 60 + digit(4) * 10 + digit(0);
}

}  // namespace

EventTables::EventTables() {
    for (const uint16_t pid : {PID_EIT, PID_TOT, PID_EIT_MOBILE, PID_EIT_ONE_SEGMENT}) {
        mCollectors.emplace_back(
            pid, std::make_unique<SectionCollector>(pid, static_cast<SectionSink&>(*this),
                                                    SectionCollector::Forms::ANY));
    }
}

EventTables::~EventTables() = default;

void EventTables::push(const uint8_t* packet) {
    if (hasTransportError(packet) || isScrambled(packet)) {
        return;
    }
    for (const auto& [pid, collector] : mCollectors) {
        if (pid == pidOf(packet)) {
            collector->push(packet);
        }
    }
}

void EventTables::onSection(const Section& section) {
    if (section.pid == PID_TOT) {
        takeTime(section);
    } else if (section.tableId == TABLE_EIT_PRESENT_FOLLOWING) {
        takeEvents(section);
    }
}

void EventTables::takeEvents(const Section& section) {
    const std::pair key(section.extension, section.number);
    const bool hasRoom = mEvents.contains(key) || mEvents.size() < MAX_SECTIONS;
    if (section.number > SECTION_FOLLOWING || section.size < 6 || !hasRoom) {
        return;
    }
    TableCursor cursor(section.body, section.size);
    cursor.u16();  // transport_stream_id
    mOriginalNetworkId = cursor.u16();
    cursor.u16();  // segment_last_section_number, last_table_id
    std::vector<BroadcastEvent>& events = mEvents[key];
    events.clear();
    if (cursor.left() >= 12) {
        BroadcastEvent& event = events.emplace_back();
        event.serviceId = section.extension;
        event.following = section.number == SECTION_FOLLOWING;
        event.eventId = cursor.u16();
        event.startUtcS = readTableTime(cursor);
        event.durationS = readDuration(cursor);
        for (const Descriptor& d : descriptorsOf(cursor.loop())) {
            if (d.tag == TAG_SHORT_EVENT && event.rawName.empty()) {
                readShortEvent(d, &event);
            }
        }
    }
    ++mRevision;
}

void EventTables::takeTime(const Section& section) {
    if (section.tableId != TABLE_TDT && section.tableId != TABLE_TOT) {
        return;
    }
    TableCursor cursor(section.body, section.size);
    const int64_t time = readTableTime(cursor);
    if (time < 0) {
        return;
    }
    mTableTime = time;
    ++mRevision;
    ++mClockRevision;
    if (section.tableId == TABLE_TDT) {
        return;
    }
    for (const Descriptor& d : descriptorsOf(cursor.loop())) {
        if (d.tag == TAG_LOCAL_TIME_OFFSET && d.data.size() >= 13) {
            TableCursor zone(d.data);  // of the first region that it tells of
            zone.part(3);
            const int sign = (zone.u8() & 1) != 0 ? -1 : 1;
            mZone.country = lettersAt(d.data, 0);
            mZone.aheadMinutes = sign * readMinutes(zone);
            mZone.changesAt = readTableTime(zone);
            mZone.aheadThenMinutes = sign * readMinutes(zone);
        }
    }
}

bool EventTables::isTold(uint16_t serviceId) const {
    return mEvents.contains({serviceId, 0}) && mEvents.contains({serviceId, SECTION_FOLLOWING});
}

void EventTables::addTo(BroadcastInformation* information) const {
    if (information->originalNetworkId < 0) {
        information->originalNetworkId = mOriginalNetworkId;
    }
    const int zoneMinutes = tableOffsetMinutes(mZone.country, information->originalNetworkId);
    const auto utcOf = [zoneMinutes](int64_t time) {
        return time < 0 ? -1 : time - zoneMinutes * 60;
    };
    BroadcastClock& clock = information->clock;
    clock.utcS = utcOf(mTableTime);
    clock.country = mZone.country;
    const bool changed = mZone.changesAt >= 0 && mTableTime >= mZone.changesAt;
    clock.localOffsetMinutes =
        zoneMinutes + (changed ? mZone.aheadThenMinutes : mZone.aheadMinutes);
    for (const auto& [key, events] : mEvents) {
        for (const BroadcastEvent& event : events) {
            information->events.push_back(event);
            information->events.back().startUtcS = utcOf(event.startUtcS);
        }
    }
}

}  // namespace orvhost
