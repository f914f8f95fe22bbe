"""Submitting: the form's fields, the address, the settings, the throttle between runs."""

import os
import resource

from gi.repository import Atspi
from support import ADDRESS, CRASH_LOG, ORDINARY_USER, ProgramTest, UPLOAD_FAILED
from trial.waiting import wait_until

COUNT = "crashSubmissionCount"
DATE = "lastCrashSubmissionDate"
MEBIBYTE = 1 << 20


class Form(ProgramTest):
    def test_address_and_description_are_sent_with_the_report(self):
        server = self.serve()
        program = self.submitted(self.launch(), ADDRESS, "It froze.\nTwice \u2014 na\u00efvely \U0001f30a.")
        self.assert_report_sent(program, server, self.expected())
        fields = server.posts()[0].fields()
        self.assertEqual(sorted(fields), ["crashlog", "email", "info"])
        self.assertEqual(fields["email"], ADDRESS.encode())
        self.assertEqual(fields["info"], "It froze.\nTwice \u2014 na\u00efvely \U0001f30a.".encode())

    def test_empty_fields_are_left_out(self):
        server = self.serve()
        self.assert_accepted(self.submitted(self.launch(), email=None), server)
        self.assertEqual(list(server.posts()[0].fields()), ["crashlog"])

    def test_each_upload_has_a_boundary_of_its_own(self):
        server = self.serve("refuse,accept")
        program = self.submitted(self.launch())
        program.dismiss_alert()
        program.submit()
        self.assert_accepted(program, server, posts=2)
        first, second = (post.header("Content-Type") for post in server.posts())
        self.assertEqual(len(first), 1)
        self.assertEqual(len(second), 1)
        self.assertNotEqual(first, second)

    def test_a_malformed_address_is_not_sent(self):
        server = self.serve()
        program = self.submitted(self.launch(), "jo@example")
        title, message = program.dismiss_alert()
        self.assertEqual(title, "Invalid email format.")
        self.assertRegex(message, r"^Please enter an address in the form [^ @]+@[^ @]*example\.(com|net|org)$")
        self.assertTrue(program.is_unlocked())
        self.assert_posts(server, 0)
        self.assertEqual(self.home.settings(), {})

    def test_a_weak_address_is_sent(self):
        server = self.serve()
        self.assert_accepted(self.submitted(self.launch(), ".@"), server)
        self.assertEqual(server.posts()[0].fields()["email"], b".@")

    def test_an_empty_report_is_a_critical_error(self):
        server = self.serve()
        path = self.home.crash_log("Empty_1.crash", b"")
        program = self.submitted(self.launch(path))
        self.assertEqual(program.dismiss_alert(), ("Critical error", "Plovrin was unable to find a log to submit."))
        self.assertEqual(program.exit_status(), 0)
        self.assert_posts(server, 0)
        self.assertEqual(self.home.settings(), {})

    def test_a_report_of_blanks_is_sent(self):
        server = self.serve()
        path = self.home.crash_log("Blank_1.crash", b" \n\n")
        self.assert_report_sent(self.submitted(self.launch(path)), server, b" \n\n")

    def test_an_alert_has_one_button(self):
        program = self.submitted(self.launch(), " ")
        program.alert()
        self.assertEqual(program.screen.alert_buttons(), ["OK"])


class Settings(ProgramTest):
    def test_an_accepted_report_is_counted_and_dated(self):
        server = self.serve()
        self.assert_accepted(self.submitted(self.launch()), server)
        settings = self.home.settings()
        self.assertEqual(settings[COUNT], "1")
        self.assertTrue(settings[DATE])

    def test_a_refused_report_is_counted_too(self):
        self.serve("refuse")
        program = self.submitted(self.launch())
        program.dismiss_alert()
        self.assertEqual(self.home.settings()[COUNT], "1")

    def test_the_count_goes_on_from_what_is_stored(self):
        self.home.write_settings(f"[General]\n{COUNT}=41\n")
        server = self.serve()
        self.assert_accepted(self.submitted(self.launch()), server)
        self.assertEqual(self.home.settings()[COUNT], "42")

    def test_a_damaged_store_does_not_stop_a_report(self):
        self.home.write_settings("\x00\x01[General\ncrashSubmissionCount")
        server = self.serve()
        self.assert_accepted(self.submitted(self.launch()), server)
        self.assertEqual(self.home.settings().get(COUNT), "1")

    def test_an_unwritable_store_does_not_stop_a_report(self):
        os.rmdir(os.path.join(self.home.path, ".config"))
        with open(os.path.join(self.home.path, ".config"), "wb"):
            pass
        server = self.serve()
        self.assert_report_sent(self.submitted(self.launch()), server, self.expected())

    def test_a_missing_home_does_not_stop_a_report(self):
        server = self.serve()
        # Below a file, where nobody can make a folder: root, who may be behind the ordinary user, would make any other.
        nowhere = os.path.join(self.crash_log, "home")
        homeless = ("env", "-u", "XDG_CONFIG_HOME", "-u", "XDG_CACHE_HOME", "-u", "XDG_DATA_HOME", f"HOME={nowhere}",
                    *ORDINARY_USER)
        program = self.start("-remotename", "anvil", "-log", self.crash_log, prefix=homeless).wait_for_window()
        self.assert_report_sent(self.submitted(program), server, CRASH_LOG)


# A sanitizer holds address space of its own, which no bound on the program's leaves it.
if not os.environ.get("KORVALE_SANITIZERS"):
    class Memory(ProgramTest):
        def test_a_report_that_memory_cannot_hold_twice_is_posted_without_a_body(self):
            size = 64 * MEBIBYTE
            server = self.serve("refuse,accept")
            program = self.launch(self.home.crash_log("Large_1.crash", b"x" * size))
            with open(f"/proc/{program.pid}/statm", encoding="ascii") as statm:
                address_space = int(statm.read().split()[0]) * os.sysconf("SC_PAGE_SIZE")
            limit = address_space + 48 * MEBIBYTE
            resource.prlimit(program.pid, resource.RLIMIT_AS, (limit, resource.RLIM_INFINITY))
            self.submitted(program)
            self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
            self.assertEqual(server.posts()[0].body, b"")
            self.assertEqual(self.home.settings()[COUNT], "1")
            lines = program.errors().splitlines()
            self.assertIn("Exception in generateFormData:forBoundary. MallocException - ", lines[0])
            self.assertIn("Returned data: ", lines[1])
            self.assertEqual(len(lines), 2, lines)


class Throttle(ProgramTest):
    def anonymous_run(self):
        return self.submitted(self.launch(), email=None)

    def test_the_twelfth_anonymous_report_right_after_the_eleventh_is_refused(self):
        self.home.write_settings(f"[General]\n{COUNT}=10\n")
        server = self.serve()
        self.assert_accepted(self.anonymous_run(), server)
        self.assertEqual(self.home.settings()[COUNT], "11")
        stored = self.home.settings()
        second = self.anonymous_run()
        title, message = second.dismiss_alert()
        self.assertEqual(title, "You must enter your email address.")
        self.assertRegex(message, r"^Please enter an address in the form [^ @]+@[^ @]*example\.(com|net|org)$")
        self.assert_posts(server, 1)
        self.assertEqual(self.home.settings(), stored)
        self.assertTrue(second.is_unlocked())
        self.assert_accepted(self.submitted(second), server, posts=2)

    def test_what_another_window_has_stored_since_counts(self):
        self.home.write_settings(f"[General]\n{COUNT}=11\n")
        server = self.serve()
        first = self.launch()
        self.assert_accepted(self.submitted(self.launch(), email=None), server)
        self.submitted(first, email=None)
        self.assertEqual(first.dismiss_alert()[0], "You must enter your email address.")
        self.assertEqual(self.home.settings()[COUNT], "12")
        self.submitted(first)
        self.assert_accepted(first, server, posts=2)
        self.assertEqual(self.home.settings()[COUNT], "13")

    def test_a_stored_date_that_is_no_date_is_logged_and_nothing_is_sent(self):
        self.home.write_settings(f"[General]\n{COUNT}=11\n{DATE}=yesterday\n")
        server = self.serve()
        program = self.anonymous_run()
        wait_until(lambda: "Exception in submitReport. " in program.errors(), "the log line")
        self.assertTrue(program.is_unlocked())
        self.assert_posts(server, 0)
        self.assertEqual(self.home.settings(), {COUNT: "11", DATE: "yesterday"})


class Retry(ProgramTest):
    def test_a_refused_report_is_accepted_at_the_second_attempt(self):
        server = self.serve("refuse,accept")
        program = self.submitted(self.launch())
        self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
        self.assert_usable_after_failure(program)
        self.assert_posts(server, 1)
        program.submit()
        self.assert_accepted(program, server, posts=2)
        for post in server.posts():
            self.assertEqual(post.fields()["crashlog"], self.expected())

    def test_the_reply_is_logged_once_the_alert_is_dismissed(self):
        self.serve("refuse")
        program = self.submitted(self.launch())
        program.alert()
        self.assertNotIn("Returned data", program.errors())
        program.dismiss_alert()
        wait_until(lambda: "Returned data: The trial endpoint refuses this report." in program.errors(), "the log line")


class Cancel(ProgramTest):
    def sending(self):
        program = self.submitted(self.launch(), ADDRESS, "It froze.")
        program.wait_until_sending()
        return program

    def test_a_running_upload_locks_the_form(self):
        self.serve("never")
        program = self.sending()
        self.assertTrue(program.is_locked())
        self.assertTrue(program.screen.is_shown("Sending"))

    def test_the_indicator_tells_how_much_has_gone(self):
        self.serve("never-read")
        # More than the systems of both sides take over for nobody.
        large = self.home.crash_log("Harbour_2026-11-03.crash", b"line of a large report\n" * (MEBIBYTE // 23))
        program = self.submitted(self.launch(log=large))
        program.wait_until_sending()
        indicator = program.screen.find("Sending")
        wait_until(lambda: Atspi.Value.get_maximum_value(indicator) == 100, "the indicator to tell a share")
        wait_until(lambda: 0 < Atspi.Value.get_current_value(indicator) < 100, "some of it to have gone")

    def test_cancel_unlocks_the_form_and_the_next_report_is_accepted(self):
        server = self.serve("never,accept")
        program = self.sending()
        wait_until(server.posts, "the first POST")
        program.press("Cancel")
        wait_until(program.can_submit, "the submit button")
        self.assertTrue(program.is_unlocked())
        wait_until(lambda: program.offers("Don't Send"), "the way out of the window")
        self.assertFalse(program.offers("Cancel"))
        self.assertIsNone(program.screen.alert())
        program.fill_in("other@example.org")
        program.submit()
        self.assert_accepted(program, server, posts=2)
        self.assertEqual(server.posts()[1].fields(),
                         {"crashlog": self.expected(), "email": b"other@example.org", "info": b"It froze."})

    def test_escape_cancels_a_running_upload(self):
        server = self.serve("never")
        program = self.sending()
        wait_until(server.posts, "the POST")
        program.key("Escape")
        wait_until(program.can_submit, "the submit button")
        self.assertTrue(program.is_unlocked())
        self.assertTrue(program.process.is_running())

    def test_edit_report_unlocks_the_form_after_a_refusal(self):
        self.serve("refuse")
        program = self.submitted(self.launch())
        program.dismiss_alert()
        self.assert_usable_after_failure(program)
        program.press("Edit Report")
        wait_until(program.is_unlocked, "the form to be unlocked")
        self.assertTrue(program.can_submit())
