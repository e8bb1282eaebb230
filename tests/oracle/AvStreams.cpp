#include "oracle/AvStreams.h"

#include <gtest/gtest.h>

#include <memory>
#include <span>

#include "media/Av.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace orvtest {

namespace {

struct FormatCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct ParserCloser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

int streamIdOf(const AVPacket* packet) {
    const uint8_t* id = av_packet_get_side_data(packet, AV_PKT_DATA_MPEGTS_STREAM_ID, nullptr);
    return id != nullptr ? *id : 0;
}

// The length that a header tells (ISO/IEC 14496-3, 1.7.2 and 1.A.2.2), 0 where there is none.
size_t frameSize(AVCodecID codec, std::span<const uint8_t> at) {
    if (at.size() < 7) {
        return 0;
    }
    if (codec == AV_CODEC_ID_AAC_LATM) {
        const bool isHeader = at[0] == 0x56 && (at[1] & 0xE0) == 0xE0;
        return isHeader ? 3 + ((at[1] & 0x1Fu) << 8 | at[2]) : 0;
    }
    const bool isHeader = at[0] == 0xFF && (at[1] & 0xF6) == 0xF0;
    return isHeader ? (at[3] & 3u) << 11 | at[4] * 8u | at[5] >> 5u : 0;
}

bool isAac(AVCodecID codec) {
    return codec == AV_CODEC_ID_AAC || codec == AV_CODEC_ID_AAC_LATM;
}

// The parsers of AAC give out, too, the start of a last frame and what stands between two frames:
// that of LATM together with the frame behind it. The whole frame at the end; empty for none.
std::span<const uint8_t> withoutJunk(AVCodecID codec, std::span<const uint8_t> unit) {
    while (isAac(codec) && !unit.empty() && frameSize(codec, unit) != unit.size()) {
        unit = unit.subspan(1);
    }
    return unit;
}

}  // namespace

std::map<int, std::vector<PesPacket>> readPesPackets(const std::string& file) {
    av_log_set_level(AV_LOG_FATAL);
    AVFormatContext* opened = avformat_alloc_context();
    // PES packets as they are: not cut, nothing filled in, no time stamp moved.
    opened->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    opened->correct_ts_overflow = 0;
    std::map<int, std::vector<PesPacket>> packets;
    if (avformat_open_input(&opened, file.c_str(), nullptr, nullptr) != 0) {
        ADD_FAILURE() << file;
        return packets;
    }
    const std::unique_ptr<AVFormatContext, FormatCloser> context(opened);
    const orvhost::AvPacket packet(av_packet_alloc());
    while (av_read_frame(opened, packet.get()) >= 0) {
        std::vector<PesPacket>& stream = packets[opened->streams[packet->stream_index]->id];
        if (packet->pts != AV_NOPTS_VALUE) {
            stream.push_back({streamIdOf(packet.get()), packet->pts, packet->dts, {}});
        }
        // A long one comes in pieces, the later ones without time stamps.
        if (!stream.empty()) {
            stream.back().payload.insert(stream.back().payload.end(), packet->data,
                                         packet->data + packet->size);
        }
        av_packet_unref(packet.get());
    }
    return packets;
}

std::vector<ParsedUnit> parseUnits(AVCodecID codec, const std::vector<PesPacket>& packets,
                                   int64_t duration) {
    const std::unique_ptr<AVCodecParserContext, ParserCloser> parser(av_parser_init(codec));
    const orvhost::AvContext context(avcodec_alloc_context3(avcodec_find_decoder(codec)));
    std::vector<ParsedUnit> units;
    int64_t next = 0;
    const auto parse = [&](const uint8_t* data, int size, int64_t pts, int64_t dts) {
        uint8_t* unit = nullptr;
        int unitSize = 0;
        const int used = av_parser_parse2(parser.get(), context.get(), &unit, &unitSize, data, size,
                                          pts, dts, 0);
        const auto whole = withoutJunk(codec, {unit, static_cast<size_t>(unitSize)});
        // The time of what is no unit is that of the first unit behind it.
        next = unitSize != 0 && parser->pts != AV_NOPTS_VALUE ? parser->pts : next;
        if (!whole.empty()) {
            units.push_back({next, parser->key_frame == 1, {whole.begin(), whole.end()}});
            next += duration;
        }
        return used;
    };
    for (const PesPacket& packet : packets) {
        Bytes padded = packet.payload;
        padded.resize(padded.size() + AV_INPUT_BUFFER_PADDING_SIZE);
        int64_t pts = packet.pts, dts = packet.dts;
        for (size_t at = 0; at < packet.payload.size();) {
            at += static_cast<size_t>(
                parse(padded.data() + at, static_cast<int>(packet.payload.size() - at), pts, dts));
            pts = dts = AV_NOPTS_VALUE;
        }
    }
    parse(nullptr, 0, AV_NOPTS_VALUE, AV_NOPTS_VALUE);
    // The parser of MPEG audio gives out the start of a last frame. Frames are of one size here,
    // but for a slot of padding, at most four bytes.
    if (codec != AV_CODEC_ID_H264 && !isAac(codec) && !units.empty() &&
        units.back().bytes.size() + 4 < units.front().bytes.size()) {
        units.pop_back();
    }
    return units;
}

}  // namespace orvtest
