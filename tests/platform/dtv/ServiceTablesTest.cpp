#include "dtv/ServiceTables.h"

#include <gtest/gtest.h>

#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::Service;
using orvhost::ServiceTables;
using orvhost::StreamKind;

void push(ServiceTables& tables, const Bytes& bytes) {
    for (size_t at = 0; at < bytes.size(); at += 188) {
        if (tables.wants(orvhost::pidOf(bytes.data() + at))) {
            tables.push(bytes.data() + at);
        }
    }
}

const Bytes FULL_SEGMENT =
    pmt(101, 0x1FF,
        {{0x1B, 0x111, descriptor(0x52, {0x00})},
         {0x11, 0x112,
          descriptor(0x52, {0x10}) +
              descriptor(0xC4, bytesOf("\xF2\x03\x10\x11\xFF\x7F") + bytesOf("por"))},
         {0x0F, 0x113, descriptor(0x0A, bytesOf("eng") + Bytes{0})},
         {0x06, 0x114, descriptor(0x52, {0x30}) + descriptor(0xFD, {0x00, 0x08, 0x3D})},
         {0x03, 0x115, {}},
         {0x0D, 0x116, {}}});

TEST(ServiceTablesTest, CollectsProgrammesStreamsAndNames) {
    ServiceTables tables;
    TsBuilder builder;
    builder.section(0, pat({{0, 0x10}, {101, 0x100}, {0x0458, 0x1FC8}}));
    push(tables, builder.build());
    EXPECT_FALSE(tables.isComplete());
    builder.section(0x100, FULL_SEGMENT)
        .section(0x1FC8, pmt(0x0458, 0x211, {{0x1B, 0x211, {}}, {0x0F, 0x212, {}}}))
        .section(0x10, nit(bytesOf("Rede Um")))
        .section(0x11, sdt({{101, 1, bytesOf("Rede"), bytesOf("TV \xC9\x1B Um")},
                            {0x0458, 0xC0, {}, bytesOf("Um 1seg")}}));
    push(tables, builder.build());
    EXPECT_TRUE(tables.isComplete());
    EXPECT_EQ(tables.networkName(), "Rede Um");

    const std::vector<Service> services = tables.services();
    ASSERT_EQ(services.size(), 2u);
    const Service& tv = services[0];
    EXPECT_EQ(tv.serviceId, 101);
    EXPECT_EQ(tv.pmtPid, 0x100);
    EXPECT_EQ(tv.pcrPid, 0x1FF);
    EXPECT_EQ(tv.name, "TV \xC3\x89 Um");  // the escape byte is not text
    EXPECT_EQ(tv.rawName, bytesOf("TV \xC9\x1B Um"));
    EXPECT_EQ(tv.provider, "Rede");
    EXPECT_EQ(services[1].name, "Um 1seg");
    EXPECT_EQ(services[1].serviceType, 0xC0);

    const StreamKind kinds[] = {StreamKind::Video,   StreamKind::AudioLatm, StreamKind::AudioAdts,
                                StreamKind::Caption, StreamKind::AudioMpeg, StreamKind::Unknown};
    const int tags[] = {0x00, 0x10, -1, 0x30, -1, -1};
    const char* languages[] = {"", "por", "eng", "", "", ""};
    ASSERT_EQ(tv.streams.size(), std::size(kinds));
    for (size_t i = 0; i < std::size(kinds); ++i) {
        EXPECT_EQ(tv.streams[i].pid, 0x111 + i);
        EXPECT_EQ(tv.streams[i].kind, kinds[i]);
        EXPECT_EQ(tv.streams[i].componentTag, tags[i]);
        EXPECT_EQ(tv.streams[i].language, languages[i]);
    }
    ASSERT_EQ(tv.streams[3].descriptors.size(), 2u);
    EXPECT_EQ(tv.streams[3].descriptors[1].tag, 0xFD);
    EXPECT_EQ(tv.streams[3].descriptors[1].data, (std::vector<uint8_t>{0x00, 0x08, 0x3D}));
}

TEST(ServiceTablesTest, FindsTheProgrammeOfAPair) {
    const auto streams = [](unsigned video, unsigned audio) {
        return std::vector<PmtStream>{{0x1B, video, {}}, {0x11, audio, {}}};
    };
    ServiceTables tables;
    push(tables, TsBuilder()
                     .section(0, pat({{1, 0x100}, {2, 0x101}, {3, 0x102}}))
                     .section(0x100, pmt(1, 0x1FF, streams(0x111, 0x112), descriptor(0xC1, {0x84})))
                     .section(0x101, pmt(2, 0x1FF, streams(0x111, 0x113)))
                     .section(0x102, pmt(3, 0x1FF, streams(0x121, 0x113)))
                     .build());
    const struct {
        int video;
        int audio;
        uint16_t preferred;
        int found;  // -1: none
    } cases[] = {
        {0x111, 0x112, 0, 1},  {0x111, 0x113, 1, 2}, {0x111, 0x1FFF, 0, 1}, {0x111, -1, 2, 2},
        {0x1FFF, 0x113, 3, 3}, {0x121, 0x112, 1, 3}, {0x130, 0x131, 1, -1}, {0x1FFF, 0x1FFF, 0, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.video << " " << c.audio << " " << c.preferred);
        const auto found = tables.findProgramme(c.video, c.audio, c.preferred);
        EXPECT_EQ(found ? found->service.serviceId : -1, c.found);
    }
    const auto first = tables.findProgramme(0x111, 0x112, 0);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->transportStreamId, 1);
    const Bytes whole = pmt(1, 0x1FF, streams(0x111, 0x112), descriptor(0xC1, {0x84}));
    EXPECT_EQ(first->pmt, Bytes(whole.begin() + 8, whole.end() - 4));
}

// Captions are told from superimposed text and other private data.
TEST(ServiceTablesTest, NamesCaptionStreams) {
    const Bytes captionCoding = descriptor(0xFD, {0x00, 0x08, 0x3D});
    const struct {
        uint8_t streamType;
        Bytes descriptors;
        bool captions;
    } cases[] = {
        {0x06, descriptor(0x52, {0x30}) + captionCoding, true},
        {0x06, descriptor(0x52, {0x37}), true},
        {0x06, descriptor(0x52, {0x87}), true},
        {0x06, captionCoding, true},
        {0x06, descriptor(0x52, {0x12}) + descriptor(0xFD, {0x00, 0x12}), true},
        {0x06, descriptor(0x52, {0x38}) + captionCoding, false},
        {0x06, descriptor(0x52, {0x88}) + captionCoding, false},
        {0x06, descriptor(0x52, {0x40}), false},
        {0x06, descriptor(0xFD, {0x00, 0x0D}), false},
        {0x06, descriptor(0xFD, {0x08}), false},
        {0x06, {}, false},
        {0x0D, captionCoding, false},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        TsBuilder builder;
        builder.section(0, pat({{1, 0x100}}));
        builder.section(0x100, pmt(1, 0x111, {{cases[i].streamType, 0x111, cases[i].descriptors}}));
        ServiceTables tables;
        push(tables, builder.build());
        ASSERT_EQ(tables.services().size(), 1u) << i;
        EXPECT_EQ(isCaptions(tables.services()[0].streams[0]), cases[i].captions) << i;
    }
}

TEST(ServiceTablesTest, NewVersionsReplaceOldOnes) {
    ServiceTables tables;
    TsBuilder builder;
    builder.section(0, pat({{1, 0x100}, {2, 0x200}}))
        .section(0x100, pmt(1, 0x111, {{0x1B, 0x111, {}}}))
        .section(0x200, pmt(2, 0x211, {{0x1B, 0x211, {}}}))
        .section(0x100, pmt(1, 0x121, {{0x1B, 0x121, {}}}, {}, 1));
    push(tables, builder.build());
    ASSERT_EQ(tables.services().size(), 2u);
    EXPECT_EQ(tables.services()[0].pcrPid, 0x121);
    EXPECT_TRUE(tables.wants(0x200));
    push(tables, builder.section(0, pat({{1, 0x300}}, 1)).build());
    EXPECT_TRUE(tables.services().empty());  // the PMT of the new PID is not known yet
    EXPECT_FALSE(tables.wants(0x200));
    push(tables, builder.section(0x300, pmt(1, 0x121, {{0x1B, 0x121, {}}})).build());
    ASSERT_EQ(tables.services().size(), 1u);
    EXPECT_EQ(tables.services()[0].pmtPid, 0x300);
}

// A good CRC does not make lengths true: each is cut where what holds it ends.
TEST(ServiceTablesTest, LengthsThatRunOverTheirSectionAreCut) {
    const Bytes bodies[] = {
        {0xE1, 0x11, 0xFF, 0xFF, 0x1B, 0xE1, 0x11},                          // programme loop
        {0xE1, 0x11, 0xF0, 0x00, 0x1B, 0xE1, 0x11, 0xFF, 0xFF, 0x52, 0xFF},  // stream loop
        {0xE1, 0x11, 0xF0, 0x00, 0x1B, 0xE1},                                // half a stream
        {0xE1, 0x11},
    };
    const size_t streams[] = {0, 1, 0, 0};
    for (size_t i = 0; i < std::size(bodies); ++i) {
        SCOPED_TRACE(i);
        TsBuilder builder;
        builder.section(0, pat({{1, 0x100}})).section(0x100, section(0x02, 1, bodies[i]));
        builder.section(0x11,
                        section(0x42, 1, {0, 1, 0xFF, 0, 1, 0xFC, 0x8F, 0xFF, 0x48, 9, 1, 9}));
        ServiceTables tables;
        push(tables, builder.build());
        const auto services = tables.services();
        ASSERT_EQ(services.size(), bodies[i].size() < 4 ? 0u : 1u);
        if (!services.empty()) {
            EXPECT_EQ(services[0].streams.size(), streams[i]);
            EXPECT_EQ(services[0].serviceType, 1);
            EXPECT_EQ(services[0].name, "");
        }
    }
}

// A stream of one-segment services alone has no PAT: the PIDs of its PMTs are fixed.
TEST(ServiceTablesTest, OneSegmentServicesNeedNoPat) {
    ServiceTables tables;
    TsBuilder builder;
    builder.section(0x1FC8, pmt(0x0458, 0x211, {{0x1B, 0x211, {}}}));
    push(tables, builder.build());
    ASSERT_EQ(tables.services().size(), 1u);
    EXPECT_EQ(tables.services()[0].serviceId, 0x0458);
    EXPECT_EQ(tables.services()[0].pmtPid, 0x1FC8);
}

// Each byte of the tables hit in turn: a damaged section is dropped, whatever was hit, and the next
// good one counts.
TEST(ServiceTablesTest, DamagedSectionsAreDropped) {
    const Bytes good = TsBuilder()
                           .section(0, pat({{101, 0x100}}))
                           .section(0x100, FULL_SEGMENT)
                           .section(0x11, sdt({{101, 1, {}, bytesOf("TV")}}))
                           .build();
    for (size_t at = 4; at < good.size(); ++at) {
        Bytes bad = good;
        bad[at] ^= static_cast<uint8_t>(1 << at % 8);
        ServiceTables tables;
        push(tables, bad);
        for (const Service& service : tables.services()) {
            EXPECT_EQ(service.serviceId, 101);
            EXPECT_EQ(service.streams.size(), 6u);
        }
    }
}

}  // namespace
