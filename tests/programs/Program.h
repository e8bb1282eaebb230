#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace orvtest {

// What became of a program that was run.
struct ProgramResult {
    int exitCode = -1;  // -1: it died of a signal or had to be killed
    bool timedOut = false;
    double seconds = 0.0;
    std::string out;
    std::string err;

    size_t errLines() const;
    // The JSON lines of standard output; a line that is none fails the test.
    std::vector<nlohmann::json> events() const;
    // The last line, when it is the summary; else an empty object.
    nlohmann::json summary() const;
};

// The player's program, run as a user runs it. Standard output and error are pipes; standard input
// is empty unless another descriptor is given.
//
//   Program program({"play", file, "--headless"});
//   ASSERT_TRUE(program.waitForOutput("onStartVideoTask", 10));
//   program.signal(SIGINT);
//   EXPECT_EQ(program.finish(2).exitCode, 130);
//
// Whatever happens, no process is left behind. Different objects may be used by different threads.
class Program {
public:
    explicit Program(const std::vector<std::string>& arguments, int stdinFd = -1,
                     const std::vector<std::string>& environment = {});
    // Another program by its path. `handedFd`, if any, is its descriptor of the same number.
    struct Other {
        std::string path;
        int handedFd = -1;
    };
    Program(const Other& program, const std::vector<std::string>& arguments,
            const std::vector<std::string>& environment = {});
    ~Program();
    Program(const Program&) = delete;  // owns a process
    Program& operator=(const Program&) = delete;

    // Whether `text` comes on standard output within so many seconds.
    bool waitForOutput(const std::string& text, double seconds);
    // Whether `text` comes on standard error; what was found there before does not count again.
    bool waitForError(const std::string& text, double seconds);
    void signal(int number);
    pid_t pid() const { return mPid; }
    // What was read so far.
    const std::string& output() const { return mResult.out; }
    // The player service that it started, once it has; -1 when it did not in time.
    pid_t awaitService(double seconds);
    // As a reader that has seen enough.
    void closeOutput();
    // Waits for the end, so many seconds at most; then the program is killed.
    ProgramResult finish(double seconds);

private:
    void start(const Other& program, const std::vector<std::string>& arguments, int stdinFd,
               const std::vector<std::string>& environment);
    bool readMore(double seconds);
    bool waitFor(const std::string& text, const std::string& where, size_t* from, double seconds);
    void reap(bool kill);

    pid_t mPid = -1;
    int mOutFd = -1;
    int mErrFd = -1;
    double mBegin = 0.0;
    size_t mErrorSeen = 0;  // of standard error, by waitForError()
    ProgramResult mResult;
};

// The player service that a program started, as above.
pid_t awaitServiceOf(pid_t program, double seconds);

ProgramResult runProgram(const std::vector<std::string>& arguments, double seconds = 30);

// Under a sanitizer everything takes several times as long, and figures of time say little.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool SANITIZED = true;
#else
inline constexpr bool SANITIZED = false;
#endif

}  // namespace orvtest
