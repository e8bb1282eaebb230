#include "ZapCommand.h"

#include <cstdio>
#include <ctime>

#include "ControlSocket.h"
#include "ExitCode.h"
#include "Interrupt.h"
#include "PlayerChoice.h"
#include "ZapHistory.h"

namespace orvplay {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr timespec PAUSE{3, 0};  // between repeated changes: a while that plays

int fail(int code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

void printLine(const ordered_json& line) {
    printf("%s\n", line.dump(-1, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

void printRow(const std::string& title, const ZapSplit& split, const std::string& channel) {
    printf("%-20s %7.0f", title.c_str(), split.totalMs);
    for (size_t part = 0; part < ZAP_PARTS; ++part) {
        if (part < split.parts) {
            printf(" %7.0f", split.partMs[part]);
        } else {
            printf(" %7s", "-");
        }
    }
    printf("%s%s\n", channel.empty() ? "" : "  ", channel.c_str());
}

void printHead() {
    printf("%-20s %7s", "time, in ms", "total");
    for (const char* name : ZAP_PART_NAMES) {
        printf(" %7s", name);
    }
    printf("  channel\n");
}

std::string titleOf(const ZapRecord& record) {
    return record.number.empty() ? record.channel : record.number + " " + record.channel;
}

void print(const ZapRecord& record, bool asJson) {
    if (asJson) {
        printLine(toJson(record));
    } else {
        printRow(record.time, record.split, titleOf(record));
    }
    fflush(stdout);
}

void printSummary(const std::vector<ZapRecord>& records, bool asJson) {
    const ZapSplit median = medianOf(records);
    const ZapSplit worst = worstOf(records);
    if (asJson) {
        printLine({{"event", "summary"},
                   {"count", records.size()},
                   {"median", toJson(median)},
                   {"worst", toJson(worst)}});
    } else {
        printRow("median", median, "");
        printRow("worst", worst, "");
    }
}

int showHistory(const ZapOptions& options) {
    const std::vector<ZapRecord> records = lastZaps(static_cast<size_t>(options.lines));
    if (records.empty() && !options.json) {
        return fail(EXIT_OK, "no channel was changed yet");
    }
    if (!options.json) {
        printHead();
    }
    for (const ZapRecord& record : records) {
        print(record, options.json);
    }
    printSummary(records, options.json);
    return EXIT_OK;
}

json requestOf(const std::string& channel) {
    return channel == "next" || channel == "previous" || channel == "last"
               ? json{{"command", "channel." + channel}}
               : json{{"command", "channel.set"}, {"channel", channel}};
}

void printSplit(const json& answer, const ZapRecord& record, bool asJson) {
    if (asJson) {
        ordered_json line = {
            {"channel", record.channel}, {"number", record.number}, {"service", record.serviceId}};
        line.update(toJson(record.split));
        printLine(line);
    } else if (answer.contains("totalMs")) {
        printf("%s: first picture after %.0f ms: %s\n", titleOf(record).c_str(),
               record.split.totalMs, textOf(record.split).c_str());
    } else {
        printf("%s: plays already\n", titleOf(record).c_str());
    }
    fflush(stdout);
}

// One change. The exit code; what came of it is printed.
int zapOnce(int player, const ZapOptions& options, ZapRecord* record) {
    json answer;
    std::string error;
    if (!askPlayer(player, requestOf(options.channel), &answer, &error)) {
        return fail(EXIT_SERVICE, error);
    }
    json given = answer;
    given["time"] = "-";
    fromJson(given, record);
    const bool ok = answer.value("ok", json(false)) == json(true);
    if (ok || record->split.parts > 0) {
        if (ok || options.json) {
            printSplit(answer, *record, options.json);
        }
    }
    if (!ok) {
        const json code = answer.value("code", json(EXIT_FAILED));
        const json message = answer.value("message", json("the player did not do it"));
        return fail(code.is_number_integer() ? code.get<int>() : int{EXIT_FAILED},
                    message.is_string() ? message.get<std::string>() : message.dump());
    }
    return EXIT_OK;
}

}  // namespace

int zapCommand(const ZapOptions& options) {
    if (options.history) {
        return showHistory(options);
    }
    const PlayerChoice choice = choosePlayer(options.player, EXIT_SERVICE);
    if (choice.pid == 0) {
        return fail(choice.code, choice.message);
    }
    Interrupt::install();
    std::vector<ZapRecord> records;
    int code = EXIT_OK;
    for (int i = 0; i < options.count && !Interrupt::requested(); ++i) {
        if (i > 0) {
            nanosleep(&PAUSE, nullptr);  // which a signal ends
        }
        if (Interrupt::requested()) {
            break;
        }
        ZapRecord record;
        code = zapOnce(choice.pid, options, &record);
        if (code != EXIT_OK) {
            break;
        }
        records.push_back(std::move(record));
    }
    if (options.count > 1 && !records.empty()) {
        if (!options.json) {
            printHead();
        }
        printSummary(records, options.json);
    }
    return Interrupt::requested() ? int{EXIT_INTERRUPTED} : code;
}

}  // namespace orvplay
