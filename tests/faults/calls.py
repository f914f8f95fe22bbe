"""Every system call and allocation that is made to fail once: which calls, and with which errors.

The errors are those that the calls' manuals name, and of sockets those of the protocols' manuals. Left out is what only
a mistake in the program brings about: EBADF, EFAULT, ENOTSOCK, EISCONN and EDESTADDRREQ; and EINVAL and EOPNOTSUPP, but
where the kind of a file or the system's own bounds may be the reason. EIO and ENOMEM, which a file system may give, and
ENOSYS, which a sandbox gives, stand also where no manual names them.
However it ends, a person sees it: the report was accepted, and whole; or an alert; or a line, and exit status 1. Only a
crash log that cannot be read ends it without a word: there is nothing to show.
"""

from calls_world import Calls, DISPLAY_LOST, Memory, Others
from situation import Group, SENDING

# Of a path, wherever it leads.
PATH = ("EACCES", "EIO", "ELOOP", "ENAMETOOLONG", "ENOENT", "ENOMEM", "ENOTDIR")
# Of what is made or taken away in a folder.
FOLDER = (*PATH, "EPERM", "EROFS")
SPACE = ("EDQUOT", "EIO", "ENOSPC")
DESCRIPTORS = ("EMFILE", "ENFILE", "ENOMEM")
# What the network, or who is at the other end, brings about: ip(7), tcp(7) and unix(7).
PEER = ("ECONNREFUSED", "ECONNRESET", "EHOSTUNREACH", "ENETUNREACH", "ETIMEDOUT")
SEND = (*PEER, "EACCES", "EAGAIN", "EINTR", "EMSGSIZE", "ENOBUFS", "ENOMEM", "ENOTCONN", "EPERM", "EPIPE")
RECEIVE = (*PEER, "EAGAIN", "EINTR", "ENOMEM", "ENOTCONN")
WRITE = (*SPACE, "EAGAIN", "EFBIG", "EINTR", "EPERM", "EPIPE")
RENAME = (*FOLDER, "EBUSY", "EDQUOT", "EISDIR", "EMLINK", "ENOSPC", "EXDEV")
SYNC = (*SPACE, "EINTR", "EINVAL", "EROFS")
PROCESS = ("EAGAIN", "ENOMEM", "ENOSPC", "ENOSYS", "EPERM")
# Where what lies below the program ends it, or leaves it without an end, whatever the program does.
NO_WINDOW = "no window and no end"
LOST_CONNECTION = "libxcb gives the connection up, and the toolkit's thread that reads from it waits forever"
NO_CONNECTION = "the toolkit's plug-in for X goes on with the answers that libxcb has not got"
DISPLAY_GIVEN_UP = "the toolkit or libX11 ends a program whose connection to the display has broken"
LOST_WAKING = "the toolkit's event loop sleeps on when the write to its eventfd has failed, which eventfd(2) rules out"
# A thread is not made where its stack, of the usual 8 MiB, is not to be had either.
NO_THREAD = r"clone3\(|MAP_STACK|mprotect\(0x\w+, 8388608, PROT_READ\|PROT_WRITE\)"
# A call on the socket of the display.
DISPLAY = r"\((?:\[\{fd=)?\d+<display:"
PLACES = (
    (rf"(?:writev|recvfrom|recvmsg|poll){DISPLAY}", NO_WINDOW, LOST_CONNECTION),
    (rf"(?:writev|recvfrom|recvmsg|poll){DISPLAY}", SENDING, LOST_CONNECTION),
    (rf"(?:writev|recvmsg|poll){DISPLAY}", "ended by SIGSEGV", NO_CONNECTION),
    (rf"(?:writev|recvfrom|recvmsg|poll){DISPLAY}", DISPLAY_LOST, DISPLAY_GIVEN_UP),
    (r"write\(\d+<anon_inode:\[eventfd\]>", NO_WINDOW, LOST_WAKING),
    (r"write\(\d+<anon_inode:\[eventfd\]>", SENDING, LOST_WAKING),
    (NO_THREAD, NO_WINDOW, "the toolkit waits for a thread that was not made"),
    (NO_THREAD, SENDING, "the toolkit reads the display's events in a thread, and goes on alone"),
    # Of an open file neither can fail.
    (r"fcntl\(\d+<server:[^)]*F_[GS]ETFL", SENDING, "libcurl goes on with a socket that waits"),
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
    (r"\A(?:.*/libxcb.*\n){2}", DISPLAY_LOST, DISPLAY_GIVEN_UP),
)

SHARES = 4
# brk(2) gives back where the memory ends, and an error in its place is taken for that; futex(2)'s errors the C library
# does not look for. The others' manuals name no error, or only what a mistake in the program brings about.
LEFT_OUT = ("brk", "futex", "exit_group", "geteuid", "getpid", "getuid", "rt_sigaction", "rt_sigpending",
            "rt_sigprocmask", "setitimer", "umask")
# The calls come in families, so that a quick look has some of each.
FAMILIES = (
    Calls("files are opened", sample=1, errors={
        "openat": (*FOLDER, "EAGAIN", "EBUSY", "EDQUOT", "EEXIST", "EINTR", "EISDIR", "EMFILE", "ENFILE", "ENODEV",
                   "ENOSPC", "ENXIO", "EOPNOTSUPP", "EOVERFLOW", "ETXTBSY")}),
    Calls("files are looked at", sample=3, errors={
        "newfstatat": (*PATH, "EOVERFLOW"), "statx": PATH, "access": (*FOLDER, "ETXTBSY"),
        "faccessat2": (*FOLDER, "ETXTBSY"), "readlink": (*PATH, "EINVAL"), "readlinkat": (*PATH, "EINVAL"),
        "fgetxattr": ("E2BIG", "ENODATA", "EOPNOTSUPP", "ERANGE"),
        "getdents64": ("EIO", "ENOENT", "ENOTDIR"),
        "statfs": (*PATH, "EINTR", "ENOSYS", "EOVERFLOW"), "fstatfs": ("EINTR", "EIO", "ENOMEM", "ENOSYS", "EOVERFLOW"),
        "getcwd": ("EACCES", "ENAMETOOLONG", "ENOENT", "ENOMEM"), "lseek": ("ENXIO", "EOVERFLOW", "ESPIPE")}),
    Calls("files are read", sample=2, errors={
        "read": ("EAGAIN", "ECONNRESET", "EINTR", "EIO", "EISDIR"),
        "pread64": ("EINTR", "EIO", "EISDIR", "ENXIO", "EOVERFLOW", "ESPIPE"), "fadvise64": ("EINVAL", "ESPIPE")}),
    Calls("files are written", sample=8, places=PLACES, errors={
        "write": WRITE, "fdatasync": SYNC, "fsync": SYNC,
        "link": (*FOLDER, "EDQUOT", "EEXIST", "EMLINK", "ENOSPC", "EXDEV"),
        "linkat": (*FOLDER, "EDQUOT", "EEXIST", "EMLINK", "ENOSPC", "EXDEV"),
        "rename": RENAME, "renameat": RENAME,
        "unlink": (*FOLDER, "EBUSY", "EISDIR"), "unlinkat": (*FOLDER, "EBUSY", "EISDIR"),
        "mkdir": (*FOLDER, "EDQUOT", "EEXIST", "EMLINK", "ENOSPC"),
        "rmdir": (*FOLDER, "EBUSY", "EINVAL", "ENOTEMPTY"),
        "flock": ("EAGAIN", "EINTR", "ENOLCK"), "chmod": FOLDER,
        "fchmod": ("EIO", "EPERM", "EROFS"), "fchown": ("EIO", "EPERM", "EROFS"),
        "ftruncate": ("EFBIG", "EINTR", "EINVAL", "EIO", "EPERM", "EROFS", "ETXTBSY")}),
    Calls("the display and the server are spoken to", sample=12, places=PLACES, errors={
        "socket": (*DESCRIPTORS, "EACCES", "EAFNOSUPPORT", "EINVAL", "ENOBUFS", "EPROTONOSUPPORT"),
        "socketpair": (*DESCRIPTORS, "EAFNOSUPPORT", "EOPNOTSUPP", "EPROTONOSUPPORT"),
        "connect": (*PEER, "EACCES", "EADDRINUSE", "EADDRNOTAVAIL", "EAFNOSUPPORT", "EAGAIN", "EALREADY", "EINPROGRESS",
                    "EINTR", "ENOENT", "EPERM", "EPROTOTYPE"),
        "sendto": SEND, "sendmsg": (*SEND, "ETOOMANYREFS"), "recvfrom": RECEIVE, "recvmsg": RECEIVE,
        "writev": (*WRITE, "ECONNRESET", "ENOBUFS", "ENOMEM"),
        "getsockopt": ("EINVAL", "ENOBUFS", "ENOMEM", "ENOPROTOOPT"),
        "setsockopt": ("EDOM", "EINVAL", "ENOBUFS", "ENOMEM", "ENOPROTOOPT", "EPERM"), "getsockname": ("ENOBUFS",),
        "getpeername": ("ENOBUFS", "ENOTCONN"), "shutdown": ("ENOTCONN",)}),
    Calls("descriptors are made and waited for", sample=4, places=PLACES, errors={
        "close": (*SPACE, "EINTR"), "fcntl": ("EACCES", "EAGAIN", "EBUSY", "EINTR", "EMFILE", "ENOLCK", "EPERM"),
        "ioctl": ("EINVAL", "ENOTTY"), "pipe2": DESCRIPTORS, "eventfd2": (*DESCRIPTORS, "ENODEV"),
        "poll": ("EINTR", "EINVAL", "ENOMEM"), "ppoll": ("EINTR", "EINVAL", "ENOMEM"), "inotify_init1": DESCRIPTORS,
        "memfd_create": (*DESCRIPTORS, "EPERM"), "dup2": ("EBUSY", "EINTR", "EMFILE")}),
    Calls("memory is asked of the system", sample=3, places=PLACES, errors={
        "mmap": ("EACCES", "EAGAIN", "ENFILE", "ENODEV", "ENOMEM", "EOVERFLOW", "EPERM", "ETXTBSY"),
        "mprotect": ("EACCES", "ENOMEM"), "munmap": ("ENOMEM",), "mremap": ("EAGAIN", "ENOMEM"),
        "madvise": ("EACCES", "EAGAIN", "EBUSY", "EINVAL", "EIO", "ENOMEM", "EPERM"),
        "shmget": ("EACCES", "EEXIST", "EINVAL", "ENFILE", "ENOENT", "ENOMEM", "ENOSPC", "EPERM"),
        "shmat": ("EACCES", "EIDRM", "EINVAL", "ENOMEM"), "shmctl": ("EACCES", "EIDRM", "EINVAL", "EPERM"),
        "shmdt": ("EINVAL",)}),
    Calls("processes and threads are made", places=PLACES, errors={
        "clone3": PROCESS, "clone": PROCESS, "vfork": PROCESS,
        "waitid": ("ECHILD", "EINTR"), "wait4": ("ECHILD", "EINTR"), "getrandom": ("EAGAIN", "EINTR", "ENOSYS"),
        "prlimit64": ("EPERM", "ESRCH"), "sysinfo": ("ENOSYS",), "uname": ("ENOSYS",),
        "sched_getaffinity": ("ENOSYS", "ESRCH")}),
    # The thread of libcurl in which the C library looks the host up.
    Calls("the list of hosts is read", files=("/etc/hosts", "/etc/resolv.conf"), errors={
        "openat": (*PATH, "EAGAIN", "EINTR", "EISDIR", "EMFILE", "ENFILE", "ENXIO", "EOVERFLOW", "EPERM"),
        "newfstatat": (*PATH, "EOVERFLOW"), "read": ("EAGAIN", "EINTR", "EIO", "EISDIR"),
        "lseek": ("ENXIO", "EOVERFLOW", "ESPIPE"), "close": (*SPACE, "EINTR")}),
)
SYSTEM = Group("calls: system", "calls_world", prints_runs=True, rows=(
    *FAMILIES, Others("no call is made that none of these makes fail",
                      frozenset(name for family in FAMILIES for name in family.errors) | {*LEFT_OUT})))

MEMORY = Group("calls: memory", "calls_world", prints_runs=True, rows=(
    *(Memory(f"an allocation of a submission fails, {share + 1} of {SHARES}", share, SHARES, MEMORY_PLACES)
      for share in range(SHARES)),
))

GROUPS = (SYSTEM, MEMORY)
