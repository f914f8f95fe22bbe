"""The report that the program has to send for given log files, worked out apart from the program."""

import os

HANG_REPORT_LIMIT = 50_000
SIZE_CEILING = 0x100000

# Suffix of the file's name, header, and the length that log and running length must stay below, in the order in
# which they are appended.
APPLICATION_LOGS = (
    (".1.log", "\nLog 1:\n", 0xFFFF7),
    (".task.1.log", "\nTask Log 1:\n", 0xFFFF2),
    (".2.log", "\nLog 2:\n", 0xFFFF7),
    (".task.2.log", "\nTask Log 2:\n", 0xFFFF2),
)


def units(text):
    """The text as UTF-16 code units, two bytes each: every length and cut counts those."""
    return text.encode("utf-16-le", "surrogatepass")


def length(text):
    return len(units(text)) // 2


def first_units(text, count):
    return units(text)[:2 * count].decode("utf-16-le", "surrogatepass")


def is_hang_report(text):
    return "hang" in text and "Duration:" in text


def application_name(crash_log_path):
    name, underscore, _ = os.path.basename(crash_log_path).partition("_")
    return name if underscore else "This application"


def text_of(content):
    """The text of a file, or None when it is not UTF-8."""
    try:
        return content.decode("utf-8")
    except UnicodeDecodeError:
        return None


def expected_report(crash_log, application_logs):
    """The bytes of the report for the bytes of a crash log and of the application's logs by suffix."""
    report = crash_log.decode("utf-8")
    if is_hang_report(report) and length(report) > HANG_REPORT_LIMIT:
        report = first_units(report, HANG_REPORT_LIMIT)
    running = length(report)
    for suffix, header, bound in APPLICATION_LOGS:
        log = text_of(application_logs[suffix]) if suffix in application_logs else None
        if log is None or running >= SIZE_CEILING or length(log) + running >= bound:
            continue
        report += header + log
        running += length(log)
    # Half a surrogate pair, which the cut may leave, is sent as U+FFFD.
    return units(report).decode("utf-16-le", "replace").encode("utf-8")
