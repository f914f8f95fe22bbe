"""The administrator's commands, on either store."""

import base64
import calendar
import concurrent.futures
import fcntl
import json
import os
import re
import signal
import subprocess
import time

from installation import ENDPOINT, FolderStore, children_of
from server_support import ServerTest, ensure_account, name_of
from support import cases
from trial.home import read, write
from trial.processes import ORDINARY_USER, Started
from trial.waiting import wait_until

FIRST = {"crashlog": b"first\n", "email": b"jo@example.org"}
SECOND = {"crashlog": b"second\r\n\0\xff", "email": b"Jo@Example.ORG ", "info": "Zürich".encode()}
THIRD = {"crashlog": b"third\n", "email": b"\x1b[31m evil@example.org"}
FOURTH = {"crashlog": b"fourth\n"}
EITHER_STORE = {"in_a_folder": ("folder",), "in_the_database": ("database",)}
ADD = """require $argv[1];
openStore($argv[2])->add(array_map("base64_decode", json_decode($argv[3], true)));"""
# A look at the store, the only report sent again, and what follows from the look.
REMOVE_AFTER_ADD = """require $argv[1];
$store = openStore($argv[2]);
[$found] = iterator_to_array($store->list());
$store->add(array_map("base64_decode", json_decode($argv[3], true)));
var_dump($store->remove($found["name"], time() - 86400));"""
# Reports that are sent again for some seconds, each when it is old already; prints those that are missing just after.
RESEND = """require $argv[1];
$store = openStore($argv[2]);
for ($end = microtime(true) + 3; microtime(true) < $end;) {
    for ($number = 0; $number < 100; $number++) {
        $fields = ["crashlog" => "$argv[3] $number", "email" => "jo@example.org"];
        $store->add($fields);
        clearstatcache();
        $report = "$argv[2]/" . nameOf($fields);
        is_dir($report) ? touch($report, time() - 40 * 86400) : print("lost $number\n");
    }
}"""


def text_of(fields):
    return json.dumps({name: base64.b64encode(value).decode() for name, value in fields.items()})


class Commands(ServerTest):
    def store_with(self, kind, *reports):
        if kind == "database":
            self.store = self.database()
        else:
            ensure_account()
            self.store = FolderStore(self.subfolder("store"))
        # The last arrived just now, each of the others two days before the one after it.
        for age, fields in enumerate(reversed(reports)):
            self.add(fields)
            self.make_older(name_of(fields), 2 * age)

    def add(self, fields, script=ADD):
        return subprocess.run([*ORDINARY_USER, "php", "-r", script, f"{ENDPOINT}/stores.php", self.store.place,
                               text_of(fields)], check=True, stdout=subprocess.PIPE, timeout=60).stdout

    def make_older(self, name, days):
        if isinstance(self.store, FolderStore):
            then = time.time() - days * 86400
            os.utime(os.path.join(self.store.path, name), (then, then))
        else:
            self.store.psql("--command", f"UPDATE crash_report SET received = now() - interval '{days} days' "
                                         f"WHERE name = '{name}'")

    def command(self, *arguments):
        return [*ORDINARY_USER, f"{ENDPOINT}/reports", "--store", self.store.place, *arguments]

    def run_command(self, *arguments, prefix=()):
        return subprocess.run([*prefix, *self.command(*arguments)], capture_output=True, check=False, timeout=60)

    def output(self, *arguments, prefix=()):
        result = self.run_command(*arguments, prefix=prefix)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def assert_kept(self, *reports):
        self.assertEqual(self.store.reports(), {name_of(fields): fields for fields in reports})

    def comes_to_wait(self, job, *drafts):
        """Whether the job comes to wait for the lock of the store or of these drafts, rather than to its end."""
        places = "|".join(str(os.stat(os.path.join(self.store.path, name)).st_ino) for name in ("", *drafts))
        wait_until(lambda: job.done() or re.search(f"-> FLOCK .*:({places}) ", read("/proc/locks").decode()),
                   "a lock to be waited for")
        return not job.done()

    @cases(**EITHER_STORE)
    def test_list_names_every_report_oldest_first(self, kind):
        self.store_with(kind, FIRST, SECOND, THIRD, FOURTH)
        lines = [re.fullmatch(r"(\S+)Z +(\d+) (\w+) (.*)", line).groups()
                 for line in self.output("list").decode().splitlines()]
        self.assertEqual([line[1:] for line in lines], [
            ("6", name_of(FIRST), "jo@example.org"), ("10", name_of(SECOND), "Jo@Example.ORG?"),
            ("6", name_of(THIRD), "?[31m?evil@example.org"), ("7", name_of(FOURTH), "")])
        ages = [time.time() - calendar.timegm(time.strptime(line[0], "%Y-%m-%dT%H:%M:%S")) for line in lines]
        self.assertEqual([round(age / 86400) for age in ages], [6, 4, 2, 0])

    def test_list_reads_a_report_that_was_deleted_and_sent_again_at_that_moment(self):
        self.store_with("folder", FIRST)
        # Its address is not there when it is first asked for.
        path = os.path.join(self.store.path, name_of(FIRST), "email")
        output = self.output("list", prefix=["strace", "--output", os.path.join(self.folder, "trace"), "--trace-path",
                                             path, "--inject", "openat:error=ENOENT:when=1"])
        self.assertIn(f"{name_of(FIRST)} jo@example.org\n".encode(), output)

    @cases(**EITHER_STORE)
    def test_show_prints_a_field_byte_for_byte(self, kind):
        self.store_with(kind, FIRST, SECOND)
        for field, content in SECOND.items():
            self.assertEqual(self.output("show", name_of(SECOND), field), content)

    @cases(**EITHER_STORE)
    def test_expire_deletes_what_is_older(self, kind):
        self.store_with(kind, FIRST, SECOND, THIRD, FOURTH)
        self.assertEqual(self.output("expire", "3"), b"deleted: 2\n")
        self.assert_kept(THIRD, FOURTH)

    @cases(**EITHER_STORE)
    def test_expire_leaves_what_was_sent_again_since(self, kind):
        self.store_with(kind, FIRST, SECOND)
        self.add(FIRST)
        self.assertEqual(self.output("expire", "1"), b"deleted: 0\n")
        self.assert_kept(FIRST, SECOND)

    @cases(**EITHER_STORE)
    def test_remove_leaves_what_was_sent_again_after_the_look_at_the_store(self, kind):
        self.store_with(kind, FIRST)
        self.make_older(name_of(FIRST), 2)
        self.assertEqual(self.add(FIRST, REMOVE_AFTER_ADD), b"bool(false)\n")
        self.assert_kept(FIRST)

    def test_a_report_that_is_deleted_while_it_is_sent_again_is_stored_anew(self):
        self.store_with("folder", FIRST)
        folder = os.open(self.store.path, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        # As the deletion of reports holds it.
        fcntl.flock(folder, fcntl.LOCK_EX)
        with concurrent.futures.ThreadPoolExecutor() as pool:
            adding = pool.submit(self.add, FIRST)
            is_waiting = self.comes_to_wait(adding)
            os.rename(os.path.join(self.store.path, name_of(FIRST)), os.path.join(self.store.path, ".draft-old"))
            fcntl.flock(folder, fcntl.LOCK_UN)
            adding.result()
        self.assertTrue(is_waiting)
        self.assertEqual(self.store.reports(), {name_of(FIRST): FIRST})

    def test_list_and_expire_go_on_while_reports_are_sent_again_and_lose_none(self):
        self.store_with("folder")
        senders = [subprocess.Popen([*ORDINARY_USER, "php", "-r", RESEND, f"{ENDPOINT}/stores.php", self.store.place,
                                     name], stdout=subprocess.PIPE) for name in ("first", "second")]
        deleted = 0
        while any(sender.poll() is None for sender in senders):
            commands = [subprocess.Popen(self.command(*words), stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                        for words in (("list",), ("expire", "30"), ("expire", "30"))]
            for command in commands:
                output, errors = command.communicate(timeout=60)
                self.assertEqual((command.returncode, errors), (0, b""))
                deleted += sum(int(count) for count in re.findall(rb"(?m)^deleted: (\d+)$", output))
        self.assertEqual([(sender.communicate()[0], sender.returncode) for sender in senders], [(b"", 0)] * 2)
        self.assertGreater(deleted, 0)
        self.assertEqual(self.store.drafts(), [])

    @cases(**EITHER_STORE)
    def test_forget_deletes_the_reports_of_one_address(self, kind):
        self.store_with(kind, FIRST, SECOND, THIRD, FOURTH)
        self.assertEqual(self.output("forget", "JO@example.org"), b"deleted: 2\n")
        self.assert_kept(THIRD, FOURTH)

    @cases(
        letters_of_any_alphabet=("Émile@example.org\u202e".encode(), "Émile@example.org?"),
        bytes_that_are_no_text=(b"\xc3\x89\xff@example.org", "???@example.org"),
    )
    def test_list_prints_an_address_with(self, email, printed):
        self.store_with("folder", {"crashlog": b"log", "email": email})
        self.assertTrue(self.output("list").decode().endswith(f" {printed}\n"))

    @cases(
        letters_of_any_alphabet=(" émile@example.org", "ÉMILE@example.org".encode(), True),
        spaces_of_any_alphabet=("jo@example.org", "\u00a0\u3000jo@example.org\u2003\n".encode(), True),
        spaces_of_any_alphabet_in_what_is_wanted=("\u00a0jo@example.org\u200b", b"jo@example.org", True),
        characters_that_cannot_be_seen=("jo@example.org", "\ufeffjo@example.org\u202e".encode(), True),
        a_space_within=("jo@example.org", "jo\u00a0@example.org".encode(), False),
        spaces_around_bytes_that_are_no_text=("\xff@example.org".encode("latin-1"), b" \xff@example.org\n", True),
        bytes_that_are_no_text=(b"\xff@example.org", b"\xff@EXAMPLE.org", True),
        one_byte_that_is_no_text=("é@example.org", b"\xc3\xa9@example.org\xff", False),
        characters_that_stand_for_others_in_patterns=("j.o@example.org", b"jxo@example.org", False),
    )
    def test_forget_compares_addresses_with(self, wanted, email, is_deleted):
        fields = {"crashlog": b"log", "email": email}
        self.store_with("folder", fields)
        self.assertEqual(self.output("forget", wanted), b"deleted: %d\n" % is_deleted)
        self.assert_kept(*[] if is_deleted else [fields])

    @cases(forget=("forget", "jo@example.org"), expire=("expire", "30"))
    def test_drafts_of_requests_that_were_ended_in_the_middle_are_deleted_by(self, *arguments):
        self.store_with("folder", FOURTH)
        for number, fields in enumerate((FIRST, FOURTH, {"email": b"jo@example.org"}, {})):
            draft = os.path.join(self.store.path, f".draft-{number}")
            os.mkdir(draft)
            for field, content in fields.items():
                write(f"{draft}/{field}", content)
        self.assertEqual(self.output(*arguments), b"deleted: 0\n")
        self.assertEqual(self.store.drafts(), [])
        self.assert_kept(FOURTH)

    @cases(
        forget_when_its_draft_is_made=("mkdir", 1, "forget", "jo@example.org", 1),
        forget_when_its_draft_is_on_disk=("fsync", 3, "forget", "jo@example.org", 1),
        expire_when_its_draft_is_on_disk=("fsync", 3, "expire", "30", 0),
    )
    def test_a_report_that_is_being_stored_is_waited_for_by(self, call, when, command, argument, deleted):
        self.store_with("folder")
        trace = os.path.join(self.folder, "trace")
        # Stopped after that call of this number.
        adding = Started(["strace", "--output", trace, "--trace", call, "--inject", f"{call}:signal=STOP:when={when}",
                          "php", "-r", ADD, f"{ENDPOINT}/stores.php", self.store.place, text_of(FIRST)],
                         self.folder, "adding", prefix=ORDINARY_USER)
        self.addCleanup(adding.end)
        wait_until(lambda: os.path.exists(trace) and b"stopped by SIGSTOP" in read(trace), "the draft")
        with concurrent.futures.ThreadPoolExecutor() as pool:
            deleting = pool.submit(self.output, command, argument)
            is_waiting = self.comes_to_wait(deleting, *self.store.drafts())
            os.kill(children_of(adding.pid)[0], signal.SIGCONT)
            self.assertEqual(deleting.result(), b"deleted: %d\n" % deleted)
        self.assertTrue(is_waiting)
        self.assertEqual(adding.exit_status(), 0)
        self.assert_kept(*[] if deleted else [FIRST])
        self.assertEqual(self.store.drafts(), [])

    @cases(
        nothing=((), 2),
        unknown=(("purge",), 2),
        forget_everybody=(("forget", " "), 1),
        forget_everybody_by_a_space_of_another_alphabet=(("forget", "\u3000"), 1),
        no_such_report=(("show", "0" * 64, "crashlog"), 1),
        a_path_for_a_name=(("show", "../store", "crashlog"), 1),
        a_path_for_a_field=(("show", name_of(FIRST), "../../x"), 1),
    )
    def test_refuses(self, arguments, status):
        self.store_with("folder", FIRST)
        result = self.run_command(*arguments)
        self.assertEqual(result.returncode, status)
        self.assertEqual(result.stdout, b"")
        self.assertNotEqual(result.stderr, b"")
        self.assert_kept(FIRST)

    @cases(
        no_number=("x",),
        nothing=("",),
        a_negative_one=("-1",),
        a_fraction=("1.5",),
        a_line_end=("1\n",),
        more_than_there_are=("1000000",),
        more_than_a_number_holds=("99999999999999999999",),
    )
    def test_expire_says_that_these_are_no_days(self, days):
        self.store_with("folder", FIRST)
        result = self.run_command("expire", days)
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertEqual(result.stderr, b"reports: the number of days is not a number of at most six digits\n")
        self.assert_kept(FIRST)

    def test_a_store_that_is_not_there_is_an_error(self):
        self.store_with("folder")
        os.rmdir(self.store.path)
        result = self.run_command("list")
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertIn(b"No such file", result.stderr)
