"""What a sender sees of each fault of the endpoint, and what is in the store then; printed as a table at the end."""

import os
import signal
import time

from installation import BOUNDARY, FolderStore, SilentDatabase, body_of, kill
from server_support import ServerTest, chances, name_of
from support import cases
from trial.home import read, write
from trial.processes import Started
from trial.waiting import wait_until

SMALL_LIMIT = {"env[REPORT_LIMIT] = 33554432": "env[REPORT_LIMIT] = 1000000"}
LARGE = 3_000_000
FULL = 31 * 1024 * 1024
REPORT = {"crashlog": b"Process: Harbour\n" * 1000, "email": b"jo@example.org"}
# Where lines are added to the pool.
MEMORY = "php_admin_value[memory_limit] = 128M"
POST_DATA = "php_admin_flag[enable_post_data_reading] = off\n"
SPOOL = "/var/spool/crash-reports"
TERMINATION = "request_terminate_timeout = 36s"


class FaultTest(ServerTest):
    """A fault, and what has to come of it: nothing that was accepted is missing from the store."""

    rows = []

    def conclude(self, installation, shown, fields, *expected, is_stored=False):
        """Writes the table's row and compares; is_stored of None: either will do for a report that was not accepted."""
        stored = installation.store.reports().get(name_of(fields))
        found = "no" if stored is None else "yes" if stored == fields else "DAMAGED"
        fault = self._testMethodName.removeprefix("test_").replace("_", " ")
        self.rows.append((fault, shown, found, shown == "accepted" and found != "yes"))
        self.assertIn(shown, expected)
        self.assertNotEqual(found, "DAMAGED")
        if shown == "accepted":
            self.assertEqual(found, "yes")
        elif is_stored is not None:
            self.assertEqual(found, "yes" if is_stored else "no")

    def conclude_program(self, installation, *expected, log=None, report=None):
        program = self.submit(log)
        self.conclude(installation, self.outcome(program), self.fields(report), *expected)
        return program

    def conclude_large(self, installation, *expected, size=LARGE):
        log, report = self.large_log(size)
        self.conclude_program(installation, *expected, log=log, report=report)

    def submit_again(self, program, installation):
        """The same window, once the fault is repaired."""
        program.dismiss_alert()
        wait_until(program.can_submit, "the submit button")
        program.submit()
        self.assertEqual(self.outcome(program), "accepted")
        self.assert_stored(installation, self.fields())


def print_table(rows):
    width = max(len(row[0]) for row in rows)
    print(f"\n{'fault':{width}}  sender sees  stored")
    for fault, shown, found, is_lost in rows:
        print(f"{fault:{width}}  {shown:11}  {found}{'  LOST' if is_lost else ''}")
    count = {shown: sum(row[1] == shown for row in rows) for shown in ("accepted", "refused", "failed")}
    print(f"total: {len(rows)} trials, {count['accepted']} accepted, {count['refused']} refused, "
          f"{count['failed']} failed; accepted and lost: {sum(row[3] for row in rows)}", flush=True)


def tearDownModule():
    if FaultTest.rows:
        print_table(FaultTest.rows)


class NoFault(FaultTest):
    def test_no_fault_folder(self):
        self.conclude_program(self.install(), "accepted")

    def test_no_fault_database(self):
        self.conclude_program(self.install(store=self.database()), "accepted")

    def test_no_fault_report_of_31_MiB(self):
        self.conclude_large(self.install(), "accepted", size=FULL)

    def test_no_fault_report_of_31_MiB_into_the_database(self):
        self.conclude_large(self.install(store=self.database()), "accepted", size=FULL)


class Script(FaultTest):
    def damage(self, file, content):
        installation = self.install()
        write(os.path.join(installation.endpoint, file), content)
        return installation

    def test_store_code_does_not_compile(self):
        self.conclude_program(self.damage("stores.php", b"<?php function {"), "refused")

    def test_store_code_is_missing(self):
        installation = self.install()
        os.remove(os.path.join(installation.endpoint, "stores.php"))
        self.conclude_program(installation, "refused")

    def test_endpoint_is_cut_short(self):
        installation = self.install()
        path = os.path.join(installation.endpoint, "reportcrash.php")
        write(path, read(path)[:os.path.getsize(path) // 2])
        self.conclude_program(installation, "refused")

    def test_endpoint_is_empty(self):
        self.conclude_program(self.damage("reportcrash.php", b""), "refused")

    def test_endpoint_is_missing(self):
        installation = self.install()
        os.remove(os.path.join(installation.endpoint, "reportcrash.php"))
        self.conclude_program(installation, "refused")

    def test_nothing_of_the_endpoint_compiles(self):
        installation = self.damage("answer.php", b"<?php function {")
        self.conclude_program(installation, "refused")

    def test_blank_lines_after_the_endpoint(self):
        installation = self.install()
        path = os.path.join(installation.endpoint, "reportcrash.php")
        write(path, read(path) + b"?>\n\n\n")
        self.conclude_program(installation, "accepted")


class Limits(FaultTest):
    def test_script_out_of_memory(self):
        self.conclude_large(self.install(pool={MEMORY: "php_admin_value[memory_limit] = 6M"}), "refused")

    def test_php_out_of_memory_before_the_script(self):
        pool = {POST_DATA: "", MEMORY: "php_admin_value[memory_limit] = 4M"}
        self.conclude_large(self.install(pool=pool), "refused")

    def test_php_takes_the_form_itself(self):
        self.conclude_program(self.install(pool={POST_DATA: ""}), "refused")

    def test_over_post_max_size(self):
        pool = {POST_DATA: "php_admin_value[post_max_size] = 1M\n"}
        # PHP leaves the form unread then, and the endpoint reads it.
        self.conclude_large(self.install(pool=pool), "accepted")

    def test_over_the_limit_of_nginx(self):
        nginx = {"        client_max_body_size 32m;\n": ""}
        self.conclude_large(self.install(nginx=nginx), "refused")

    def test_over_the_limit_of_the_endpoint(self):
        self.conclude_large(self.install(pool=SMALL_LIMIT), "refused")

    def test_over_the_rate(self):
        installation = self.install(nginx={"burst=20": "burst=1", "rate=30r/m": "rate=1r/m"})
        # From either address that the program may come from.
        for host in ["127.0.0.1", "[::1]"] * 3:
            installation.post(REPORT, host)
        self.conclude_program(installation, "refused")


class Disk(FaultTest):
    def small_store(self, size):
        return self.install(store=FolderStore(self.small_disk("store", size)))

    def test_store_full(self):
        installation = self.small_store(1024)
        self.conclude_large(installation, "refused")
        self.assertEqual(installation.store.drafts(), [])

    def test_store_full_to_the_last_byte_then_freed(self):
        installation = self.small_store(1024)
        ballast = os.path.join(installation.store.path, ".ballast")
        try:
            with open(ballast, "wb", buffering=0) as file:
                while file.write(bytes(4096)):
                    pass
        except OSError:
            pass
        program = self.conclude_program(installation, "refused")
        os.remove(ballast)
        self.submit_again(program, installation)

    def test_disk_of_nginx_full(self):
        folder = self.small_disk("bodies", 512)
        installation = self.install()
        installation.nginx.end()
        path = os.path.join(installation.folder, "nginx.conf")
        write(path, read(path).replace(f"client_body_temp_path {installation.folder}/bodies".encode(),
                                       f"client_body_temp_path {folder}".encode()))
        installation.start_nginx()
        # nginx closes the connection in the middle of the upload, before or after the sender has seen its answer.
        self.conclude_large(installation, "refused", "failed")

    def test_disk_of_php_full(self):
        self.conclude_large(self.install(pool={SPOOL: self.small_disk("spool", 512)}), "refused")

    def test_spool_missing(self):
        installation = self.install()
        os.rmdir(installation.spool)
        self.conclude_large(installation, "refused")

    def test_store_missing(self):
        installation = self.install()
        os.rmdir(installation.store.path)
        self.conclude_program(installation, "refused")

    def test_store_not_writable(self):
        installation = self.install()
        os.chmod(installation.store.path, 0o500)
        self.conclude_program(installation, "refused")

    def test_store_is_a_file(self):
        installation = self.install()
        os.rmdir(installation.store.path)
        write(installation.store.path, b"")
        self.conclude_program(installation, "refused")

    def install_with_failing(self, call, when):
        """Each worker's call of that number fails."""
        return self.install(pool={"pm.max_children = 8": "pm.max_children = 1"}, tracer=[
            "strace", "--follow-forks", "--output", os.path.join(self.folder, "trace"), "--trace", call,
            "--inject", f"{call}:error=EIO:when={when}"])

    @cases(of_the_log=(1, False), of_the_draft=(4, False), of_the_store=(5, True))
    def test_flush_fails(self, when, is_stored):
        installation = self.install_with_failing("fsync", when)
        program = self.submit()
        self.conclude(installation, self.outcome(program), self.fields(), "refused", is_stored=is_stored)
        self.submit_again(program, installation)

    def test_rename_fails(self):
        installation = self.install_with_failing("rename", 1)
        program = self.conclude_program(installation, "refused")
        self.assertEqual(installation.store.drafts(), [])
        self.submit_again(program, installation)

    def test_folder_cannot_be_made(self):
        installation = self.install_with_failing("mkdir", 1)
        program = self.conclude_program(installation, "refused")
        self.submit_again(program, installation)


class Database(FaultTest):
    def install_database(self, **options):
        return self.install(store=self.database(), **options)

    def hold_inserts(self, store):
        """Makes inserts wait for a lock until it is let go of."""
        self.holder = Started(store.command("--command", "BEGIN; LOCK TABLE crash_report IN EXCLUSIVE MODE; "
                                                         "SELECT pg_sleep(600)"), store.folder, "holder")
        self.addCleanup(self.holder.end)
        wait_until(lambda: store.backends("wait_event = 'PgSleep'"), "the lock to be held")

    @staticmethod
    def let_inserts_go(store):
        store.psql("--command", "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE wait_event = 'PgSleep'")

    def submit_until_insert(self, installation):
        """A program whose report is about to be inserted."""
        self.hold_inserts(installation.store)
        program = self.submit()
        wait_until(lambda: installation.store.backends("wait_event_type = 'Lock'"), "the insert to wait")
        return program

    def test_database_down_then_up(self):
        installation = self.install_database()
        installation.store.end()
        program = self.submit()
        shown = self.outcome(program)
        installation.store.start()
        self.conclude(installation, shown, self.fields(), "refused")
        self.submit_again(program, installation)

    def test_database_does_not_answer(self):
        installation = self.install(store=self.database(SilentDatabase))
        # Long before the library's own 30 seconds.
        self.conclude(installation, self.outcome(self.submit(), seconds=20), self.fields(), "refused")
        self.assertIn("timeout expired", installation.log())

    def test_database_stops_answering_during_the_insert(self):
        installation = self.install_database(pool={TERMINATION: "request_terminate_timeout = 1s"})
        program = self.submit_until_insert(installation)
        [backend] = installation.store.backends("wait_event_type = 'Lock'")
        os.kill(backend, signal.SIGSTOP)
        self.addCleanup(os.kill, backend, signal.SIGCONT)
        self.let_inserts_go(installation.store)
        self.conclude(installation, self.outcome(program), self.fields(), "refused")
        self.assertIn("execution timed out", installation.fpm.errors())

    def test_database_killed_during_the_insert(self):
        installation = self.install_database()
        program = self.submit_until_insert(installation)
        installation.store.kill()
        shown = self.outcome(program)
        installation.store.start()
        self.conclude(installation, shown, self.fields(), "refused")

    def test_database_connection_lost_during_the_insert(self):
        installation = self.install_database()
        program = self.submit_until_insert(installation)
        installation.store.psql("--command", "SELECT pg_terminate_backend(pid) FROM pg_stat_activity "
                                             "WHERE wait_event_type = 'Lock'")
        self.conclude(installation, self.outcome(program), self.fields(), "refused")

    def test_database_without_the_table(self):
        installation = self.install_database()
        installation.store.psql("--command", "ALTER TABLE crash_report RENAME TO other")
        program = self.submit()
        shown = self.outcome(program)
        installation.store.psql("--command", "ALTER TABLE other RENAME TO crash_report")
        self.conclude(installation, shown, self.fields(), "refused")

    def test_database_read_only(self):
        installation = self.install_database()
        installation.store.psql("--command", "ALTER SYSTEM SET default_transaction_read_only = on")
        installation.store.psql("--command", "SELECT pg_reload_conf()")
        wait_until(lambda: installation.store.psql("--command", "SHOW default_transaction_read_only").strip() == "on",
                   "the database to be read-only")
        self.conclude_program(installation, "refused")

    def test_script_over_its_time_limit(self):
        installation = self.install_database()
        program = self.submit_until_insert(installation)
        for worker in installation.workers():
            # The signal that PHP counts its time limit by.
            os.kill(worker, signal.SIGPROF)
        self.let_inserts_go(installation.store)
        self.conclude(installation, self.outcome(program), self.fields(), "refused", is_stored=True)
        self.assertIn("Maximum execution time", installation.log())

    def test_worker_ended_by_its_time_limit(self):
        installation = self.install_database(pool={TERMINATION: "request_terminate_timeout = 1s"})
        program = self.submit_until_insert(installation)
        shown = self.outcome(program)
        self.let_inserts_go(installation.store)
        self.conclude(installation, shown, self.fields(), "refused", is_stored=None)

    def test_nginx_tired_of_waiting(self):
        installation = self.install_database(nginx={"fastcgi_read_timeout 55s": "fastcgi_read_timeout 1s"})
        program = self.submit_until_insert(installation)
        shown = self.outcome(program)
        self.let_inserts_go(installation.store)
        self.conclude(installation, shown, self.fields(), "refused", is_stored=None)

    def test_worker_killed_during_the_insert(self):
        installation = self.install_database()
        program = self.submit_until_insert(installation)
        for worker in installation.workers():
            kill(worker)
        shown = self.outcome(program)
        self.let_inserts_go(installation.store)
        self.conclude(installation, shown, self.fields(), "refused", is_stored=None)

    def test_nginx_killed_before_the_answer(self):
        installation = self.install_database()
        program = self.submit_until_insert(installation)
        installation.kill_nginx()
        shown = self.outcome(program)
        self.let_inserts_go(installation.store)
        self.conclude(installation, shown, self.fields(), "failed", is_stored=None)


class Processes(FaultTest):
    def test_php_stopped_then_started(self):
        installation = self.install()
        installation.stop_fpm()
        program = self.conclude_program(installation, "refused")
        installation.start_fpm()
        self.submit_again(program, installation)

    def test_nginx_tired_of_a_worker_that_takes_nothing(self):
        installation = self.install(nginx={"fastcgi_send_timeout 55s": "fastcgi_send_timeout 1s"})
        for worker in installation.workers():
            os.kill(worker, signal.SIGSTOP)
            self.addCleanup(os.kill, worker, signal.SIGCONT)
        log, report = self.large_log(LARGE)
        shown = self.outcome(self.submit(log), seconds=30)
        self.conclude(installation, shown, self.fields(report), "refused")

    def test_nginx_stopped(self):
        installation = self.install()
        installation.nginx.end()
        self.conclude_program(installation, "failed")

    @cases(**{f"round_{number}": (number,) for number in range(1, 5)})
    def test_nginx_killed_at_a_random_moment(self, number):
        installation = self.install()
        log, report = self.large_log(LARGE)
        program = self.submit(log)
        moment = time.monotonic() + chances(number).uniform(0, 0.5)
        wait_until(lambda: time.monotonic() > moment, "the moment")
        installation.kill_nginx()
        self.conclude(installation, self.outcome(program), self.fields(report), "accepted", "failed", is_stored=None)

    @cases(**{f"round_{number}": (number,) for number in range(1, 7)})
    def test_workers_killed_at_random_moments(self, number):
        installation = self.install()
        log, report = self.large_log(LARGE)
        program = self.submit(log)
        moments = chances(number)
        next_moment = time.monotonic()
        while program.process.is_running() and not program.screen.alert():
            if time.monotonic() > next_moment:
                for worker in installation.workers():
                    kill(worker)
                next_moment = time.monotonic() + moments.uniform(0, 0.5)
        self.conclude(installation, self.outcome(program), self.fields(report), "accepted", "refused", is_stored=None)


class OtherSenders(FaultTest):
    """What the program never sends."""

    @staticmethod
    def judged(answer):
        """As the program would judge it."""
        return "refused" if answer[1] else "accepted"

    def conclude_answer(self, installation, answer):
        self.conclude(installation, self.judged(answer), REPORT, "refused")

    def test_no_crash_log(self):
        installation = self.install()
        self.conclude_answer(installation, installation.post({"email": b"jo@example.org"}))

    def test_get_in_place_of_post(self):
        installation = self.install()
        self.conclude_answer(installation, installation.request("GET"))

    def test_form_without_its_end(self):
        installation = self.install()
        self.conclude_answer(installation, installation.request(body=body_of(REPORT)[:-1]))

    def test_input_of_php_cut_short(self):
        installation = self.install()
        body = body_of(REPORT)
        self.conclude_answer(installation, installation.fastcgi(body, CONTENT_LENGTH=str(len(body) + 1)))

    def test_sender_gone_in_the_middle(self):
        installation = self.install()
        body = body_of(REPORT)
        connection = installation.connect()
        connection.putrequest("POST", "/appdata/plovrin/reportcrash.php")
        connection.putheader("Content-Type", f"multipart/form-data; boundary={BOUNDARY}")
        connection.putheader("Content-Length", str(len(body) + 100))
        connection.endheaders(body)
        connection.close()
        # A request that comes after it is answered; by then this one would be stored.
        self.assertEqual(installation.post({"crashlog": b"next"}), (200, b""))
        wait_until(lambda: "client prematurely closed" in installation.log(), "nginx")
        self.conclude(installation, "failed", REPORT, "failed")
