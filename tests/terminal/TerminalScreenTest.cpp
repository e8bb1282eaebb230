#include "TerminalScreen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>

#include "TextColumns.h"

namespace orvplay {
namespace {

constexpr int64_t SECOND_NS = 1'000'000'000;
constexpr int64_t EIGHT_PM_S = 1'795'302'000;  // 2026-11-21 23:00 UTC, 20:00 there

ScreenState liveState() {
    ScreenState state;
    state.channelNumber = "6.1";
    state.name = "ORV São João HD";
    state.localOffsetMinutes = -180;
    state.clockUtcS = EIGHT_PM_S + 900;
    state.now = {"Notícias da Noite", "O que aconteceu.", EIGHT_PM_S, EIGHT_PM_S + 1800};
    state.next = {"映画「夏の海」", "", EIGHT_PM_S + 1800, -1};
    state.width = 1920;
    state.height = 1080;
    state.isInterlaced = true;
    state.picturesPerSecond = 29.97;
    state.skewMs = 3.2;
    state.positionMs = 65'000;
    return state;
}

ScreenState recordedState() {
    ScreenState state;
    state.kind = SourceKind::RECORDING;
    state.name = "recording 3";
    state.positionMs = 30'000;
    state.durationMs = 60'000;
    state.width = 1440;
    state.height = 1080;
    return state;
}

class TerminalScreenTest : public testing::Test {
protected:
    // The rows as text; each is checked to fit.
    std::vector<std::string> text(int columns, int rows, int64_t nowNs = 0) {
        std::vector<std::string> lines;
        for (const ScreenRow& row : mScreen.rows(columns, rows, nowNs)) {
            std::string line;
            for (const Span& span : row) {
                EXPECT_EQ(terminalText(span.text), span.text);
                line += span.text;
            }
            EXPECT_LE(columnsOf(line), columns) << line;
            line.erase(line.find_last_not_of(' ') + 1);
            lines.push_back(line);
        }
        EXPECT_EQ(lines.size(), static_cast<size_t>(rows));
        return lines;
    }
    std::string all(int columns, int rows, int64_t nowNs = 0) {
        std::string all;
        for (const std::string& line : text(columns, rows, nowNs)) {
            all += line + "\n";
        }
        return all;
    }
    std::vector<UserRequest> type(const std::string& characters) {
        std::vector<UserRequest> requests;
        for (const char c : characters) {
            for (const UserRequest& request : mScreen.onKey({Key::CHARACTER, char32_t(c)})) {
                requests.push_back(request);
            }
        }
        return requests;
    }

    TerminalScreen mScreen;
};

TEST_F(TerminalScreenTest, ShowsABroadcast) {
    mScreen.setHasBlocks(false);
    mScreen.showState(liveState());
    mScreen.showCaption("Boa noite.\n字幕", 0);
    EXPECT_EQ(all(70, 16),
              "6.1  ORV São João HD                                          20:15:00\n"
              "----------------------------------------------------------------------\n"
              "20:00-20:30  Notícias da Noite\n"
              "#############################----------------------------  15 min left\n"
              "O que aconteceu.\n"
              "20:30        映画「夏の海」\n"
              "\n\n"
              "                              Boa noite.\n"
              "                                 字幕\n"
              "\n"
              "Signal     good                    Picture    1920x1080i, 29.97/s\n"
              "Packets    0 holes, 0 damaged      Sound      volume 100 %\n"
              "Dropped    0 pictures              Lip sync   +3 ms\n"
              "Time       1:05\n"
              "? help   q quit   c channels   m mute   r record   v captions\n");
}

TEST_F(TerminalScreenTest, ShowsARecordingAndWhereItIs) {
    mScreen.setHasBlocks(false);
    mScreen.showState(recordedState());
    const auto lines = text(40, 10, 15 * SECOND_NS);
    EXPECT_EQ(lines[0], "recording 3");
    EXPECT_EQ(lines[2], "0:45 / 1:00  ####################-------");
    ScreenState paused = recordedState();
    paused.isPaused = true;
    mScreen.showState(paused);
    EXPECT_EQ(text(40, 10, 15 * SECOND_NS)[2], "0:30 / 1:00  paused  ##########---------");
    EXPECT_EQ(text(40, 10, 99'999 * SECOND_NS)[2], "0:30 / 1:00  paused  ##########---------");
}

TEST_F(TerminalScreenTest, TellsEachStateInWords) {
    const struct {
        std::function<void(ScreenState*)> change;
        const char* told;
    } TABLE[] = {
        {[](ScreenState* s) { s->isMuted = true; }, "muted"},
        {[](ScreenState* s) { s->volumePercent = 35; }, "volume 35 %"},
        {[](ScreenState* s) { s->signalText = "buffering 40 %"; }, "buffering 40 %"},
        {[](ScreenState* s) { s->isPaused = true; }, "1:05  paused"},
        {[](ScreenState* s) {
             s->recordingNumber = 2;
             s->recordingMs = 61'000;
         },
         "REC 1:01  20:15:00"},
        {[](ScreenState* s) { s->reception.continuityErrors = 7; }, "7 holes, 0 damaged"},
        {[](ScreenState* s) {
             s->reception.network = {.datagrams = 9, .lost = 4, .jitterUs = 1500};
         },
         "4 lost, jitter 1.5 ms"},
        {[](ScreenState* s) { s->width = 0; }, "none so far"},
        {[](ScreenState* s) { s->now->endUtcS = s->now->startUtcS; }, "20:00-20:00  Not"},
        {[](ScreenState* s) { s->clockUtcS += 86'400; }, "  0 min left"},
    };
    for (const auto& row : TABLE) {
        ScreenState state = liveState();
        row.change(&state);
        mScreen.showState(state);
        EXPECT_NE(all(80, 24).find(row.told), std::string::npos) << row.told << "\n" << all(80, 24);
    }
}

// Whatever the size, what matters most is there and nothing is wider or longer.
TEST_F(TerminalScreenTest, FitsEverySize) {
    ScreenState hostile = liveState();
    hostile.name = std::string("\x1B[31m") + std::string(300, 'x') + "\xFF" + "日本\n\t\x07";
    hostile.now->title = "\xE2\x80\xAE" + std::string(9000, 'y');
    hostile.now->text = std::string(500, '\n') + "日本語" + std::string(9000, ' ');
    hostile.now->startUtcS = 0;
    hostile.now->endUtcS = int64_t(1) << 50;
    hostile.clockUtcS = (int64_t(1) << 50) - 1;
    hostile.positionMs = int64_t(1) << 50;
    ChannelRows channels;
    channels.rows.assign(30,
                         {"6.1\x1B", "日本語の放送局の長い名前", std::string(200, 'z'), 1, true});
    const ScreenState states[] = {ScreenState(), liveState(), recordedState(), hostile};
    for (const ScreenState& state : states) {
        for (const char* mode : {"", "c", "h"}) {
            TerminalScreen fresh;
            mScreen = fresh;
            mScreen.showState(state);
            mScreen.showChannels(channels);
            mScreen.showCaption("1\n2\n3\n4\n5\n日本日本日本日本日本日本日本日本日本\x1B", 0);
            type(mode);
            for (const auto& [columns, rows] :
                 {std::pair(200, 60), std::pair(80, 24), std::pair(63, 20), std::pair(40, 10),
                  std::pair(20, 5), std::pair(7, 3), std::pair(1, 1)}) {
                SCOPED_TRACE(std::to_string(columns) + "x" + std::to_string(rows) + mode);
                text(columns, rows, SECOND_NS);
            }
        }
    }
    TerminalScreen fresh;
    mScreen = fresh;
    mScreen.showState(liveState());
    EXPECT_EQ(text(40, 10)[0], "6.1  ORV São João HD            20:15:00");
    EXPECT_EQ(text(20, 3)[0], "6.1  ORV S~ 20:15:00");
    EXPECT_EQ(text(20, 3)[1], "20:00  Notícias da ~");
}

TEST_F(TerminalScreenTest, CaptionsAndMessagesGo) {
    mScreen.showState(liveState());
    mScreen.showCaption("caption", 0);
    mScreen.showMessage(
        "recording \x1B"
        "2 begins",
        0, 2 * SECOND_NS);
    EXPECT_NE(all(80, 24, SECOND_NS).find("caption\n"), std::string::npos);
    EXPECT_EQ(text(80, 24, SECOND_NS).back(), "recording  2 begins");
    EXPECT_EQ(text(80, 24, 2 * SECOND_NS).back().substr(0, 6), "? help");
    EXPECT_EQ(all(80, 24, 10 * SECOND_NS).find("caption\n"), std::string::npos);
    mScreen.showMessage("no such channel", 0, SECOND_NS);
    type("c");
    EXPECT_EQ(text(80, 24).back(), "no such channel");
}

TEST_F(TerminalScreenTest, KeysAskThePlayerAsInTheWindow) {
    using Requests = std::vector<UserRequest>;
    EXPECT_EQ(type("q"), (Requests{{Request::QUIT}}));
    EXPECT_EQ(type("m90"),
              (Requests{{Request::MUTE}, {Request::VOLUME, -2}, {Request::VOLUME, 2}}));
    EXPECT_EQ(mScreen.onKey({Key::PAGE_UP}), (Requests{{Request::NEXT_CHANNEL}}));
    EXPECT_EQ(mScreen.onKey({Key::LEFT}), (Requests{{Request::SEEK, -5000}}));
    EXPECT_EQ(type("~zZ"), Requests());
}

TEST_F(TerminalScreenTest, AChannelIsChosenFromTheList) {
    using Requests = std::vector<UserRequest>;
    mScreen.showState(liveState());
    mScreen.showChannels({{{"6.1", "ORV São João HD", "Notícias"},
                           {"6.2", "ORV 1SEG", ""},
                           {"061", "日本放送", "ニュース"}},
                          1});
    type("c");
    auto lines = text(50, 8);
    EXPECT_EQ(lines[0], "Channels  _                                 2 of 3");
    EXPECT_EQ(lines[1], "  6.1    ORV São João HD  Notícias");
    EXPECT_EQ(lines[2], "> 6.2    ORV 1SEG");
    EXPECT_EQ(lines[3], "  061    日本放送   ニュース");
    EXPECT_EQ(type("qm"), Requests()) << "they are typed";
    EXPECT_EQ(text(50, 8)[0], "Channels  qm_                                 none");
    EXPECT_EQ(mScreen.onKey({Key::ENTER}), Requests());
    mScreen.onKey({Key::BACKSPACE});
    mScreen.onKey({Key::BACKSPACE});
    mScreen.onKey({Key::CHARACTER, U'日'});
    EXPECT_EQ(text(50, 8)[1], "  061    日本放送   ニュース");
    EXPECT_EQ(mScreen.onKey({Key::ENTER}), (Requests{{Request::CHOOSE_CHANNEL, 2}}));
    EXPECT_EQ(text(50, 8)[0].substr(0, 8), "6.1  ORV") << "the list is closed";
    mScreen.onKey({Key::TAB});
    mScreen.onKey({Key::ESCAPE});
    EXPECT_EQ(type("q"), (Requests{{Request::QUIT}}));
}

TEST_F(TerminalScreenTest, HelpHasEveryKeyHoweverSmallItIs) {
    mScreen.showState(liveState());
    for (const auto& [columns, rows] : {std::pair(80, 24), std::pair(40, 6)}) {
        type("?");
        std::string seen = all(columns, rows);
        for (int i = 0; i < 20; ++i) {
            mScreen.onKey({Key::DOWN});
            seen += all(columns, rows);
        }
        for (const KeyHelp& key : keyHelp()) {
            EXPECT_NE(seen.find(key.what), std::string::npos) << key.what;
        }
        type("x");
        EXPECT_EQ(text(columns, rows)[0].substr(0, 3), "6.1");
    }
}

}  // namespace
}  // namespace orvplay
