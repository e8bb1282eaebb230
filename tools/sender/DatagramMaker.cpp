#include "sender/DatagramMaker.h"

#include <algorithm>
#include <utility>

namespace orvtest {

namespace {

constexpr size_t PACKET_BYTES = 188;
constexpr uint8_t PAYLOAD_MP2T = 33;  // RFC 3551
constexpr uint64_t MOST_LATE = 4;

void append32(DatagramMaker::Bytes* bytes, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes->push_back(static_cast<uint8_t>(value >> shift));
    }
}

}  // namespace

DatagramMaker::DatagramMaker(bool isRtp, const NetworkFaults& faults, Sink sink)
    : mIsRtp(isRtp), mFaults(faults), mSink(std::move(sink)), mRandom(faults.seed) {
    restart();
}

void DatagramMaker::restart() {
    mSsrc = static_cast<uint32_t>(mRandom());
    mNumber = static_cast<uint16_t>(mRandom());
}

// The same numbers from the same seed, whatever the standard library.
bool DatagramMaker::happens(double part) {
    return part > 0.0 && static_cast<double>(mRandom() >> 11) * 0x1p-53 < part;
}

void DatagramMaker::beginDatagram(uint32_t time90k) {
    mDatagram.clear();
    if (mIsRtp) {
        mDatagram.push_back(0x80);
        mDatagram.push_back(PAYLOAD_MP2T);
        mDatagram.push_back(static_cast<uint8_t>(mNumber >> 8));
        mDatagram.push_back(static_cast<uint8_t>(mNumber));
        append32(&mDatagram, time90k);
        append32(&mDatagram, mSsrc);
    }
    ++mNumber;
}

void DatagramMaker::add(const uint8_t* packet, uint32_t time90k) {
    if (mPackets == 0) {
        beginDatagram(time90k);
    }
    mDatagram.insert(mDatagram.end(), packet, packet + PACKET_BYTES);
    if (++mPackets == PACKETS) {
        finishDatagram();
    }
}

void DatagramMaker::delay(const Bytes& datagram) {
    mLate.push_back({mMade + 1 + mRandom() % MOST_LATE, datagram});
}

void DatagramMaker::finishDatagram() {
    mPackets = 0;
    ++mMade;
    const bool isLost = happens(mFaults.drop) || mOutage;
    const bool isLate = happens(mFaults.reorder);
    const bool isTwice = happens(mFaults.duplicate);
    mDropped += isLost ? 1 : 0;
    if (!isLost && isLate) {
        ++mReordered;
        delay(mDatagram);
    } else if (!isLost) {
        mSink(mDatagram);
    }
    if (!isLost && isTwice) {
        ++mDuplicated;
        delay(mDatagram);
    }
    sendLate();
}

void DatagramMaker::sendLate() {
    for (const Late& late : mLate) {
        if (late.behind <= mMade) {
            mSink(late.datagram);
        }
    }
    std::erase_if(mLate, [this](const Late& late) { return late.behind <= mMade; });
}

void DatagramMaker::flush() {
    if (mPackets > 0) {
        finishDatagram();
    }
    for (const Late& late : mLate) {
        mSink(late.datagram);
    }
    mLate.clear();
}

}  // namespace orvtest
