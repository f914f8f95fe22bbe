"""What the command line leads to: a headline, a quiet end, or one clear line."""

import os
import signal
import stat
import sys

from support import CRASH_LOG, ORDINARY_USER, ProgramTest, UPLOAD_FAILED, application_headline, cases, remote_headline
from trial.screen import descendants, left_in_window
from trial.waiting import wait_until

# Runs the rest of its command line, with something that an application may leave to whom it starts.
INHERITED = """
import fcntl, os, signal, socket, sys
{}
os.execvp(sys.argv[1], sys.argv[1:])
"""
CLOSED = "os.close(2)"
ALL_CLOSED = "for number in range(3): os.close(number)"
FULL = """
reads, writes = os.pipe()
os.set_inheritable(reads, True)
fcntl.fcntl(writes, fcntl.F_SETFL, os.O_NONBLOCK)
for piece in (b"x" * 4096, b"x"):
    try:
        while True:
            os.write(writes, piece)
    except BlockingIOError:
        pass
fcntl.fcntl(writes, fcntl.F_SETFL, 0)
os.dup2(writes, 2)
"""
FULL_SOCKET = """
reads, writes = socket.socketpair()
reads.set_inheritable(True)
writes.setblocking(False)
try:
    while True:
        writes.send(b"x" * 4096)
except BlockingIOError:
    pass
writes.setblocking(True)
os.dup2(writes.fileno(), 2)
"""
SYSTEM_LOG = (sys.executable, os.path.join(os.path.dirname(os.path.abspath(__file__)), "system_log.py"))
BLOCKED = "signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())"
# As a handler of signals, in which all of them are blocked, leaves what arrives meanwhile.
WAITING = BLOCKED + "; os.kill(os.getpid(), signal.SIG{})"

OTHER_LOG = b"Process: Lantern [12]\n"


class Headline(ProgramTest):
    def test_a_remote_name_is_named(self):
        self.assertEqual(self.launch(remote_name="anvil").headline(), remote_headline("anvil"))

    def test_an_opened_file_names_the_application(self):
        program = self.start(self.crash_log).wait_for_window()
        self.assertEqual(program.headline(), application_headline("Harbour"))

    def test_an_opened_file_without_an_underscore_names_this_application(self):
        path = self.home.crash_log("report.crash", CRASH_LOG)
        self.assertEqual(self.start(path).wait_for_window().headline(), application_headline("This application"))

    @cases(
        style=("-style",),
        platform=("-platform",),
        geometry=("-geometry",),
        display=("-display",),
        help=("--help",),
        qt_option=("-qwindowgeometry",),
        remote_name_option=("-remotename",),
        markup=("<b>bold</b> &amp; <img src='x'>",),
        format_directive=("%1 %@ %s",),
    )
    def test_a_remote_name_is_shown_verbatim(self, name):
        program = self.launch(remote_name=name)
        self.assertEqual(program.headline(), remote_headline(name))
        self.assert_report_shown(program, self.expected())

    def test_control_characters_of_a_remote_name_are_shown_as_spaces(self):
        program = self.launch(remote_name="a\x01b\x07c\x1b[1md\te\nf")
        self.assertEqual(program.headline(), remote_headline("a b c [1md e f"))

    def test_a_remote_name_of_10000_characters_leaves_the_window_usable(self):
        server = self.serve()
        name = "anvil " * 1666 + "anvi"
        program = self.launch(remote_name=name)
        self.assertEqual(program.headline(), remote_headline(name))
        x, y, width, height = program.geometry()
        self.assertLessEqual(x + width, 1280)
        self.assertLessEqual(y + height, 1024)
        self.assertTrue(program.screen.is_shown("Report Crash"))
        self.assert_accepted(self.submitted(program), server)

    def test_a_remote_name_of_10000_characters_without_a_space_leaves_the_window_on_the_screen(self):
        program = self.launch(remote_name="x" * 10000)
        self.assertEqual(program.headline(), remote_headline("x" * 10000))
        x, y, width, height = program.geometry()
        self.assertLessEqual(x + width, 1280)
        self.assertLessEqual(y + height, 1024)


class CommandLine(ProgramTest):
    def other_log(self):
        return self.home.crash_log("Lantern_2026-11-01.crash", OTHER_LOG)

    def test_the_options_stand_in_either_order(self):
        program = self.start("-log", self.crash_log, "-remotename", "anvil").wait_for_window()
        self.assertEqual(program.headline(), remote_headline("anvil"))

    def test_the_options_stand_among_others(self):
        program = self.start("--verbose", "yes", "-remotename", "anvil", "-x", "1", "-log", self.crash_log, "-y", "2")
        self.assertEqual(program.wait_for_window().headline(), remote_headline("anvil"))

    def test_a_log_behind_an_unknown_key_is_loaded_silently_and_once(self):
        log = self.home.crash_log("Harbour_3.crash", CRASH_LOG + b"com.unsanity.ape")
        program = self.start("-verbose", "-log", log, "-remotename", "anvil").wait_for_window()
        self.assertIsNone(program.screen.alert())
        self.assert_report_shown(program, self.expected(crash_log=CRASH_LOG + b"com.unsanity.ape"))

    def test_everything_after_two_hyphens_is_a_file(self):
        self.home.crash_log("-x_1.crash", OTHER_LOG)
        crash_logs = os.path.dirname(self.crash_log)
        program = self.start("-key", "--", "-x_1.crash", prefix=(*ORDINARY_USER, "env", "-C", crash_logs))
        program.wait_for_window()
        self.assert_report_shown(program, OTHER_LOG)

    @cases(
        platform=("-platform", "offscreen"),
        geometry=("-geometry", "1000x900+0+0"),
        display=("-display", ":4242"),
    )
    def test_a_toolkits_option_among_them_does_nothing(self, option, value):
        plain = self.launch()
        expected = plain.geometry()[2:]
        plain.end()
        program = self.start(option, value, "-remotename", "anvil", "-log", self.crash_log).wait_for_window()
        self.assertEqual(program.geometry()[2:], expected)

    def test_the_first_of_repeated_options_counts(self):
        program = self.start("-remotename", "anvil", "-log", self.crash_log,
                             "-remotename", "bellows", "-log", self.other_log()).wait_for_window()
        self.assertEqual(program.headline(), remote_headline("anvil"))
        self.assert_report_shown(program, self.expected())

    def test_the_remote_name_may_be_the_log_option(self):
        program = self.start("-remotename", "-log", self.crash_log, "-x", "1").wait_for_window()
        self.assertEqual(program.headline(), remote_headline("-log"))

    def test_a_log_named_on_the_command_line_replaces_an_opened_file(self):
        program = self.start(self.other_log(), "-remotename", "anvil", "-log", self.crash_log).wait_for_window()
        self.assertEqual(program.headline(), remote_headline("anvil"))
        self.assert_report_shown(program, self.expected())

    def test_an_opened_file_stays_when_the_named_log_is_missing(self):
        program = self.start(self.other_log(), "-remotename", "anvil", "-log", "/nonexistent").wait_for_window()
        self.assertEqual(program.headline(), remote_headline("anvil"))
        self.assert_report_shown(program, OTHER_LOG)

    def test_of_two_opened_files_the_last_is_the_report(self):
        program = self.start(self.crash_log, self.other_log()).wait_for_window()
        self.assertEqual(program.headline(), application_headline("Lantern"))
        self.assert_report_shown(program, OTHER_LOG)

    def test_an_opened_file_that_fails_after_a_good_one_ends_the_program(self):
        self.assert_ends_silently(self.start(self.crash_log, "/nonexistent"))


class NothingToReport(ProgramTest):
    def test_without_arguments_the_program_ends(self):
        self.assert_ends_silently(self.start())

    def test_four_elements_are_too_few(self):
        self.assert_ends_silently(self.start("-remotename", "anvil", "-log"))

    def test_the_log_option_alone_is_too_little(self):
        self.assert_ends_silently(self.start("-log", self.crash_log, "-x", "1"))

    def test_the_log_option_at_the_end_names_no_log(self):
        self.assert_ends_silently(self.start("-x", "1", "-remotename", "anvil", "-log"))

    def test_the_remote_name_option_at_the_end_leaves_the_log_unread(self):
        self.assert_ends_silently(self.start("-x", "1", "-log", self.crash_log, "-remotename"))

    def test_option_names_are_matched_exactly(self):
        self.assert_ends_silently(self.start("-RemoteName", "anvil", "-Log", self.crash_log))

    def test_a_missing_file_is_nothing(self):
        self.assert_ends_silently(self.start("-remotename", "anvil", "-log", "/nonexistent/crash.log"))

    def test_a_missing_opened_file_is_nothing(self):
        self.assert_ends_silently(self.start("/nonexistent/crash.log"))


class LoadedLater(ProgramTest):
    def libraries(self, program):
        with open(f"/proc/{program.pid}/maps", encoding="utf-8") as maps:
            return {os.path.basename(line.split()[-1]) for line in maps if ".so" in line}

    def loaded(self, program, *beginnings):
        return {name for name in self.libraries(program) if name.startswith(beginnings)}

    def test_the_libraries_of_the_network_are_loaded_by_the_first_upload(self):
        self.serve("never")
        program = self.launch()
        self.assertEqual(self.loaded(program, "libssl", "libcurl"), set())
        self.submitted(program)
        wait_until(lambda: self.loaded(program, "libcurl") and self.loaded(program, "libssl"), "libcurl and TLS")

    def test_the_toolkits_network_is_loaded_by_no_upload(self):
        server = self.serve("refuse")
        program = self.submitted(self.launch())
        program.dismiss_alert()
        self.assert_posts(server, 1)
        self.assertEqual(self.loaded(program, "libQt6Network", "libqopensslbackend"), set())


class Display(ProgramTest):
    def assert_one_clear_line(self, program):
        self.assertEqual(program.exit_status(), 1)
        lines = program.errors().splitlines()
        self.assertEqual(len(lines), 1, lines)
        self.assertIn("the report window cannot be shown on this display", lines[0])
        return lines[0]

    def test_without_a_display_one_line_says_so(self):
        self.assert_one_clear_line(
            self.start("-remotename", "anvil", "-log", self.crash_log, without=["DISPLAY"]))

    def test_with_a_dead_display_one_line_says_so(self):
        line = self.assert_one_clear_line(
            self.start("-remotename", "anvil", "-log", self.crash_log, prefix=("env", "DISPLAY=:4242")))
        self.assertIn("could not connect to display :4242", line)

    def test_without_a_plugin_for_it_the_line_names_the_plugin(self):
        other_platform = (*ORDINARY_USER, "env", "QT_QPA_PLATFORM=nosuchplatform")
        line = self.assert_one_clear_line(
            self.start("-remotename", "anvil", "-log", self.crash_log, prefix=other_platform))
        self.assertIn("nosuchplatform", line)


class Language(ProgramTest):
    def shown_in(self, locale):
        """The texts of the window, from left to right; a font may be another one for another language."""
        log = self.home.crash_log("Lantern_1.crash", OTHER_LOG * 100)
        program = self.launch(log=log, prefix=(
            *ORDINARY_USER, "env", f"LANG={locale}.UTF-8", f"LC_ALL={locale}.UTF-8", f"LANGUAGE={locale}"))
        program.wait_until_still()
        named = [control for control in descendants(program.screen.report_window()) if control.get_name()]
        found = [control.get_name() for control in sorted(named, key=left_in_window)]
        program.end()
        return found

    @cases(german=("de_DE",), hebrew=("he_IL",))
    def test_the_window_is_the_same_in(self, locale):
        english = self.shown_in("en_US")
        self.assertIn("Lantern_1.crash (2.2 kB), sent to localhost", english)
        self.assertLess(english.index("Don't Send"), english.index("Report Crash"))
        self.assertEqual(self.shown_in(locale), english)


class Signals(ProgramTest):
    @cases(terminate=(signal.SIGTERM,), interrupt=(signal.SIGINT,), hang_up=(signal.SIGHUP,))
    def test_a_signal_ends_the_program_as_closing_its_window_does(self, number):
        program = self.launch()
        os.kill(program.pid, number)
        self.assertEqual(program.exit_status(), 0)
        self.assertEqual(program.errors(), "")

    def test_a_signal_ends_an_upload(self):
        server = self.serve("never")
        program = self.submitted(self.launch())
        wait_until(server.posts, "the report to arrive")
        os.kill(program.pid, signal.SIGTERM)
        self.assertEqual(program.exit_status(), 0)

    def test_a_signal_ends_the_program_behind_an_alert(self):
        program = self.launch()
        program.fill_in("no address")
        program.submit()
        program.alert()
        os.kill(program.pid, signal.SIGTERM)
        self.assertEqual(program.exit_status(), 0)

    def test_a_reader_of_standard_error_that_is_gone_does_not_end_the_program(self):
        self.serve("refuse")
        nobody_reads = ("bash", "-c", 'exec 2> >(exit 0); exec "$@"', "bash")
        program = self.start(self.crash_log, prefix=(*ORDINARY_USER, *nobody_reads)).wait_for_window()
        self.submitted(program)
        self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
        self.assert_usable_after_failure(program)


class Inherited(ProgramTest):
    """What the program is started with, by whoever has started it."""

    def launch_with(self, statement):
        prefix = (*ORDINARY_USER, sys.executable, "-c", INHERITED.format(statement))
        return self.start(self.crash_log, prefix=prefix).wait_for_window()

    @cases(closed=(CLOSED,), full=(FULL,), a_full_socket=(FULL_SOCKET,))
    def test_a_refusal_is_told_and_the_next_report_accepted_with_a_standard_error_that_is(self, statement):
        server = self.serve("refuse,accept")
        program = self.submitted(self.launch_with(statement))
        self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
        program.submit()
        self.assert_accepted(program, server, posts=2)

    def test_a_system_log_that_takes_nothing_is_not_waited_for(self):
        self.serve("refuse")
        program = self.start(self.crash_log, prefix=("unshare", "--mount", *SYSTEM_LOG, "full", *ORDINARY_USER))
        self.submitted(program.wait_for_window())
        self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
        os.kill(program.pid, signal.SIGTERM)
        self.assertEqual(program.exit_status(), 0)
        self.assertIn("Returned data:", program.errors())

    def told_of(self, answer):
        """What standard error and the system's log are told of this answer."""
        self.serve(answer)
        path = os.path.join(self.subfolder("log"), "messages")
        program = self.start(self.crash_log, prefix=("unshare", "--mount", *SYSTEM_LOG, "read", path, *ORDINARY_USER))
        self.submitted(program.wait_for_window())
        self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
        said = wait_until(program.errors, "a line")
        self.assertRegex(said, rf"^korvale-crash-reporter\[{program.pid}\]: Returned data: ")
        wait_until(lambda: os.path.getsize(path), "the system's log to be told")
        with open(path, encoding="utf-8") as file:
            return said, file.read()

    def test_the_system_log_is_told_what_standard_error_is(self):
        said, told = self.told_of("refuse")
        # RFC 3164, section 4.1: a notice (5) of a user's program (1), and the time.
        self.assertRegex(told, r"^<13>[A-Z][a-z]{2} [ 123]\d \d\d:\d\d:\d\d korvale")
        self.assertTrue(told.endswith(said), told)

    def test_the_system_log_is_told_the_beginning_of_a_refusal_that_is_too_long_for_it(self):
        _, told = self.told_of("control-characters")
        self.assertRegex(told, r": Returned data: (\\x01)+.{,3}\n$")
        self.assertGreater(len(told), 16_000)

    def test_standard_descriptors_that_are_closed_lead_nowhere(self):
        program = self.launch_with(ALL_CLOSED)
        self.assertEqual([os.readlink(f"/proc/{program.pid}/fd/{number}") for number in range(3)], ["/dev/null"] * 3)

    @cases(pipe=(FULL,), socket=(FULL_SOCKET,))
    def test_a_full_standard_error_keeps_no_signal_from_ending_the_program(self, statement):
        self.serve("refuse")
        program = self.submitted(self.launch_with(statement))
        self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
        os.kill(program.pid, signal.SIGTERM)
        self.assertEqual(program.exit_status(), 0)

    @cases(terminate=(signal.SIGTERM,), interrupt=(signal.SIGINT,), hang_up=(signal.SIGHUP,))
    def test_a_signal_that_was_blocked_ends_the_program(self, number):
        program = self.launch_with(BLOCKED)
        os.kill(program.pid, number)
        self.assertEqual(program.exit_status(), 0)

    @cases(alarm=("ALRM",), profiling=("PROF",), input_and_output=("IO",))
    def test_the_program_goes_on_after_a_signal_that_its_starter_has_not_taken(self, name):
        server = self.serve()
        program = self.launch_with(WAITING.format(name))
        self.assert_accepted(self.submitted(program), server)

    @cases(hang_up=("HUP",), interrupt=("INT",))
    def test_a_signal_that_was_ignored_stays_ignored(self, name):
        program = self.launch_with(f"signal.signal(signal.SIG{name}, signal.SIG_IGN)")
        with open(f"/proc/{program.pid}/status", encoding="ascii") as file:
            ignored = next(int(line.split()[1], 16) for line in file if line.startswith("SigIgn:"))
        self.assertTrue(ignored >> (getattr(signal, f"SIG{name}") - 1) & 1)

    @cases(open_to_all=(0,), closed_to_all=(0o777,))
    def test_the_settings_are_the_users_alone_under_a_umask(self, mask):
        server = self.serve()
        program = self.submitted(self.launch_with(f"os.umask({mask})"))
        self.assert_accepted(program, server)
        modes = [stat.S_IMODE(os.stat(path).st_mode) for path in (self.home.settings_folder, self.home.settings_path)]
        self.assertEqual(modes, [0o700, 0o600])
