#pragma once

#include <utils/Thread.h>

#include <array>
#include <bitset>
#include <cstdint>
#include <mutex>
#include <string>

#include "common/Data.h"
#include "common/Module.h"

namespace OrvPlayer {

// Turns caption PES packets into text.
//
// Captions come as synchronized PES data with data groups (ARIB STD-B24, volume 1, part 3), in the
// Latin coding of SBTVD. One packet, as far as it is looked at:
//
//   80 FF Fh  h bytes | 5 bytes     | TMD (STM)  | 3 bytes | 1F 20 size size size  text and codes
//   PES data          | data group  | management | loop    | first data unit, a statement body
//   packet header     | header      | or caption | length  |
//
// The bytes of the unit are interpreted one by one on a screen of three rows of 32 characters that
// scrolls. What stands there at the end becomes one ClosedCaptionFragmentData with the PTS of the
// packet: code points of 32 bits in the byte order of the machine. Codes that do not move text are
// recognised and their parameters stored; nothing is done with them.
//
// Each packet starts on an empty screen, but codes reach over packets: a parameter still owed or a
// control sequence still open takes bytes of the next one. Only a new decoder forgets them.
//
// One worker. It holds the input's read lock during a packet, the wait for room in the output (100
// ms at most) included; a packet whose text finds no room is lost. Outputs and input are set while
// it is stopped.
class ClosedCaptionDecoder : public Module {
public:
    // What processPacket says.
    static constexpr int RESULT_NOTHING_WRITTEN = 0;  // no caption, cut short, or no room
    static constexpr int RESULT_WRITTEN = 1;
    static constexpr int RESULT_EMPTY_SCREEN = 2;  // nothing was placed
    static constexpr int RESULT_OTHER_DATA_UNIT = 4;

    ClosedCaptionDecoder();
    ClosedCaptionDecoder(const ClosedCaptionDecoder&) = delete;  // its worker knows it by address
    ClosedCaptionDecoder& operator=(const ClosedCaptionDecoder&) = delete;

    // 1 without an input, an output or a thread; with a live worker it does nothing.
    int start() override;
    int stop() override;
    void requestExit() override;

    // The steps of the worker, for a caller that brings its own thread. A record must lie whole
    // within its mSize.
    int processPacket(PESData* record);
    void processCCByte(unsigned char byte);
    void clearScreenData();
    // The text of the screen: rows up to the first one without a first character, each ended by a
    // line feed unless it is full. Returns its size in bytes, 4 per code point.
    int buildCCString();

    // The last text. Any thread. `getCC` copies nothing into a buffer that is too small.
    unsigned int getCCSize();
    void getCC(unsigned char* buffer, unsigned int size);

protected:
    ~ClosedCaptionDecoder() override;

private:
    class WorkerThread;

    static constexpr int ROWS = 3;
    static constexpr int COLUMNS = 32;
    static constexpr int NOT_PLACED = -1;
    static constexpr size_t MAX_CSI_BYTES = 256;  // ahead of the final byte
    static constexpr size_t MAX_CSI_PARAMETERS = 16;

    // The control codes with parameters, in the order in which a pending one takes a byte. PAPF
    // takes none: its byte is dropped.
    enum ParameterCode { APS, SZX, COL, FLC, CDC, POL, WMM, MACRO, HLC, RPC, TIME, PAPF, CODES };
    struct CodeWithParameters {
        uint8_t code;
        uint8_t parameters;  // bytes
    };
    static const CodeWithParameters CODES_WITH_PARAMETERS[CODES];
    struct Parameters {
        bool pending = false;
        std::array<uint8_t, 2> bytes{};  // stored; only that of COL is looked at
    };

    void join();
    void WorkerThreadRunner();
    bool isWhole(const PESData& record, unsigned int readable);
    int writeText(uint64_t pts90k, int textBytes);

    void findCommand(unsigned char byte);
    bool expectParameters(unsigned char byte);
    void handleCommands(unsigned char byte);
    void handleAPS(unsigned char byte);
    void collectCSI(unsigned char byte);
    void identifyCSICommand();
    void placeCharacter(unsigned char byte);
    void advanceCursor();

    std::mutex mStartStopLock;  // start() against stop(); guards the two below
    android::sp<WorkerThread> mWorker;
    bool mExitRequested = false;  // of that worker

    // Worker thread only.
    uint32_t mScreen[ROWS][COLUMNS + 1] = {};  // 0 is an empty slot; the last column stays empty
    int32_t mRow = NOT_PLACED;
    int32_t mColumn = NOT_PLACED;
    bool mNewLinePending = false;
    int32_t mParamsExpected = 0;  // by the last code with parameters; never below 0
    std::array<Parameters, CODES> mParameters;
    bool mInCSI = false;
    std::array<uint8_t, MAX_CSI_BYTES + 1> mCSIBuffer{};
    uint32_t mCSILength = 0;
    std::array<int32_t, MAX_CSI_PARAMETERS> mCSIParams{};  // of the last sequence; stored only
    bool mSpecialCharset = false;
    std::bitset<256> mFlags;  // the simple codes that came, by code; stored only
    bool mBadRecordLogged = false;

    std::mutex mCCLock;  // a leaf, for the text below: others read what the worker builds
    std::u32string mCCString;
};

}  // namespace OrvPlayer
