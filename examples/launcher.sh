#!/bin/bash
# Runs an application and, when it crashes, starts the crash reporter: an example for starting it from a shell script.
#
#   launcher.sh [-remotename NAME] REPORTER FOLDER APPLICATION [ARGUMENT...]
#
# It writes a crash log into FOLDER, starts the reporter so that it outlives this script, and ends as the application did.
# It is bash's, and env is GNU's: a plain sh cannot name a descriptor above 9, nor undo that a signal is ignored.

# A crash log that is there already is not overwritten (-C). A shell above may have exported options of its own.
set +ef -uC

remote_name=
if [ "${1:-}" = -remotename ] && [ $# -gt 2 ]; then
    remote_name=$2
    shift 2
fi
if [ $# -lt 3 ]; then
    echo "usage: launcher.sh [-remotename NAME] REPORTER FOLDER APPLICATION [ARGUMENT...]" >&2
    exit 2
fi
reporter=$1
folder=$2
shift 2

"$@"
status=$?

name=$(basename "$1")
# A status above 128 is a signal's number and 128; a shell cannot tell it from an exit with that status. SIGTERM and
# SIGKILL are somebody's wish, and no crash.
signal=
if [ "$status" -gt 128 ]; then
    signal=$(kill -l "$status" 2>/dev/null)
fi
case $signal in
ABRT | BUS | FPE | ILL | SEGV | SYS | TRAP) ;;
*) exit "$status" ;;
esac
# A reporter that crashes is not reported by another one, which would crash just so.
if [ "$name" = "$(basename "$reporter")" ]; then
    exit "$status"
fi

# The reporter takes what stands before the first underscore for the application's name. The crash log is readable to
# this user alone, and valid UTF-8, or the reporter shows nothing.
umask 077
now=$(date +%Y-%m-%d-%H%M%S)
crash_log=$folder/${name}_$now.crash
cat >"$crash_log" <<TEXT || exit "$status"
Process:               $name
Identifier:            com.korvale.$name
Date/Time:             $now
Exception Type:        SIG$signal
TEXT

# A machine's name for a crash that happened on another machine than this one; otherwise the file alone.
if [ -n "$remote_name" ]; then
    set -- -remotename "$remote_name" -log "$crash_log"
else
    set -- "$crash_log"
fi
# In a session of its own, with no open file of this script, no signal blocked or ignored, and without the libraries and
# plugins that were meant for the application.
(
    for path in /proc/"$BASHPID"/fd/*; do
        descriptor=${path##*/}
        [ "$descriptor" -le 2 ] || exec {descriptor}>&-
    done
    exec env --default-signal -u LD_LIBRARY_PATH -u LD_PRELOAD -u QT_PLUGIN_PATH -u QT_QPA_PLATFORM_PLUGIN_PATH \
        setsid --fork "$reporter" "$@"
) </dev/null >/dev/null 2>&1
exit "$status"
