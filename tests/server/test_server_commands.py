"""The administrator's commands, on either store."""

import base64
import calendar
import json
import os
import re
import subprocess
import time

from installation import ENDPOINT, FolderStore
from server_support import ServerTest, ensure_account, name_of
from support import cases
from trial.home import write
from trial.processes import ORDINARY_USER

FIRST = {"crashlog": b"first\n", "email": b"jo@example.org"}
SECOND = {"crashlog": b"second\r\n\0\xff", "email": b"Jo@Example.ORG ", "info": "Zürich".encode()}
THIRD = {"crashlog": b"third\n", "email": b"\x1b[31m evil@example.org"}
FOURTH = {"crashlog": b"fourth\n"}
EITHER_STORE = {"in_a_folder": ("folder",), "in_the_database": ("database",)}
ADD = """require $argv[1];
openStore($argv[2])->add(array_map("base64_decode", json_decode(stream_get_contents(STDIN), true)));"""


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

    def add(self, fields):
        text = json.dumps({name: base64.b64encode(value).decode() for name, value in fields.items()})
        subprocess.run([*ORDINARY_USER, "php", "-r", ADD, f"{ENDPOINT}/stores.php", self.store.place],
                       input=text.encode(), check=True, timeout=60)

    def make_older(self, name, days):
        if isinstance(self.store, FolderStore):
            then = time.time() - days * 86400
            os.utime(os.path.join(self.store.path, name), (then, then))
        else:
            self.store.psql("--command", f"UPDATE crash_report SET received = now() - interval '{days} days' "
                                         f"WHERE name = '{name}'")

    def run_command(self, *arguments):
        return subprocess.run([*ORDINARY_USER, f"{ENDPOINT}/reports", "--store", self.store.place, *arguments],
                              capture_output=True, check=False, timeout=60)

    def output(self, *arguments):
        result = self.run_command(*arguments)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def assert_kept(self, *reports):
        self.assertEqual(self.store.reports(), {name_of(fields): fields for fields in reports})

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
    def test_forget_deletes_the_reports_of_one_address(self, kind):
        self.store_with(kind, FIRST, SECOND, THIRD, FOURTH)
        self.assertEqual(self.output("forget", "JO@example.org"), b"deleted: 2\n")
        self.assert_kept(THIRD, FOURTH)

    def test_expire_deletes_old_drafts_and_leaves_new_ones(self):
        self.store_with("folder")
        for name, days in (("old", 3), ("new", 0)):
            draft = os.path.join(self.store.path, f".draft-{name}")
            os.mkdir(draft)
            write(f"{draft}/crashlog", b"half")
            self.make_older(f".draft-{name}", days)
        self.assertEqual(self.output("expire", "30"), b"deleted: 0\n")
        self.assertEqual(self.store.drafts(), [".draft-new"])

    @cases(
        nothing=((), 2),
        unknown=(("purge",), 2),
        forget_everybody=(("forget", " "), 1),
        days_that_are_no_number=(("expire", "x"), 1),
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

    def test_a_store_that_is_not_there_is_an_error(self):
        self.store_with("folder")
        os.rmdir(self.store.path)
        result = self.run_command("list")
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertIn(b"No such file", result.stderr)
