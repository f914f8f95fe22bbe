// Runs an application and, when it crashes, starts the crash reporter: an example for starting it from C++.
//
//   launcher [-remotename NAME] REPORTER FOLDER APPLICATION [ARGUMENT...]
//
// The process that notices a crash is another one than the process that crashed: this one waits for the application, so
// it needs no signal handler, in whose place next to nothing may be called. It writes a crash log into FOLDER, starts
// the reporter, and ends as the application did, without waiting for a person to read a window.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kUsageError = 2;
constexpr int kCannotBeStarted = 127;

struct Options {
    std::string remoteName;
    std::string reporter;
    std::filesystem::path folder;
    std::vector<std::string> application;
};

std::optional<Options> readOptions(std::vector<std::string> words)
{
    Options options;
    if (words.size() > 2 && words[0] == "-remotename") {
        options.remoteName = words[1];
        words.erase(words.begin(), words.begin() + 2);
    }
    if (words.size() < 3) {
        return std::nullopt;
    }
    options.reporter = words[0];
    options.folder = words[1];
    options.application.assign(words.begin() + 2, words.end());
    return options;
}

/// The pointers that exec(3) and its relatives take; the texts must outlive them.
std::vector<char *> pointersTo(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// What waitpid(2) says of the application once it has ended; nothing when it cannot be started.
std::optional<int> waitForApplication(std::vector<std::string> application)
{
    pid_t child = 0;
    if (posix_spawnp(&child, application[0].c_str(), nullptr, nullptr, pointersTo(application).data(), environ) != 0) {
        return std::nullopt;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return std::nullopt;
        }
    }
    return status;
}

/// Whether it crashed: an end by SIGTERM or SIGKILL is somebody's wish, and no crash.
bool isCrash(int status)
{
    constexpr std::array kCrashSignals = {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP};
    return WIFSIGNALED(status)
        && std::find(kCrashSignals.begin(), kCrashSignals.end(), WTERMSIG(status)) != kCrashSignals.end();
}

/// A reporter that crashes is not reported by another one, which would crash just so, for as long as the session lasts.
bool isReporter(const Options &options)
{
    return std::filesystem::path(options.application[0]).filename()
        == std::filesystem::path(options.reporter).filename();
}

/// The time of day here, as in "2026-11-02-101500".
std::string now()
{
    const std::time_t seconds = std::time(nullptr);
    std::array<char, 64> text = {};
    std::tm local = {};
    std::strftime(text.data(), text.size(), "%Y-%m-%d-%H%M%S", localtime_r(&seconds, &local));
    return text.data();
}

/// The crash log's path; nothing when it cannot be written. The reporter takes what stands before the first underscore
/// for the application's name; by the first two lines desktops know a crash log of ours. A real launcher writes what
/// its own crash handler has collected: valid UTF-8, or the reporter shows nothing.
std::optional<std::filesystem::path> writeCrashLog(const Options &options, int signal)
{
    const std::string name = std::filesystem::path(options.application[0]).filename();
    const std::filesystem::path path = options.folder / (name + "_" + now() + ".crash");
    // Readable to this user alone: what an application was doing is nobody else's business.
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return std::nullopt;
    }
    std::FILE *const file = fdopen(descriptor, "w");
    std::fprintf(file, "Process:               %s\nIdentifier:            com.korvale.%s\n", name.c_str(),
                 name.c_str());
    std::fprintf(file, "Date/Time:             %s\nException Type:        %s\n", now().c_str(), strsignal(signal));
    return std::fclose(file) == 0 ? std::optional(path) : std::nullopt;
}

/// This process's environment without what was meant for the crashed application alone: with its libraries or plugins,
/// the reporter might crash as it did. What remains leads to the display, the bus, the home and the language.
std::vector<std::string> environmentOfReporter()
{
    constexpr std::array<std::string_view, 4> kOfApplication = {
        "LD_LIBRARY_PATH=", "LD_PRELOAD=", "QT_PLUGIN_PATH=", "QT_QPA_PLATFORM_PLUGIN_PATH="};
    std::vector<std::string> kept;
    for (char **variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text = *variable;
        const bool isOfApplication = std::any_of(kOfApplication.begin(), kOfApplication.end(),
                                                 [text](std::string_view start) { return text.starts_with(start); });
        if (!isOfApplication) {
            kept.emplace_back(text);
        }
    }
    return kept;
}

/// The reporter's command line: a machine's name for a crash that happened on another machine than this one, which the
/// headline then names; otherwise the file alone, and the headline names the application.
std::vector<std::string> reporterArguments(const Options &options, const std::filesystem::path &crashLog)
{
    if (options.remoteName.empty()) {
        return {options.reporter, crashLog};
    }
    return {options.reporter, "-remotename", options.remoteName, "-log", crashLog};
}

/// Starts the reporter so that it outlives this process, its terminal and its group, with no open file of this process
/// and no signal blocked or ignored. Returns an error number, or 0.
int startReporter(const Options &options, const std::filesystem::path &crashLog)
{
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    // What the reporter has to say stands in the system's log as well.
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

    std::vector<std::string> arguments = reporterArguments(options, crashLog);
    std::vector<std::string> environment = environmentOfReporter();
    pid_t reporter = 0;
    const int error = posix_spawnp(&reporter, options.reporter.c_str(), &actions, &attributes,
                                   pointersTo(arguments).data(), pointersTo(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error;
}

void reportCrash(const Options &options, int signal)
{
    const std::optional<std::filesystem::path> crashLog = writeCrashLog(options, signal);
    if (!crashLog) {
        std::perror("launcher: no crash log could be written");
        return;
    }
    if (const int error = startReporter(options, *crashLog)) {
        std::fprintf(stderr, "launcher: %s: %s\n", options.reporter.c_str(), std::strerror(error));
    }
}

} // namespace

int main(int argc, char **argv)
{
    // Inherited as ignored, it would take an ended child away before anybody could ask how it ended.
    std::signal(SIGCHLD, SIG_DFL);
    const std::optional<Options> options = readOptions({argv + std::min(argc, 1), argv + argc});
    if (!options) {
        std::fputs("usage: launcher [-remotename NAME] REPORTER FOLDER APPLICATION [ARGUMENT...]\n", stderr);
        return kUsageError;
    }
    const std::optional<int> status = waitForApplication(options->application);
    if (!status) {
        std::fprintf(stderr, "launcher: %s cannot be started\n", options->application[0].c_str());
        return kCannotBeStarted;
    }
    if (isCrash(*status) && !isReporter(*options)) {
        reportCrash(*options, WTERMSIG(*status));
    }
    // As a shell tells an end by a signal.
    constexpr int kSignalBase = 128;
    return WIFSIGNALED(*status) ? kSignalBase + WTERMSIG(*status) : WEXITSTATUS(*status);
}
