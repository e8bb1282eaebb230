#include <unistd.h>

#include <cstdio>

#include "ChannelSource.h"
#include "EventLog.h"
#include "HumanText.h"
#include "Interrupt.h"
#include "Messages.h"
#include "RecordCommand.h"
#include "RecordRun.h"
#include "RecordingFailure.h"
#include "RecordingText.h"

using orvclient::Recordings;
using orvhost::RecordingDetails;
using orvhost::RecordingResult;

namespace orvplay {

namespace {

// What is done to the recordings of one service, and told.
class RecordingsRun {
public:
    RecordingsRun(const RecordingsOptions& options, Recordings& recordings)
        : mOptions(options), mRecordings(recordings), mLog(options.json) {}

    int run() {
        switch (mOptions.action) {
            case RecordingsOptions::Action::LIST:
                return list();
            case RecordingsOptions::Action::SHOW:
                return forEachNumber([this](int number) { return show(number); });
            case RecordingsOptions::Action::REMOVE:
                return forEachNumber([this](int number) { return remove(number); });
            case RecordingsOptions::Action::IMPORT:
                return import();
        }
        return EXIT_FAILED;
    }

private:
    int fail(const RecordingResult& result) {
        return mMessages.fail(exitCodeOf(result.status), result.message);
    }

    int list() {
        const orvhost::RecordingList list = mRecordings.list();
        if (!list.result.ok()) {
            return fail(list.result);
        }
        for (const RecordingDetails& recording : list.recordings) {
            mLog.writeLine(toJson(recording));
        }
        if (!mOptions.json) {
            fputs(tableOf(list.recordings).c_str(), stdout);
        }
        return EXIT_OK;
    }

    int show(int number) {
        RecordingDetails recording;
        if (const RecordingResult found = mRecordings.find(number, &recording); !found.ok()) {
            return fail(found);
        }
        mLog.writeLine(toJson(recording));
        if (!mOptions.json) {
            fputs(describe(recording).c_str(), stdout);
        }
        return EXIT_OK;
    }

    int remove(int number) {
        const RecordingResult removed = mRecordings.remove(number);
        return removed.ok() ? int{EXIT_OK} : fail(removed);
    }

    int import() {
        RecordingDetails recording;
        const RecordingResult imported = mRecordings.importFile(
            mOptions.file, {mOptions.channel, mOptions.name, mOptions.storage},
            [this](int64_t done, int64_t total) {
                const int64_t percent = total > 0 ? done * 100 / total : 0;
                mMessages.line().show("importing: " + std::to_string(percent) + " %, " +
                                      sizeText(done) + " of " + sizeText(total));
                return !Interrupt::requested();
            },
            &recording);
        mMessages.line().clear();
        if (Interrupt::requested() && !imported.ok()) {
            return EXIT_INTERRUPTED;
        }
        if (!imported.ok()) {
            return fail(imported);
        }
        mLog.writeLine(toJson(recording));
        if (!mOptions.json) {
            printf("%d\n", recording.number);
        }
        return EXIT_OK;
    }

    // All of them, whatever became of the others; the first failure is the exit code.
    template <typename Action>
    int forEachNumber(Action action) {
        int code = EXIT_OK;
        for (const int number : mOptions.numbers) {
            const int ended = action(number);
            code = code == EXIT_OK ? ended : code;
        }
        return code;
    }

    const RecordingsOptions& mOptions;
    Recordings& mRecordings;
    EventLog mLog;
    Messages mMessages;
};

}  // namespace

int recordCommand(const RecordOptions& given) {
    RecordOptions options = given;
    options.silent = true;
    if (const int code = resolveChannel(&options); code != EXIT_OK) {
        return code;
    }
    Interrupt::install();
    return RecordRun(options).run();
}

int recordingsCommand(const RecordingsOptions& options) {
    Interrupt::install();
    PlayerSession session(options, {});
    std::string error;
    if (!session.connectAside(&error)) {
        return Messages().fail(EXIT_SERVICE, error);
    }
    return RecordingsRun(options, session.player().recordings()).run();
}

}  // namespace orvplay
