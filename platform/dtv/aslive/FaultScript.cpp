#include "dtv/aslive/FaultScript.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <string_view>

namespace orvhost {

namespace {

constexpr double NS = 1e9;
constexpr double LONGEST_S = 1000.0 * 3600;
constexpr double SHORTEST_S = 1e-3;
constexpr double SHORTEST_PERIOD_S = 0.1;
constexpr double TICKS_PER_S = 27e6;
constexpr double HALF_WRAP_S = 47'721.0;  // further is the other way round
constexpr double WRAP_IN_S = 5.0;
constexpr uint16_t LAST_PID = 0x1FFF;

// What the words of a kind of fault are, behind when it happens.
struct Form {
    const char* name;
    Fault::Kind kind;
    enum Value { NOTHING, RATE, BIT_RATE, LENGTH, JUMP, AHEAD } value;
    bool takesLength;
    const char* example;
};

constexpr Form FORMS[] = {
    {"drop", Fault::Kind::DROP, Form::RATE, true, "drop 1% for 5s"},
    {"gap", Fault::Kind::GAP, Form::LENGTH, false, "gap 8s"},
    {"bit-errors", Fault::Kind::BIT_ERRORS, Form::BIT_RATE, true, "bit-errors 1e-5 for 3s"},
    {"transport-errors", Fault::Kind::TRANSPORT_ERRORS, Form::RATE, true,
     "transport-errors 1% for 5s"},
    {"scramble", Fault::Kind::SCRAMBLE, Form::NOTHING, true, "scramble for 2s"},
    {"duplicate", Fault::Kind::DUPLICATE, Form::RATE, true, "duplicate 1% for 5s"},
    {"reorder", Fault::Kind::REORDER, Form::RATE, true, "reorder 1% for 5s"},
    {"no-pcr", Fault::Kind::NO_PCR, Form::NOTHING, true, "no-pcr for 5s"},
    {"pcr-jump", Fault::Kind::PCR_JUMP, Form::JUMP, false, "pcr-jump +2h"},
    {"time-jump", Fault::Kind::TIME_JUMP, Form::JUMP, false, "time-jump -10m"},
    {"wrap", Fault::Kind::WRAP, Form::AHEAD, false, "wrap in 5s"},
};

bool readNumber(std::string_view text, double* value, std::string_view* rest) {
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), *value);
    if (parsed.ec != std::errc() || !std::isfinite(*value)) {
        return false;
    }
    *rest = text.substr(static_cast<size_t>(parsed.ptr - text.data()));
    return true;
}

// "90s", "1.5m", "500ms", "1h30m".
bool readSeconds(std::string_view text, double* seconds) {
    constexpr std::pair<std::string_view, double> UNITS[] = {
        {"ms", 1e-3}, {"s", 1.0}, {"m", 60.0}, {"h", 3600.0}};
    *seconds = 0.0;
    bool isFirst = true;
    while (isFirst || !text.empty()) {
        double number = 0.0;
        if (!readNumber(text, &number, &text) || number < 0.0) {
            return false;
        }
        const size_t length = std::min(text.find_first_of("0123456789."), text.size());
        const auto unit = std::find_if(std::begin(UNITS), std::end(UNITS), [&](const auto& u) {
            return u.first == text.substr(0, length);
        });
        if (unit == std::end(UNITS)) {
            return false;
        }
        *seconds += number * unit->second;
        text.remove_prefix(length);
        isFirst = false;
    }
    return *seconds <= LONGEST_S;
}

// One line of a script, word by word. The first thing that is wrong is kept.
class Line {
public:
    explicit Line(std::string_view text) : mText(text.substr(0, text.find('#'))) { skipBlanks(); }

    bool isEmpty() const { return mText.empty(); }
    const std::string& error() const { return mError; }
    std::string_view rest() const { return mText.substr(0, mText.find_last_not_of(BLANKS) + 1); }

    std::string_view next() {
        const std::string_view word = peek();
        mText.remove_prefix(word.size());
        skipBlanks();
        return word;
    }

    bool skip(std::string_view word) {
        const bool isThere = peek() == word;
        if (isThere) {
            next();
        }
        return isThere;
    }

    bool fail(const std::string& error) {
        mError = mError.empty() ? error : mError;
        return false;
    }

    bool readLength(const std::string& what, double least, int64_t* ns) {
        const std::string word(next());
        double seconds = 0.0;
        const bool isTime = readSeconds(word, &seconds);
        if (isTime && seconds < least) {
            return fail(what + ": \"" + shown(word) + "\" is too short");
        }
        if (!isTime) {
            return fail(what + ": \"" + shown(word) +
                        "\" is no time; write 500ms, 10s, 2m or 1h30m");
        }
        *ns = std::llround(seconds * NS);
        return true;
    }

    // What a terminal would obey is not repeated.
    static std::string shown(std::string_view text) {
        std::string out(text.substr(0, 40));
        std::replace_if(
            out.begin(), out.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
        return out;
    }

private:
    static constexpr char BLANKS[] = " \t\r";

    std::string_view peek() const { return mText.substr(0, mText.find_first_of(BLANKS)); }
    void skipBlanks() {
        mText.remove_prefix(std::min(mText.find_first_not_of(BLANKS), mText.size()));
    }

    std::string_view mText;
    std::string mError;
};

std::string namesOfForms() {
    std::string names;
    for (const Form& form : FORMS) {
        names += (names.empty() ? "" : ", ") + std::string(form.name);
    }
    return names;
}

// "1%" or "0.01".
bool readRate(Line& line, const Form& form, double* rate) {
    const std::string word(line.next());
    std::string_view rest;
    const bool isNumber = readNumber(word, rate, &rest);
    if (isNumber && rest == "%") {
        *rate /= 100.0;
        rest = {};
    }
    return (isNumber && rest.empty() && *rate > 0.0 && *rate <= 1.0) ||
           line.fail(std::string(form.name) + ": \"" + Line::shown(word) +
                     "\" is no share; write, say, " + form.example);
}

bool readJump(Line& line, const Form& form, Fault* fault) {
    const std::string word(line.next());
    const bool isSigned = !word.empty() && (word[0] == '+' || word[0] == '-');
    double seconds = 0.0;
    if (!isSigned || !readSeconds(std::string_view(word).substr(1), &seconds) ||
        seconds < SHORTEST_S || seconds > HALF_WRAP_S) {
        return line.fail(std::string(form.name) + ": \"" + Line::shown(word) +
                         "\" is no jump; write +2h, -10m or +500ms, at most 13h");
    }
    fault->ticks27M = std::llround(seconds * 1000) * 27'000 * (word[0] == '-' ? -1 : 1);
    fault->isAnnounced = line.skip("announced");
    return true;
}

bool readValue(Line& line, const Form& form, Fault* fault) {
    switch (form.value) {
        case Form::RATE:
        case Form::BIT_RATE:
            return readRate(line, form, &fault->rate);
        case Form::LENGTH:
            line.skip("for");
            return line.readLength(form.name, SHORTEST_S, &fault->lengthNs);
        case Form::JUMP:
            return readJump(line, form, fault);
        case Form::AHEAD: {
            int64_t aheadNs = static_cast<int64_t>(WRAP_IN_S * NS);
            if (line.skip("in") && !line.readLength("wrap in", SHORTEST_S, &aheadNs)) {
                return false;
            }
            fault->ticks27M = std::llround(static_cast<double>(aheadNs) / NS * TICKS_PER_S);
            fault->isAnnounced = line.skip("announced");
            return true;
        }
        default:
            return true;
    }
}

bool readPid(Line& line, Fault* fault) {
    const std::string word(line.next());
    const bool isHex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    const char* const begin = word.data() + (isHex ? 2 : 0);
    const char* const end = word.data() + word.size();
    const auto parsed = std::from_chars(begin, end, fault->pid, isHex ? 16 : 10);
    return (parsed.ec == std::errc() && parsed.ptr == end && fault->pid <= LAST_PID) ||
           line.fail("pid: \"" + Line::shown(word) + "\" is no PID; write 273 or 0x111");
}

bool readFault(Line& line, Fault* fault) {
    fault->text = Line::shown(line.rest());
    const std::string name(line.next());
    const auto form = std::find_if(std::begin(FORMS), std::end(FORMS),
                                   [&](const Form& f) { return f.name == name; });
    if (form == std::end(FORMS)) {
        return line.fail("\"" + Line::shown(name) + "\" is no fault; there are " + namesOfForms());
    }
    fault->kind = form->kind;
    if (!readValue(line, *form, fault)) {
        return false;
    }
    if (form->takesLength) {
        if (!line.skip("for")) {
            return line.fail(name + " lasts; write, say, " + form->example);
        }
        if (!line.readLength(name, SHORTEST_S, &fault->lengthNs)) {
            return false;
        }
        if (line.skip("pid") && !readPid(line, fault)) {
            return false;
        }
    }
    return true;
}

bool readLine(Line& line, FaultScript* script) {
    const std::string first(line.next());
    if (first == "seed") {
        const std::string word(line.next());
        const char* const end = word.data() + word.size();
        const auto parsed = std::from_chars(word.data(), end, script->seed);
        if (parsed.ec != std::errc() || parsed.ptr != end) {
            return line.fail("seed: \"" + Line::shown(word) + "\" is no number");
        }
    } else if (first == "at" || first == "every") {
        const bool isRepeated = first == "every";
        Fault fault;
        if (!line.readLength(first, isRepeated ? SHORTEST_PERIOD_S : 0.0, &fault.atNs) ||
            !readFault(line, &fault)) {
            return false;
        }
        fault.everyNs = isRepeated ? fault.atNs : 0;
        if (script->faults.size() == FaultScript::MAX_FAULTS) {
            return line.fail("more than " + std::to_string(FaultScript::MAX_FAULTS) + " faults");
        }
        script->faults.push_back(std::move(fault));
    } else {
        return line.fail("\"" + Line::shown(first) +
                         "\": a line begins with at, every or seed; write, say, at 10s drop 1% "
                         "for 5s");
    }
    return line.isEmpty() ||
           line.fail("\"" + Line::shown(line.rest()) + "\" is too much; leave it out");
}

}  // namespace

std::optional<FaultScript> FaultScript::parse(const std::string& text, std::string* error) {
    if (text.size() > MAX_BYTES) {
        *error = "longer than 64 KiB";
        return std::nullopt;
    }
    FaultScript script;
    std::string_view left = text;
    for (int number = 1; !left.empty(); ++number) {
        const std::string_view one = left.substr(0, left.find('\n'));
        left.remove_prefix(std::min(one.size() + 1, left.size()));
        Line line(one);
        if (!line.isEmpty() && !readLine(line, &script)) {
            *error = "line " + std::to_string(number) + ": " + line.error();
            return std::nullopt;
        }
    }
    return script;
}

}  // namespace orvhost
