#include "ZapControl.h"

#include <ctime>
#include <utility>

#include "ChannelSource.h"
#include "ExitCode.h"
#include "MonotonicTime.h"
#include "ServiceNames.h"
#include "ZapHistory.h"
#include "channels/ChannelList.h"
#include "dtv/SourceUri.h"

using nlohmann::json;
using orvclient::Status;

namespace orvplay {

namespace {

constexpr int64_t PICTURE_NS = 10'000'000'000;  // the longest wait for it

std::string timeNow() {
    const time_t now = time(nullptr);
    tm utc = {};
    char text[32] = "";
    gmtime_r(&now, &utc);
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::string titleOf(const Channel& channel) {
    return channel.number.empty() ? channel.name : channel.number + " " + channel.name;
}

json answerOf(const Channel& channel) {
    return {{"ok", true},
            {"channel", channel.name},
            {"number", channel.number},
            {"service", channel.serviceId}};
}

}  // namespace

void ZapControl::begin(const std::string& source, uint16_t serviceId) {
    ChannelList list;
    std::string error;
    list.load(&error);  // one that cannot be understood has no channels
    const auto services = namedServices(mParts.session.tuner(), 0).services;
    mLineup = lineupAround(source, serviceId, list.channels(), services,
                           mParts.session.tuner().information(0));
    showLineup();
    if (mLineup.current() != ChannelLineup::NONE) {
        remember(present());
    }
}

// Of services and of files alone nothing is remembered: what can be tuned anew by its name is.
void ZapControl::remember(const Channel& channel) {
    std::string error;
    const bool lasts = mLineup.isUsersList() || orvhost::SourceUri::isUri(channel.source);
    if (lasts && !keepChannel(channel, &error)) {
        mParts.messages.say("this channel is not remembered: " + error);
    }
}

void ZapControl::showLineup() {
    const int current = mLineup.current();
    const std::string here =
        current != ChannelLineup::NONE ? placeOf(sourceOf(present())) : std::string();
    std::vector<ChannelRow> rows;
    for (const Channel& channel : mLineup.entries()) {
        ChannelRow row{channel.number, channel.name};
        row.serviceId = channel.serviceId;
        row.isHere = placeOf(sourceOf(channel)) == here;
        rows.push_back(std::move(row));
    }
    mSteps.show(std::move(rows), current);
}

Status ZapControl::step(int by) {
    const int row = mLineup.next(by, base());
    return row != ChannelLineup::NONE
               ? aim(row)
               : Status{Status::REFUSED, mLineup.entries().empty() ? "what plays has no channels"
                                                                   : "there is no other channel"};
}

Status ZapControl::goBack() {
    const int row = mTarget != ChannelLineup::NONE ? mLineup.current() : mLineup.last();
    return row != ChannelLineup::NONE ? aim(row)
                                      : Status{Status::REFUSED, "there was no channel before"};
}

Status ZapControl::choose(int row) {
    return row >= 0 && row < static_cast<int>(mLineup.entries().size())
               ? aim(row)
               : Status{Status::REFUSED, "there is no such channel"};
}

// To the channel that plays, or comes, nothing is changed.
Status ZapControl::aim(int row) {
    if (mTarget != ChannelLineup::NONE || row != mLineup.current() || !mPlays) {
        mAskedNs = mTarget == ChannelLineup::NONE ? monotonicNs() : mAskedNs;
        mTarget = row;
    }
    return {};
}

bool ZapControl::serve(int connection, const json& request) {
    const auto textAt = [&request](const char* key) {
        const auto found = request.find(key);
        return found != request.end() && found->is_string() ? found->get<std::string>() : "";
    };
    const std::string command = textAt("command");
    Status status;
    if (command == "channel.next" || command == "channel.previous") {
        status = step(command == "channel.next" ? 1 : -1);
    } else if (command == "channel.last") {
        status = goBack();
    } else if (command == "channel.set") {
        const std::string wanted = textAt("channel");
        const int row = mLineup.find(wanted);
        status = row != ChannelLineup::NONE
                     ? aim(row)
                     : Status{Status::REFUSED,
                              "no channel \"" + wanted + "\" here; see: orvplay channels list"};
    } else {
        return false;
    }
    if (!status.ok()) {
        mServer.answer(connection,
                       {{"ok", false}, {"code", EXIT_NOT_FOUND}, {"message", status.message}});
    } else if (mTarget == ChannelLineup::NONE && !mAwaitsPicture) {
        mServer.answer(connection, answerOf(present()));
    } else {
        mAskers.push_back(connection);
    }
    return true;
}

void ZapControl::look(const PictureOutput::Figures& figures) {
    if (mAwaitsPicture) {
        awaitPicture(figures);
    }
    if (mTarget == ChannelLineup::NONE) {
        return;
    }
    if (!std::exchange(mHasLeft, true)) {
        mAwaitsPicture = false;
        mSteps.leave();
    } else {
        enter();
    }
}

void ZapControl::enter() {
    mHasLeft = false;
    mHasChanged = true;
    mLineup.setCurrent(std::exchange(mTarget, ChannelLineup::NONE));
    mTimes = ZapTimes(mAskedNs);
    const Failure failure = mSteps.enter(present(), &mTimes);
    mPlays = failure.code == EXIT_OK;
    if (!mPlays) {
        fail(failure);
        return;
    }
    mStartedNs = monotonicNs();
    mAwaitsPicture = true;
    mParts.events.write("channelChanged",
                        {{"channel", present().name}, {"service", present().serviceId}});
    tell(titleOf(present()));
    showLineup();
    remember(present());
}

void ZapControl::awaitPicture(const PictureOutput::Figures& figures) {
    if (figures.breakEndNs > mStartedNs) {
        finish(figures.breakEndNs);
    } else if (monotonicNs() - mTimes.commandNs() > PICTURE_NS) {
        finish(0);
    }
}

// `pictureNs`: 0 when none came.
void ZapControl::finish(int64_t pictureNs) {
    mAwaitsPicture = false;
    mParts.askService();
    const orvclient::PlaybackFigures& service = mParts.session.figures();
    mTimes.reach(ZapPart::PCR, service.firstPcrUs * 1000);
    mTimes.reach(ZapPart::IDR, service.firstIdrQueuedUs * 1000);
    mTimes.reach(ZapPart::AUDIO, service.firstSoundUs * 1000);
    mTimes.reach(ZapPart::GATE, pictureNs);
    const ZapRecord record{timeNow(), present().name, present().number, present().serviceId,
                           splitOf(mTimes)};
    std::string error;
    if (!keepZap(record, &error)) {
        mParts.messages.say("this change is not kept in the history: " + error);
    }
    mParts.events.write("zapped", toJson(record.split));
    json told = answerOf(present());
    told.update(json(toJson(record.split)));
    if (pictureNs == 0) {
        const std::string message =
            titleOf(present()) + ": no picture within 10 s; reached: " + textOf(record.split);
        tell(message);
        told.update({{"ok", false}, {"code", EXIT_NO_DATA}, {"message", message}});
    }
    answer(told);
}

bool ZapControl::takeFailure(const Failure& failure) {
    if (mHasChanged) {
        mAwaitsPicture = false;
        mPlays = false;
        fail(failure);
    }
    return mHasChanged;
}

void ZapControl::fail(const Failure& failure) {
    const std::string message = titleOf(present()) + ": " + failure.message;
    tell(message);
    showLineup();
    answer({{"ok", false}, {"code", failure.code}, {"message", message}});
}

void ZapControl::tell(const std::string& line) {
    mParts.messages.say(line);
    mParts.pictures.showStatus(line, false);
}

void ZapControl::answer(const json& answer) {
    for (const int asker : std::exchange(mAskers, {})) {
        mServer.answer(asker, answer);
    }
}

}  // namespace orvplay
