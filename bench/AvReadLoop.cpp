extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdio>

// What `orvplay units --quiet` is compared with: libavformat reads a file to its end, with its
// parsers, as it does by default. Prints how many packets of how many bytes it gave out.
int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: av_read_loop FILE\n");
        return 2;
    }
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, argv[1], nullptr, nullptr) != 0 ||
        avformat_find_stream_info(format, nullptr) < 0) {
        fprintf(stderr, "av_read_loop: %s cannot be read\n", argv[1]);
        return 1;
    }
    AVPacket* packet = av_packet_alloc();
    unsigned long packets = 0;
    unsigned long bytes = 0;
    while (av_read_frame(format, packet) >= 0) {
        ++packets;
        bytes += static_cast<unsigned long>(packet->size);
        av_packet_unref(packet);
    }
    printf("{\"packets\":%lu,\"bytes\":%lu}\n", packets, bytes);
    av_packet_free(&packet);
    avformat_close_input(&format);
    return 0;
}
