#pragma once

#include <gtest/gtest.h>
#include <utils/StrongPointer.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common/ErrorListener.h"
#include "support/Await.h"
#include "support/Report.h"
#include "support/TraceCapture.h"
#include "support/TsBuilder.h"
#include "tsparser/TSParser.h"

namespace orvtest {

constexpr unsigned VIDEO_PID = 0x111;
constexpr unsigned PACKET_BYTES = 188;
using Lines = std::vector<std::string>;

// Elementary-stream bytes that can be told apart: a letter, over and over.
inline Bytes named(char name, size_t size) {
    return Bytes(size, static_cast<uint8_t>(name));
}

// PES packets a, b, c, ...
inline Bytes manyPES(size_t count, size_t size) {
    TsBuilder stream;
    for (size_t i = 0; i < count; ++i) {
        stream.pes(VIDEO_PID, 0xE0, static_cast<int64_t>(i),
                   named(static_cast<char>('a' + i % 26), size));
    }
    return stream.build();
}

inline android::sp<OrvPlayer::RingBuffer> makeRing(const char* name, unsigned size) {
    android::sp<OrvPlayer::RingBuffer> ring = new OrvPlayer::RingBuffer;
    EXPECT_EQ(ring->configureWithSize(name, size), 0);
    return ring;
}

// A PES record as its reader sees it.
struct ReceivedPES {
    uint64_t pts;
    uint64_t dts;
    uint32_t offset;
    Bytes packet;   // whole, header included
    Bytes payload;  // the elementary-stream bytes
    // The letter of named(), '?' for anything else.
    char name() const {
        const bool uniform =
            !payload.empty() && std::all_of(payload.begin(), payload.end(),
                                            [this](uint8_t b) { return b == payload.front(); });
        return uniform ? static_cast<char>(payload.front()) : '?';
    }
};

// Takes the next record; false when none comes in time.
inline bool receive(OrvPlayer::RingBuffer& ring, std::vector<ReceivedPES>* into,
                    OrvPlayer::RingBuffer::block_t block = OrvPlayer::RingBuffer::NON_BLOCKING) {
    using OrvPlayer::PESData;
    unsigned char* bytes = ring.read(PESData::FIXED_SIZE, block);
    if (bytes == nullptr) {
        return false;
    }
    auto* record = reinterpret_cast<PESData*>(bytes);
    EXPECT_EQ(record->mType, OrvPlayer::Data::PES);
    EXPECT_LE(record->mSize, ring.getDataSize());
    EXPECT_EQ(record->mOffsetES + record->mSizeES, record->mSize);
    into->push_back({record->mPTS, record->mDTS, record->mOffsetES,
                     Bytes(bytes + PESData::FIXED_SIZE, bytes + record->mSize),
                     Bytes(bytes + record->mOffsetES, bytes + record->mSize)});
    ring.readAdvance(record->mSize);
    return true;
}

inline std::string namesOf(const std::vector<ReceivedPES>& received) {
    std::string names;
    for (const ReceivedPES& pes : received) {
        names += pes.name();
    }
    return names;
}

class LastError : public OrvPlayer::ErrorListener {
public:
    void onError(unsigned int code, const OrvPlayer::Module*) const override { mCode = code; }
    unsigned int code() const { return mCode; }

private:
    mutable std::atomic<unsigned int> mCode{0};
};

// A parser between two rings.
class TSParserFixture : public testing::Test {
protected:
    ~TSParserFixture() override {
        if (mParser != nullptr) {
            mParser->stop();
        }
    }

    void make(int role, unsigned outputSize = 65536) {
        mInput = makeRing("in", 65536);
        mOutput = makeRing("out", outputSize);
        mParser = new OrvPlayer::TSParser(role);
        mParser->setInput(mInput);
        mParser->addOutput(mOutput, nullptr);
        mParser->addErrorListener(mError);
    }

    // Puts bytes into the input; they must fit.
    void push(const Bytes& bytes) {
        unsigned char* to =
            mInput->write(static_cast<unsigned>(bytes.size()), OrvPlayer::RingBuffer::NON_BLOCKING);
        ASSERT_NE(to, nullptr);
        memcpy(to, bytes.data(), bytes.size());
        mInput->writeAdvance(bytes.size());
    }

    // Overwrites everything in the empty input.
    void scribbleOverInput() {
        unsigned char* all = mInput->write(mInput->getSize(), OrvPlayer::RingBuffer::NON_BLOCKING);
        ASSERT_NE(all, nullptr);
        memset(all, 0xEE, mInput->getSize());
        mInput->writeAdvance(0);
    }

    // Runs passes of `packets` packets on this thread, after open(), and takes what comes out.
    // Between the passes the consumed bytes are overwritten, as the receiver would.
    void feed(const Bytes& bytes, size_t packets) {
        const size_t slice = packets * PACKET_BYTES;
        for (size_t at = 0; at < bytes.size(); at += slice) {
            const size_t end = std::min(at + slice, bytes.size());
            push(Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(end)));
            ASSERT_TRUE(mParser->parsePass());
            scribbleOverInput();
            drain();
        }
    }

    void drain() {
        while (receive(*mOutput, &mReceived)) {
        }
    }

    std::string report() { return reportOf(*mParser, 1); }

    std::string names() const { return namesOf(mReceived); }

    android::sp<OrvPlayer::RingBuffer> mInput;
    android::sp<OrvPlayer::RingBuffer> mOutput;
    LastError mError;
    android::sp<OrvPlayer::TSParser> mParser;
    std::vector<ReceivedPES> mReceived;
};

}  // namespace orvtest
