"""What is read and what is sent: every byte of the crash log, and as many application logs as can be read."""

import os
import shutil
import signal

from support import APPLICATION_LOGS, CRASH_LOG, ProgramTest, cases

MEBIBYTE = 1 << 20


def make_directory(path):
    os.mkdir(path)


def make_fifo(path):
    os.mkfifo(path)


def make_dangling_link(path):
    os.symlink("/nonexistent/target", path)


def make_link_to_a_device(path):
    os.symlink("/dev/zero", path)


def make_unreadable(path):
    with open(path, "wb") as file:
        file.write(CRASH_LOG)
    os.chmod(path, 0)


def make_invalid_at_the_start(path):
    with open(path, "wb") as file:
        file.write(b"\x80" + CRASH_LOG)


def make_invalid_in_the_middle(path):
    with open(path, "wb") as file:
        file.write(CRASH_LOG + b"\xc0\xaf" + CRASH_LOG)


def make_cut_at_the_end(path):
    with open(path, "wb") as file:
        file.write(CRASH_LOG + "\U0001f30a".encode()[:3])


NOT_READABLE = {
    "directory": (make_directory,),
    "fifo": (make_fifo,),
    "dangling_link": (make_dangling_link,),
    "device": (make_link_to_a_device,),
    "unreadable": (make_unreadable,),
    "invalid_at_the_start": (make_invalid_at_the_start,),
    "invalid_in_the_middle": (make_invalid_in_the_middle,),
    "cut_at_the_end": (make_cut_at_the_end,),
}


class UnreadableCrashLog(ProgramTest):
    @cases(**NOT_READABLE)
    def test_ends_the_program(self, make):
        path = os.path.join(self.home.path, "Harbour_odd.crash")
        make(path)
        self.assert_ends_silently(self.start("-remotename", "anvil", "-log", path))


class SentCrashLog(ProgramTest):
    def assert_sent_unchanged(self, content):
        server = self.serve()
        path = self.home.crash_log("Alone_1.crash", content)
        self.assert_report_sent(self.submitted(self.launch(path)), server, content)

    @cases(
        cr_lf=(b"one\r\ntwo\r\n",),
        lone_cr=(b"one\rtwo\r",),
        no_break_space=("one\u00a0two\u202fthree".encode(),),
        line_separator=("one\u2028two\u2029three".encode(),),
        noncharacters=("one\ufdd0two\ufdd1three\uffff".encode(),),
        emoji=("one \U0001f30a two \U0001f469\u200d\U0001f680".encode(),),
        nul=(b"one\0two\0",),
        byte_order_mark=(b"\xef\xbb\xbfone\xef\xbb\xbftwo",),
        boundary_like=(b"--\r\n\r\nContent-Disposition: form-data; name=\"email\"\r\n\r\n",),
        one_line_of_a_million=(b"x" * 1_000_000,),
        all_at_once=("\ufeffa\r\nb\rc\u00a0d\u2028e\U0001f30af\0g".encode(),),
    )
    def test_is_the_file_byte_for_byte(self, content):
        self.assert_sent_unchanged(content)

    def test_of_128_mebibytes_is_the_file_byte_for_byte(self):
        line = b"0x00007fff8c4a2d10 Harbour  -[Window drawRect:] + 1024 in some library\n"
        self.assert_sent_unchanged(line * (128 * MEBIBYTE // len(line)))

    def test_of_a_hang_report_cut_inside_a_character_arrives_with_a_replacement_character(self):
        server = self.serve()
        start = b"hang\nDuration: 12 s\n"
        content = start + b"x" * (50_000 - len(start) - 1) + "\U0001f30a".encode()
        program = self.submitted(self.launch(self.home.crash_log("Alone_1.crash", content)))
        self.assert_report_sent(program, server, content[:-4] + b"\xef\xbf\xbd")

    def test_of_a_long_hang_report_is_cut(self):
        content = b"hang\nDuration: 12 s\n" + "\u00e9".encode() * 60_000
        server = self.serve()
        path = self.home.crash_log("Harbour_2.crash", content)
        program = self.submitted(self.launch(path))
        report = self.expected(crash_log=content)
        self.assertEqual(len(report.decode().split("\nLog 1:\n")[0]), 50_000)
        self.assert_report_sent(program, server, report)

    def test_through_a_link_is_the_file_byte_for_byte(self):
        server = self.serve()
        path = os.path.join(self.home.path, "Harbour_link.crash")
        os.symlink(self.crash_log, path)
        self.assert_report_sent(self.submitted(self.launch(path)), server, self.expected())


class ApplicationLogs(ProgramTest):
    def test_are_appended_in_their_order(self):
        server = self.serve()
        report = (CRASH_LOG + b"\nLog 1:\n" + APPLICATION_LOGS[".1.log"] + b"\nTask Log 1:\n"
                  + APPLICATION_LOGS[".task.1.log"] + b"\nLog 2:\n" + APPLICATION_LOGS[".2.log"] + b"\nTask Log 2:\n"
                  + APPLICATION_LOGS[".task.2.log"])
        self.assert_report_sent(self.submitted(self.launch()), server, report)

    def test_that_are_empty_are_appended_as_headers(self):
        server = self.serve()
        for suffix in APPLICATION_LOGS:
            self.home.application_log("Harbour", suffix, b"")
        report = CRASH_LOG + b"\nLog 1:\n\nTask Log 1:\n\nLog 2:\n\nTask Log 2:\n"
        self.assert_report_sent(self.submitted(self.launch()), server, report)

    @cases(**{f"{kind}_{suffix.strip('.').replace('.', '_')}": (make, suffix)
              for (kind, (make,)), suffix in zip(NOT_READABLE.items(), list(APPLICATION_LOGS) * 2)})
    def test_that_cannot_be_read_are_left_out_alone(self, make, suffix):
        server = self.serve()
        path = os.path.join(self.home.logs, f"Harbour{suffix}")
        os.remove(path)
        make(path)
        headers = {".1.log": b"\nLog 1:\n", ".task.1.log": b"\nTask Log 1:\n",
                   ".2.log": b"\nLog 2:\n", ".task.2.log": b"\nTask Log 2:\n"}
        report = CRASH_LOG + b"".join(
            headers[other] + content for other, content in APPLICATION_LOGS.items() if other != suffix)
        self.assert_report_sent(self.submitted(self.launch()), server, report)

    def test_that_are_too_long_are_left_out_alone(self):
        server = self.serve()
        self.home.application_log("Harbour", ".1.log", b"x" * (MEBIBYTE - len(CRASH_LOG)))
        report = self.expected()
        self.assertNotIn(b"\nLog 1:\n", report)
        self.assertIn(b"\nTask Log 1:\n", report)
        self.assert_report_sent(self.submitted(self.launch()), server, report)

    def test_without_a_log_folder_the_crash_log_alone_is_sent(self):
        shutil.rmtree(os.path.join(self.home.path, "Library"))
        server = self.serve()
        self.assert_report_sent(self.submitted(self.launch()), server, CRASH_LOG)


class ConflictingSoftware(ProgramTest):
    ADVICE = "This software causes incompatibilities with Korvale products and we recommend disabling it."
    ENHANCER = ("Unsanity Application Enhancer is installed", ADVICE)
    SIMBL = ("SIMBL is installed", ADVICE)

    def log_with(self, *markers):
        return self.home.crash_log("Harbour_3.crash", CRASH_LOG + "\n".join(markers).encode())

    def test_both_alerts_come_one_after_the_other_before_the_window(self):
        program = self.start(self.log_with("net.culater.SIMBL", "com.unsanity.ape"))
        self.assertEqual(program.dismiss_alert(), self.ENHANCER)
        self.assertEqual(program.dismiss_alert(), self.SIMBL)
        program.wait_for_window()
        self.assertIsNone(program.screen.alert())

    def test_one_marker_gives_one_alert(self):
        program = self.start(self.log_with("net.culater.SIMBL"))
        self.assertEqual(program.dismiss_alert(), self.SIMBL)
        program.wait_for_window()
        self.assertIsNone(program.screen.alert())

    @cases(terminate=(signal.SIGTERM,), interrupt=(signal.SIGINT,), hang_up=(signal.SIGHUP,))
    def test_a_signal_at_the_first_alert_ends_the_program_before_its_window(self, number):
        program = self.start(self.log_with("net.culater.SIMBL", "com.unsanity.ape"))
        self.assertEqual(program.alert(), self.ENHANCER)
        os.kill(program.pid, number)
        self.assertEqual(program.exit_status(), 0)
        self.assertEqual(program.errors(), "")

    def test_a_log_named_on_the_command_line_gives_none(self):
        program = self.launch(self.log_with("net.culater.SIMBL", "com.unsanity.ape"))
        self.assertIsNone(program.screen.alert())
        self.assertTrue(program.can_submit())
