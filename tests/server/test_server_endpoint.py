"""What the endpoint accepts, stores and refuses, of the program and of others."""

import fcntl
import os
import re
import signal
import subprocess
import time
import unittest

from installation import BOUNDARY, ENDPOINT, PATH, PROJECT, RemoteDatabaseStore, body_of, kill, part
from server_support import ServerTest, name_of
from support import cases
from trial.home import read
from trial.waiting import wait_until

REPORT = {"crashlog": b"line 1\r\nline 2\n", "email": b"jo@example.org", "info": b"text"}


class TheFiles(unittest.TestCase):
    def test_each_is_valid_and_prints_nothing_of_its_own(self):
        for name in ("answer.php", "reportcrash.php", "stores.php", "reports"):
            with self.subTest(name):
                path = os.path.join(ENDPOINT, name)
                subprocess.run(["php", "-l", path], check=True, capture_output=True, timeout=60)
                # A byte outside of the code would be in every answer, and a byte refuses.
                self.assertRegex(read(path), rb"\A(#!/usr/bin/env php\n)?<\?php\n")
                self.assertNotIn(b"?>", read(path))
                self.assertIn(b"\ndeclare(strict_types=1);\n", read(path))


def seconds_in(file, before):
    """The number of seconds that a file of the project has after these words."""
    text = read(os.path.join(PROJECT, file)).decode()
    return int(re.search(re.escape(before) + r"(\d+)", text)[1])


class TheLimits(unittest.TestCase):
    def test_the_worker_gives_up_first_then_php_fpm_then_nginx_then_the_program(self):
        php_fpm = seconds_in("server/php-fpm.conf", "request_terminate_timeout = ")
        program = seconds_in("src/desktop/transfer/TransferSettings.h", "kIdleLimit = std::chrono::seconds(")
        self.assertLess(seconds_in("server/php-fpm.conf", "php_admin_value[max_execution_time] = "), php_fpm)
        self.assertLess(seconds_in("server/stores.php", "PDO::ATTR_TIMEOUT => ")
                        + seconds_in("server/stores.php", "SET statement_timeout = '"), php_fpm)
        for limit in ("fastcgi_send_timeout ", "fastcgi_read_timeout "):
            nginx = seconds_in("server/nginx.conf", limit)
            # PHP-FPM only looks at its workers every third of its limit.
            self.assertLess(php_fpm + php_fpm / 3, nginx)
            self.assertLess(nginx, program)


class TheProgram(ServerTest):
    def test_a_report_is_accepted_and_stored_byte_for_byte(self):
        installation = self.install()
        self.assertEqual(self.outcome(self.submit()), "accepted")
        self.assert_stored(installation, self.fields())
        self.assertEqual(len(installation.store.reports()), 1)
        self.assertEqual(installation.store.drafts(), [])


class TheStore(ServerTest):
    def traced_steps(self, *posts):
        """What PHP-FPM does with the store and the answer to each of these."""
        trace = os.path.join(self.folder, "trace")
        installation = self.install(tracer=[
            "strace", "--follow-forks", "--decode-fds=path", "--quiet=all", "--signal=none", "--output", trace,
            "--trace", "write,fsync,fdatasync,rename,utimensat"])
        for fields in posts:
            self.assertEqual(installation.post(fields), (200, b""))
        installation.stop_fpm()
        store = installation.store.path
        return [step for line in read(trace).decode().splitlines() if (step := step_of(line, store))]

    def test_a_report_is_on_disk_under_its_name_before_it_is_answered(self):
        self.assertEqual(self.traced_steps(REPORT), [
            "write crashlog", "fsync crashlog", "write email", "fsync email", "write info", "fsync info",
            "fsync draft", f"rename draft {name_of(REPORT)}", "fsync store", "answer"])

    def test_the_new_date_of_a_report_that_is_sent_again_is_on_disk_before_it_is_answered(self):
        steps = self.traced_steps(REPORT, REPORT)
        name = name_of(REPORT)
        self.assertEqual(steps[steps.index("answer") + 1:], [f"date {name}", f"fsync {name}", "fsync store", "answer"])


def step_of(line, store):
    """What a line of the trace says about the store or the answer; nothing of what else PHP does."""
    line = re.sub(re.escape(store) + r"/\.draft-[0-9a-f]+", "draft", line)
    line = line.replace("draft/", "").replace(f"{store}/", "").replace(store, "store")
    if match := re.search(r" (write|fsync)\(\d+<(crashlog|email|info|draft|store|[0-9a-f]{64})>", line):
        return f"{match[1]} {match[2]}"
    if match := re.search(r' utimensat\(AT_FDCWD[^,]*, "(\w+)"', line):
        return f"date {match[1]}"
    if match := re.search(r' rename\("(\w+)", "(\w+)"', line):
        return f"rename {match[1]} {match[2]}"
    return "answer" if " write(" in line and "Content-" in line else None


def documented_place():
    """The database's source name in docs/server.md."""
    text = read(os.path.join(PROJECT, "docs", "server.md")).decode()
    return re.search(r'^env\[REPORT_STORE\] = "(pgsql:.+)"$', text, re.MULTILINE)[1]


class TheDocumentedDatabase(ServerTest):
    """On another machine, with a certificate, and a password in a file."""

    def test_stores_a_report_once_its_authority_is_trusted(self):
        store = self.database(RemoteDatabaseStore, place=documented_place())
        installation = self.install(store=store)
        self.assertEqual(installation.post(REPORT), (503, b"The report could not be stored.\n"))
        self.assertIn("certificate verify failed", installation.log())
        self.assert_nothing_stored(installation)
        store.trust()
        self.assertEqual(installation.post(REPORT), (200, b""))
        self.assertEqual(store.reports(), {name_of(REPORT): REPORT})


def sizes_in(folder):
    return [entry.stat().st_size for entry in os.scandir(folder)]


class KilledProcesses(ServerTest):
    def test_a_body_is_left_behind_by_php_alone_and_deleted_by_cron_after_an_hour(self):
        installation = self.install()
        store = os.open(installation.store.path, os.O_RDONLY)
        # The worker waits for it, and nginx for the worker.
        fcntl.flock(store, fcntl.LOCK_EX)
        connection = installation.connect()
        body = body_of({"crashlog": bytes(100_000)})
        connection.request("POST", PATH, body, {"Content-Type": f"multipart/form-data; boundary={BOUNDARY}"})
        # Of a body that nginx has not handed over to its end PHP itself takes away what has come.
        wait_until(lambda: sizes_in(installation.spool) == [len(body)], "PHP to keep the whole body")
        installation.kill_nginx()
        for worker in installation.workers():
            kill(worker)
        connection.close()
        os.close(store)
        self.assertEqual(os.listdir(f"{installation.folder}/bodies"), [])

        [left_behind] = os.listdir(installation.spool)
        installation.run_cron()
        self.assertEqual(os.listdir(installation.spool), [left_behind])
        then = time.time() - 61 * 60
        os.utime(os.path.join(installation.spool, left_behind), (then, then))
        installation.run_cron()
        self.assertEqual(os.listdir(installation.spool), [])


class TheForm(ServerTest):
    @cases(
        plain=(REPORT,),
        without_address_and_description=({"crashlog": b"log"},),
        empty_log=({"crashlog": b""},),
        every_byte=({"crashlog": bytes(range(256)) * 300},),
        ends_in_line_breaks=({"crashlog": b"a\r\n\r\n", "info": b"\n\r\n"},),
        looks_like_a_delimiter=({"crashlog": b"a\r\n--" + BOUNDARY.encode()[:-1] + b"\r\nb"},),
        looks_like_a_part=({"crashlog": b'a\r\nContent-Disposition: form-data; name="email"\r\n\r\nb'},),
        in_another_order=({"info": b"i", "crashlog": b"c", "email": b"e"},),
    )
    def test_is_stored_byte_for_byte(self, fields):
        installation = self.install()
        self.assertEqual(installation.post(fields), (200, b""))
        self.assertEqual(installation.store.reports(), {name_of(fields): fields})

    def test_a_closing_delimiter_is_allowed(self):
        installation = self.install()
        closing = b"--" + BOUNDARY.encode() + b"--"
        for body in (body_of(REPORT) + closing, body_of(REPORT) + closing + b"\r\n"):
            self.assertEqual(installation.request(body=body), (200, b""))
        self.assertEqual(installation.store.reports(), {name_of(REPORT): REPORT})

    def test_a_body_that_is_sent_in_chunks_is_stored(self):
        installation = self.install()
        chunks = iter([body_of(REPORT)[:50], body_of(REPORT)[50:]])
        self.assertEqual(installation.request(body=chunks), (200, b""))
        self.assertEqual(installation.store.reports(), {name_of(REPORT): REPORT})

    def test_a_quoted_boundary_is_understood(self):
        installation = self.install()
        headers = {"Content-Type": f'multipart/form-data; boundary="{BOUNDARY}"'}
        self.assertEqual(installation.request(body=body_of(REPORT), headers=headers), (200, b""))

    @cases(in_a_folder=("folder",), in_the_database=("database",))
    def test_a_report_sent_again_is_stored_once(self, kind):
        installation = self.install(store=self.database() if kind == "database" else None)
        for fields in (REPORT, REPORT, dict(reversed(REPORT.items()))):
            self.assertEqual(installation.post(fields), (200, b""))
        self.assertEqual(installation.store.reports(), {name_of(REPORT): REPORT})

    def test_reports_that_differ_in_where_a_field_ends_are_two(self):
        installation = self.install()
        for fields in ({"crashlog": b"ab", "email": b"c"}, {"crashlog": b"a", "email": b"bc"}):
            self.assertEqual(installation.post(fields), (200, b""))
        self.assertEqual(len(installation.store.reports()), 2)


DELIMITER = b"--" + BOUNDARY.encode() + b"\r\n"


class Refusals(ServerTest):
    """Each is a line of text, and nothing is stored."""

    def assert_refused(self, installation, answer, status):
        self.assertEqual(answer[0], status)
        self.assertRegex(answer[1], rb"\A[^\n]+\.\n\Z")
        self.assert_nothing_stored(installation)

    @cases(
        no_crash_log=(body_of({"info": b"text"}), 400),
        no_field=(b"", 400),
        closing_delimiter_alone=(b"--" + BOUNDARY.encode() + b"--\r\n", 400),
        cut_in_the_last_field=(body_of(REPORT)[:-3], 400),
        cut_in_a_header=(DELIMITER + b"Content-Disposition: form-data; na", 400),
        text_before_the_first_delimiter=(b"text\r\n" + body_of(REPORT), 400),
        text_after_the_closing_delimiter=(body_of(REPORT) + b"--" + BOUNDARY.encode() + b"--\r\ntext\r\n", 400),
        another_boundary=(body_of(REPORT).replace(BOUNDARY.encode(), b"another"), 400),
        boundary_that_goes_on=(body_of(REPORT).replace(BOUNDARY.encode(), BOUNDARY.encode() + b"x"), 400),
        a_field_twice=(body_of(REPORT) + DELIMITER + part("email", b"x"), 400),
        an_unknown_field=(body_of(REPORT) + DELIMITER + part("other", b"x"), 400),
        a_path_for_a_name=(DELIMITER + part("../crashlog", b"x"), 400),
        a_file=(DELIMITER + b'Content-Disposition: form-data; name="crashlog"; filename="../x"\r\n\r\nx\r\n', 400),
    )
    def test_of_a_form(self, body, status):
        installation = self.install()
        self.assert_refused(installation, installation.request(body=body), status)

    @cases(get=("GET",), put=("PUT",), delete=("DELETE",), options=("OPTIONS",))
    def test_of_a_method(self, method):
        installation = self.install()
        self.assert_refused(installation, installation.request(method, body_of(REPORT)), 405)

    @cases(
        urlencoded=("application/x-www-form-urlencoded",),
        without_boundary=("multipart/form-data",),
        empty_boundary=("multipart/form-data; boundary=",),
    )
    def test_of_a_content_type(self, content_type):
        installation = self.install()
        answer = installation.request(body=body_of(REPORT), headers={"Content-Type": content_type})
        self.assert_refused(installation, answer, 415)

    def assert_php_refuses(self, status, body, **parameters):
        installation = self.install()
        head, content = installation.fastcgi(body, **parameters)
        self.assertTrue(head.startswith(f"Status: {status} "), head)
        self.assert_refused(installation, (status, content), status)

    def test_of_input_shorter_than_announced_although_its_last_part_is_whole(self):
        body = body_of(REPORT)
        self.assert_php_refuses(400, body, CONTENT_LENGTH=str(len(body) + 10))

    def test_of_input_whose_length_is_not_announced(self):
        self.assert_php_refuses(411, body_of(REPORT), CONTENT_LENGTH=None)

    def test_of_a_length_that_is_no_number(self):
        self.assert_php_refuses(411, body_of(REPORT), CONTENT_LENGTH="1e3")

    def test_of_an_announced_length_over_the_limit(self):
        self.assert_php_refuses(413, body_of(REPORT), CONTENT_LENGTH="33554433")

    def test_of_a_report_that_memory_is_too_small_for_said_by_php_itself(self):
        installation = self.install(pool={"memory_limit] = 128M": "memory_limit] = 6M"})
        head, content = installation.fastcgi(body_of({"crashlog": bytes(3_000_000)}))
        self.assertIn("Status: 500 ", head)
        self.assert_refused(installation, (500, content), 500)

    def test_of_a_report_that_php_is_not_there_for(self):
        installation = self.install()
        installation.stop_fpm()
        answer = installation.post(REPORT)
        self.assertEqual(answer, (502, b"The report was not stored.\n"))
        self.assert_nothing_stored(installation)

    def test_of_a_report_that_php_takes_too_long_for(self):
        installation = self.install(nginx={"fastcgi_read_timeout 55s": "fastcgi_read_timeout 1s"})
        for worker in installation.workers():
            os.kill(worker, signal.SIGSTOP)
            self.addCleanup(os.kill, worker, signal.SIGCONT)
        answer = installation.post(REPORT)
        self.assertEqual(answer, (504, b"The report was not stored.\n"))
        self.assert_nothing_stored(installation)

    def test_of_too_many_requests_of_one_address(self):
        installation = self.install(nginx={"burst=20": "burst=2", "rate=30r/m": "rate=1r/m"})
        statuses = []
        for number in range(5):
            status, content = installation.post({"crashlog": b"%d" % number})
            self.assertEqual(content == b"", status == 200)
            statuses.append(status)
        self.assertEqual(statuses[:3], [200, 200, 200])
        self.assertEqual(statuses[-1], 429)
        self.assertEqual(len(installation.store.reports()), statuses.count(200))
