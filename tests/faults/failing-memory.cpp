// Preloaded into the program: lets an allocation of the main thread fail, and tells where the program crashes, if it
// does. What is counted, from SIGUSR1 on, are the stacks that have not asked for memory before: who asks once more from
// the very same place goes the very same way without it.
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <utility>
#include <vector>

namespace {

std::atomic<bool> armed = false;
std::atomic<long> counted = 0;
long failAt = 0;

/// Whether memory is asked for from here for the first time.
bool isNewStack()
{
    static std::set<std::vector<void *>> known;
    std::vector<void *> frames(200);
    frames.resize(std::size_t(::backtrace(frames.data(), int(frames.size()))));
    return known.insert(std::move(frames)).second;
}

bool mustFail()
{
    if (!armed || ::gettid() != ::getpid()) {
        return false;
    }
    // To look at the stack takes memory, too.
    armed = false;
    const bool isNew = isNewStack();
    armed = true;
    return isNew && ++counted == failAt;
}

/// Writes who has called whom into the file that the variable names.
void writeStack(const char *variable)
{
    armed = false;
    const char *path = std::getenv(variable);
    const int file = path ? ::open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600) : -1;
    if (file >= 0) {
        std::array<void *, 40> frames = {};
        ::backtrace_symbols_fd(frames.data(), ::backtrace(frames.data(), frames.size()), file);
        ::close(file);
    }
}

void *failed()
{
    writeStack("KORVALE_REFUSED_TO");
    errno = ENOMEM;
    return nullptr;
}

void arm(int /*signal*/)
{
    armed = true;
}

/// Whoever goes on without the memory is at fault, be it who has asked for it or not. The end stays the signal's.
void crash(int signal)
{
    writeStack("KORVALE_CRASHED_TO");
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// The number of allocations, for a run in which none fails.
void writeCount()
{
    armed = false;
    const char *path = std::getenv("KORVALE_COUNT_TO");
    std::FILE *file = path ? std::fopen(path, "w") : nullptr;
    if (file) {
        std::fprintf(file, "%ld\n", counted.load());
        std::fclose(file);
    }
}

__attribute__((constructor)) void begin()
{
    const char *number = std::getenv("KORVALE_FAIL_AT");
    failAt = number ? std::atol(number) : 0;
    std::signal(SIGUSR1, arm);
    std::signal(SIGSEGV, crash);
    std::signal(SIGABRT, crash);
    std::atexit(writeCount);
}

} // namespace

extern "C" {

// The C library's own entry points.
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);

void *malloc(std::size_t size)
{
    return mustFail() ? failed() : __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size)
{
    return mustFail() ? failed() : __libc_calloc(count, size);
}

void *realloc(void *block, std::size_t size)
{
    return mustFail() ? failed() : __libc_realloc(block, size);
}

void *aligned_alloc(std::size_t alignment, std::size_t size)
{
    return mustFail() ? failed() : __libc_memalign(alignment, size);
}

int posix_memalign(void **block, std::size_t alignment, std::size_t size)
{
    *block = mustFail() ? failed() : __libc_memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}

} // extern "C"
