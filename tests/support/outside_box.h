// outside_box.h: for tests of the box itself, which stay outside and look at it from there.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace test {

// Who calls apbox: whoever runs the test, or, when that is root, an ordinary user too.
enum class As { caller, ordinary_user };
std::vector<As> callers();
const char *name_of(As caller);

struct Outcome {
    int status;          // as a shell counts: 128 and the signal's number for a killed program
    std::string output;  // standard output and error
};

// A program that was started outside; killed at its end when it still runs.
class Program {
public:
    Program(const std::vector<std::string> &words, As caller);
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program();

    void signal(int number) const;
    // Reads until `text` has been printed; false when the program ended without, or after 20 seconds.
    bool prints(const std::string &text);
    Outcome wait();

private:
    bool read_more(int timeout_ms);

    pid_t process_ = 0;
    int output_ = -1;
    std::string read_;
};

// `apbox WORDS...`, from start to end.
Outcome apbox(const std::vector<std::string> &words, As caller = As::caller);

// `apbox run OPTIONS... -- sh -c SCRIPT`
std::vector<std::string> run_script(const std::string &script, const std::vector<std::string> &options = {});
Outcome script_in_box(const std::string &script, As caller = As::caller, const std::vector<std::string> &options = {});

std::string apbox_program();

// A new empty folder that the caller may write to, removed at the end.
class TemporaryFolder {
public:
    explicit TemporaryFolder(As caller = As::caller);
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    ~TemporaryFolder();
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

// The main of such a test program: 77 where the machine allows no box.
int main_outside_box(int argc, char **argv);

}  // namespace test
