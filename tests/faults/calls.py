"""Every system call and allocation that is made to fail once: which calls, and with which errors.

The errors are those that the calls' manuals name, without those that a mistake in the program alone could bring about.
However it ends, a person sees it: the report was accepted, and whole; or an alert; or a line, and exit status 1. Only a
crash log that cannot be read ends it without a word: there is nothing to show.
"""

from calls_world import Calls, Memory
from situation import Group, SENDING

FILES = ("EACCES", "ENOENT", "ELOOP", "ENOTDIR", "ENOMEM", "EIO")
DESCRIPTORS = ("EMFILE", "ENFILE", "ENOMEM")
SPACE = ("ENOSPC", "EDQUOT", "EIO")
# Where what lies below the program ends it, or leaves it without an end, whatever the program does.
NO_WINDOW = "no window and no end"
LOST_CONNECTION = "libxcb gives the connection up, and the toolkit's thread that reads from it waits forever"
NO_CONNECTION = "the toolkit's plug-in for X goes on with the answers that libxcb has not got"
LOST_WAKING = "the toolkit's event loop sleeps on when the write to its eventfd has failed, which eventfd(2) rules out"
# A thread is not made where its stack, of the usual 8 MiB, is not to be had either.
NO_THREAD = r"clone3\(|MAP_STACK|mprotect\(0x\w+, 8388608, PROT_READ\|PROT_WRITE\)"
PLACES = (
    (r"writev\(\d+<socket:", NO_WINDOW, LOST_CONNECTION),
    (r"writev\(\d+<socket:", SENDING, LOST_CONNECTION),
    (r"writev\(\d+<socket:", "ended by SIGSEGV", NO_CONNECTION),
    # The display's is the first that is opened; the server's must not be among these.
    (r"recvfrom\(3<socket:", NO_WINDOW, LOST_CONNECTION),
    (r"recvfrom\(3<socket:", SENDING, LOST_CONNECTION),
    (r"recvmsg\(\d+<socket:", "ended by SIGSEGV", NO_CONNECTION),
    (r"recvmsg\(\d+<socket:", SENDING, LOST_CONNECTION),
    (r"poll\(\[\{fd=\d+<socket:", "ended by SIGSEGV", NO_CONNECTION),
    (r"poll\(\[\{fd=\d+<socket:", NO_WINDOW, LOST_CONNECTION),
    (r"poll\(\[\{fd=\d+<socket:", SENDING, LOST_CONNECTION),
    (r"write\(\d+<anon_inode:\[eventfd\]>", NO_WINDOW, LOST_WAKING),
    (r"write\(\d+<anon_inode:\[eventfd\]>", SENDING, LOST_WAKING),
    (NO_THREAD, NO_WINDOW, "the toolkit waits for a thread that was not made"),
    (NO_THREAD, SENDING, "the toolkit reads the display's events in a thread, and goes on alone"),
    # Of an open file neither can fail.
    (r"fcntl\(\d+<socket:[^)]*F_[GS]ETFL", SENDING, "libcurl goes on with a socket that waits"),
    # The system closes it also where it says that it could not; strace does not.
    (r"close\(\d+<pipe:", SENDING, "who waits for a pipe's end waits for one that strace has left open"),
    (r"getrandom\(", "ended by SIGABRT", "the C library's arc4random ends a program that gets no random numbers"),
)


def crashed_in(library, symbol):
    """The stack of a crash inside this function: further in there are libraries only."""
    return rf"\A(?:(?!.*korvale-crash-reporter).*\n){{0,8}}.*/{library}[.]so[^(]*\({symbol}"


MEMORY_PLACES = (
    (crashed_in("libcrypto", "CRYPTO_THREAD_read_lock"), "ended by SIGSEGV", "OpenSSL goes on without memory"),
    (crashed_in("libX11", "_XSend"), "ended by SIGABRT", "libX11 asserts that there is memory for a request"),
    (r"\(__libc_free.*\n.*/libcurl[.]so", "ended by SIGABRT", "libcurl frees twice what it has of a TLS session"),
    (r"/libglib-2[.]0[.]so[^(]*\(g_\w*alloc", "ended by SIGTRAP", "GLib ends a program that gets no memory"),
    (r"\A(?:.*/libxcb.*\n){2}", SENDING, "libxcb gives up its connection, and the toolkit's thread waits for it"),
)

SHARES = 4
# The calls come in families, so that a quick look has some of each.
SYSTEM = Group("calls: system", "calls_world", prints_runs=True, rows=(
    Calls("files are opened", {"openat": ("EACCES", "ENOENT", "EMFILE", "ENFILE", "ENOMEM", "EINTR", "EIO")}),
    Calls("files are looked at", {
        "newfstatat": FILES, "statx": FILES, "access": FILES, "readlink": FILES, "getdents64": ("ENOENT", "EIO"),
        "statfs": ("EACCES", "EIO", "ENOSYS"), "fstatfs": ("EIO", "ENOSYS"), "getcwd": ("EACCES", "ENOENT", "ENOMEM"),
        "lseek": ("ESPIPE",)}),
    Calls("files are read", {
        "read": ("EIO", "EINTR", "EAGAIN", "EISDIR"), "pread64": ("EIO", "EINTR"), "fadvise64": ("EINVAL",)}),
    Calls("files are written", places=PLACES, errors={
        "write": (*SPACE, "EINTR", "EAGAIN"), "fdatasync": SPACE, "fsync": SPACE, "linkat": (*SPACE, "EPERM", "EEXIST"),
        "rename": (*SPACE, "EACCES", "EPERM"), "unlink": ("EACCES", "EIO"), "mkdir": (*SPACE, "EACCES", "EEXIST"),
        "flock": ("ENOLCK", "EINTR", "EAGAIN"), "chmod": ("EPERM", "EROFS"), "fchmod": ("EPERM", "EROFS"),
        "ftruncate": ("EIO", "EINTR")}),
    Calls("the display and the server are spoken to", places=PLACES, errors={
        "socket": (*DESCRIPTORS, "EACCES", "ENOBUFS", "EAFNOSUPPORT"), "socketpair": DESCRIPTORS,
        "connect": ("ECONNREFUSED", "ENETUNREACH", "ETIMEDOUT", "EACCES", "EADDRNOTAVAIL", "ENOENT"),
        "sendto": ("ECONNRESET", "EPIPE", "ENOBUFS", "ENOMEM", "EINTR", "EAGAIN"),
        "sendmsg": ("ECONNRESET", "EPIPE", "ENOBUFS", "ENOMEM", "EINTR", "EAGAIN"),
        "recvfrom": ("ECONNRESET", "ENOMEM", "EINTR", "EAGAIN"), "recvmsg": ("ECONNRESET", "ENOMEM", "EINTR", "EAGAIN"),
        "writev": ("EPIPE", "ECONNRESET", "EINTR", "EAGAIN"), "getsockopt": ("ENOBUFS", "ENOMEM"),
        "setsockopt": ("ENOMEM", "ENOBUFS"), "getsockname": ("ENOBUFS",), "getpeername": ("ENOTCONN", "ENOBUFS"),
        "shutdown": ("ENOTCONN",)}),
    Calls("descriptors are made and waited for", places=PLACES, errors={
        "close": ("EIO", "EINTR"), "fcntl": ("EMFILE", "EAGAIN"), "ioctl": ("ENOTTY",), "pipe2": DESCRIPTORS,
        "eventfd2": (*DESCRIPTORS, "ENODEV"), "poll": ("EINTR", "ENOMEM"), "ppoll": ("EINTR", "ENOMEM"),
        "inotify_init1": DESCRIPTORS, "memfd_create": DESCRIPTORS, "dup2": ("EBUSY", "EINTR", "EMFILE")}),
    # Not brk(2): the system gives back where the memory ends, and an error in its place is taken for that. Nor
    # futex(2), whose errors the C library does not look for.
    Calls("memory is asked of the system", places=PLACES, errors={
        "mmap": ("ENOMEM", "EAGAIN", "ENFILE", "ENODEV"), "mprotect": ("ENOMEM", "EACCES"), "munmap": ("ENOMEM",),
        "mremap": ("ENOMEM", "EAGAIN"), "madvise": ("ENOMEM", "EAGAIN"),
        "shmget": ("ENOMEM", "ENOSPC"), "shmat": ("ENOMEM", "EACCES"), "shmctl": ("EACCES",),
        "shmdt": ("EINVAL",)}),
    Calls("processes and threads are made", places=PLACES, errors={
        "clone3": ("EAGAIN", "ENOMEM", "ENOSPC"), "clone": ("EAGAIN", "ENOMEM", "ENOSPC"),
        "vfork": ("EAGAIN", "ENOMEM"),
        "waitid": ("EINTR", "ECHILD"), "wait4": ("EINTR", "ECHILD"), "getrandom": ("EINTR", "EAGAIN", "ENOSYS"),
        "prlimit64": ("EPERM",), "sysinfo": ("ENOSYS",), "uname": ("ENOSYS",), "sched_getaffinity": ("ENOSYS",)}),
    # The thread of libcurl in which the C library looks the host up.
    Calls("the list of hosts is read", files=("/etc/hosts", "/etc/resolv.conf"), errors={
        "openat": ("EACCES", "ENOENT", "EMFILE", "ENFILE", "ENOMEM", "EIO"), "newfstatat": ("EACCES", "ENOMEM", "EIO"),
        "read": ("EIO", "EINTR"), "lseek": ("ESPIPE",), "close": ("EIO", "EINTR")}),
))

MEMORY = Group("calls: memory", "calls_world", prints_runs=True, rows=(
    *(Memory(f"an allocation of a submission fails, {share + 1} of {SHARES}", share, SHARES, MEMORY_PLACES)
      for share in range(SHARES)),
))

GROUPS = (SYSTEM, MEMORY)
