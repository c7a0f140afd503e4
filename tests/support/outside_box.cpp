// outside_box.cpp: see outside_box.h.

#include "tests/support/outside_box.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/box_entry.h"

namespace test {

namespace {

constexpr uid_t ordinary_user = 65534;
constexpr int patience_ms = 20'000;

void become_ordinary_user() {
    if (setresgid(ordinary_user, ordinary_user, ordinary_user) != 0) _exit(125);
    if (setresuid(ordinary_user, ordinary_user, ordinary_user) != 0) _exit(125);
    unsetenv("XDG_RUNTIME_DIR");
}

[[noreturn]] void execute(const std::vector<std::string> &words, As caller, int output) {
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    if (caller == As::ordinary_user) become_ordinary_user();
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string &word : words) arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(125);
}

// An ordinary user may not get at a checkout in root's home folder.
bool ordinary_user_can_start_it() {
    const pid_t child = fork();
    if (child == 0) {
        become_ordinary_user();
        _exit(access(apbox_program().c_str(), X_OK) == 0 ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

std::vector<As> callers() {
    if (geteuid() != 0 || !ordinary_user_can_start_it()) return {As::caller};
    return {As::caller, As::ordinary_user};
}

const char *name_of(As caller) { return caller == As::caller ? "caller" : "ordinary_user"; }

Program::Program(const std::vector<std::string> &words, As caller) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) execute(words, caller, ends[1]);
    close(ends[1]);
    output_ = ends[0];
}

Program::~Program() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    close(output_);
}

void Program::signal(int number) const { kill(process_, number); }

bool Program::read_more(int timeout_ms) {
    pollfd wait{output_, POLLIN, 0};
    char block[4096];
    if (poll(&wait, 1, timeout_ms) <= 0) return false;
    const ssize_t got = read(output_, block, sizeof block);
    if (got > 0) read_.append(block, static_cast<size_t>(got));
    return got > 0;
}

bool Program::prints(const std::string &text) {
    while (read_.find(text) == std::string::npos)
        if (!read_more(patience_ms)) return false;
    return true;
}

Outcome Program::wait() {
    while (read_more(patience_ms)) {}
    int status = 0;
    for (int waited_ms = 0; waitpid(process_, &status, WNOHANG) == 0; waited_ms += 5) {
        if (waited_ms > patience_ms) kill(process_, SIGKILL);
        usleep(5000);
    }
    process_ = 0;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read_};
}

std::string apbox_program() {
    static const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    return self.parent_path().parent_path() / "bin/apbox";
}

Outcome apbox(const std::vector<std::string> &words, As caller) {
    std::vector<std::string> command = {apbox_program()};
    command.insert(command.end(), words.begin(), words.end());
    return Program(command, caller).wait();
}

std::vector<std::string> run_script(const std::string &script, const std::vector<std::string> &options) {
    std::vector<std::string> words = {"run"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {"--", "sh", "-c", script});
    return words;
}

Outcome script_in_box(const std::string &script, As caller, const std::vector<std::string> &options) {
    return apbox(run_script(script, options), caller);
}

TemporaryFolder::TemporaryFolder(As caller) : path_(std::filesystem::temp_directory_path() / "box_test.XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder");
    if (caller == As::ordinary_user && chown(path_.c_str(), ordinary_user, ordinary_user) != 0)
        throw std::runtime_error("no temporary folder for an ordinary user");
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

int main_outside_box(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
    const Outcome trial =
        in_box() ? Outcome{77, "tests of the box run outside of one\n"} : apbox({"run", "--", "true"});
    if (trial.status == 77) std::fputs(trial.output.c_str(), stderr);
    return trial.status == 77 ? 77 : RUN_ALL_TESTS();
}

}  // namespace test
