#include "dtv/dvb/LinuxDvbAdapter.h"

#include <fcntl.h>
#include <libdvbv5/dvb-demux.h>
#include <libdvbv5/dvb-fe.h>
#include <linux/dvb/dmx.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "trace/HostLog.h"

namespace orvhost {

namespace {

// A second of the fastest stream that a channel of 6 MHz carries, 23 Mbit/s.
constexpr int STREAM_BYTES = 16'384 * 188;
constexpr int FILTER_BYTES = 0;        // packets do not pass through the demultiplexer's own buffer
constexpr uint16_t ALL_PIDS = 0x2000;  // stands for the whole stream
constexpr unsigned WHOLE_FRONTEND = 0;  // of the figures; then come the layers

void log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

void log(int level, const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    HOST_LOGI("libdvbv5: %s (level %d)\n", text, level);  // the caller is told of failures
}

std::string devicePath(int adapter, const char* device) {
    return "/dev/dvb/adapter" + std::to_string(adapter) + "/" + device;
}

// Of a library that tells -1 or a negative errno.
int errorOf(int result) {
    return result == -1 && errno > 0 ? -errno : result;
}

DvbFigure figureOf(const dtv_stats* stats) {
    constexpr double DECIBEL_STEPS = 1000.0;
    constexpr double WHOLE = 65535.0;
    if (stats == nullptr) {
        return {};
    }
    switch (stats->scale) {
        case FE_SCALE_DECIBEL:
            return {DvbFigure::Scale::DECIBEL, static_cast<double>(stats->svalue) / DECIBEL_STEPS};
        case FE_SCALE_RELATIVE:
            return {DvbFigure::Scale::PERCENT, static_cast<double>(stats->uvalue) * 100 / WHOLE};
        default:
            return {};
    }
}

}  // namespace

LinuxDvbAdapter::~LinuxDvbAdapter() {
    if (mDvr >= 0) {
        close(mDvr);
    }
    if (mDemux >= 0) {
        dvb_dmx_stop(mDemux);
        dvb_dmx_close(mDemux);
    }
    if (mFrontend != nullptr) {
        dvb_fe_close(mFrontend);
    }
}

int LinuxDvbAdapter::start(const DvbParameters& parameters) {
    const int opened = mFrontend != nullptr ? 0 : openFrontend(parameters);
    if (opened != 0) {
        return opened;
    }
    // The rest is told by the transmission itself.
    if (dvb_set_compat_delivery_system(mFrontend, SYS_ISDBT) != 0) {
        return -ENOTSUP;
    }
    dvb_fe_store_parm(mFrontend, DTV_FREQUENCY, parameters.frequencyHz);
    dvb_fe_store_parm(mFrontend, DTV_BANDWIDTH_HZ, parameters.bandwidthHz);
    if (const int tuned = dvb_fe_set_parms(mFrontend); tuned < 0) {
        return errorOf(tuned);
    }
    return mDvr >= 0 ? 0 : openStream(parameters);
}

int LinuxDvbAdapter::openFrontend(const DvbParameters& parameters) {
    // The library does not say why it fails.
    const std::string path =
        devicePath(parameters.adapter, ("frontend" + std::to_string(parameters.frontend)).c_str());
    const int probe = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (probe < 0) {
        return -errno;
    }
    close(probe);
    mFrontend = dvb_fe_open2(parameters.adapter, parameters.frontend, 0, 0, log);
    return mFrontend != nullptr ? 0 : -ENODEV;
}

int LinuxDvbAdapter::openStream(const DvbParameters& parameters) {
    const std::string path = devicePath(parameters.adapter, "dvr0");
    mDvr = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (mDvr < 0) {
        return -errno;
    }
    if (ioctl(mDvr, DMX_SET_BUFFER_SIZE, STREAM_BYTES) != 0) {
        HOST_LOGI("%s: %s keeps its own buffer size\n", __func__, path.c_str());
    }
    mDemux = dvb_dmx_open(parameters.adapter, 0);
    if (mDemux < 0) {
        return errorOf(mDemux);
    }
    return errorOf(
        dvb_set_pesfilter(mDemux, ALL_PIDS, DMX_PES_OTHER, DMX_OUT_TS_TAP, FILTER_BYTES));
}

ssize_t LinuxDvbAdapter::read(uint8_t* data, size_t size) {
    const ssize_t got = ::read(mDvr, data, size);
    return got >= 0 ? got : -errno;
}

DvbSignal LinuxDvbAdapter::signal() {
    DvbSignal signal;
    if (mFrontend == nullptr || dvb_fe_get_stats(mFrontend) != 0) {
        return signal;
    }
    uint32_t status = 0;
    dvb_fe_retrieve_stats(mFrontend, DTV_STATUS, &status);
    signal.carrier = (status & FE_HAS_CARRIER) != 0;
    signal.lock = (status & FE_HAS_LOCK) != 0;
    signal.strength =
        figureOf(dvb_fe_retrieve_stats_layer(mFrontend, DTV_STAT_SIGNAL_STRENGTH, WHOLE_FRONTEND));
    signal.carrierToNoise =
        figureOf(dvb_fe_retrieve_stats_layer(mFrontend, DTV_STAT_CNR, WHOLE_FRONTEND));
    fecap_scale_params scale = FE_SCALE_NOT_AVAILABLE;
    const float bitErrors = dvb_fe_retrieve_ber(mFrontend, WHOLE_FRONTEND, &scale);
    if (scale == FE_SCALE_COUNTER && bitErrors >= 0) {
        signal.bitErrorRate = bitErrors;
    }
    const float packetErrors = dvb_fe_retrieve_per(mFrontend, WHOLE_FRONTEND);
    signal.packetErrorRate = packetErrors >= 0 ? packetErrors : -1.0;
    return signal;
}

}  // namespace orvhost
