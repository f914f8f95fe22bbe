"""Thousands of reports at once while workers are killed: what was accepted is in the store, whole, and once."""

import concurrent.futures
import http.client
import random
import threading
import time

from installation import BOUNDARY, PATH, body_of, children_of, kill
from server_support import ServerTest, chances, name_of
from support import cases
from trial.waiting import wait_until

SENDERS = 32
ATTEMPTS = 50
PATIENCE = 60.0
NO_RATE = {"        limit_req zone=crash_reports burst=20 nodelay;\n": "", "        limit_conn crash_senders 10;\n": ""}


def sample_reports(count):
    """Reports that all differ, from a few bytes to a few hundred thousand."""
    chance = random.Random(count)
    for number in range(count):
        log = b"report %d\n" % number + chance.randbytes(int(10 ** chance.uniform(1, 5.4)))
        yield {"crashlog": log, "email": b"sender%d@example.org" % (number % 50)}


class Sender:
    """Sends one report after the other on one connection, each until it is accepted, as a patient person would."""

    def __init__(self, installation, deadline):
        self.installation = installation
        self.deadline = deadline
        self.connection = None
        self.turned_away = 0

    def send(self, fields):
        """Whether the report was accepted in the end."""
        for _ in range(ATTEMPTS):
            if time.monotonic() > self.deadline:
                return False
            if self.is_accepted(body_of(fields)):
                return True
            self.turned_away += 1
        return False

    def is_accepted(self, body):
        try:
            if self.connection is None:
                self.connection = self.installation.connect()
            self.connection.request("POST", PATH, body, {"Content-Type": f"multipart/form-data; boundary={BOUNDARY}"})
            return self.connection.getresponse().read() == b""
        except (OSError, http.client.HTTPException):
            self.close()
            # It may have been killed, and its attempts are not to be used up before it is back.
            wait_until(self.installation.is_listening, "nginx to be back")
            return False

    def close(self):
        if self.connection:
            self.connection.close()
            self.connection = None


class Killer(threading.Thread):
    """Kills one of the processes that it is given, at random moments, until it is told to stop.

    Where it is given an installation, about every twentieth time it kills all of its nginx, and starts it again."""

    def __init__(self, victims, longest_pause, installation=None):
        super().__init__()
        self.victims = victims
        self.longest_pause = longest_pause
        self.installation = installation
        self.chance = chances("killer")
        self.killed = 0
        self.servers_killed = 0
        self.is_over = threading.Event()

    def run(self):
        while not self.is_over.wait(self.chance.uniform(0, self.longest_pause)):
            if self.installation and self.chance.random() < 0.05:
                self.kill_server()
            elif victims := self.victims():
                kill(self.chance.choice(victims))
                self.killed += 1

    def kill_server(self):
        self.installation.kill_nginx()
        self.servers_killed += 1
        self.installation.start_nginx()

    def stop(self):
        self.is_over.set()
        self.join()


class Load(ServerTest):
    def send_all(self, installation, reports, killer):
        """The reports that were accepted."""
        deadline = time.monotonic() + PATIENCE
        waiting = iter(reports)
        lock = threading.Lock()
        accepted = []

        def work():
            sender = Sender(installation, deadline)
            while True:
                with lock:
                    fields = next(waiting, None)
                if fields is None:
                    break
                if sender.send(fields):
                    accepted.append(fields)
            sender.close()
            return sender.turned_away

        start = time.monotonic()
        killer.start()
        try:
            with concurrent.futures.ThreadPoolExecutor(SENDERS) as pool:
                turned_away = sum(job.result() for job in [pool.submit(work) for _ in range(SENDERS)])
        finally:
            killer.stop()
        print(f"{len(accepted)} of {len(reports)} reports accepted in {time.monotonic() - start:.1f} s; "
              f"{turned_away} attempts refused or failed; {killer.killed} processes killed, "
              f"all of nginx {killer.servers_killed} times", flush=True)
        return accepted

    def assert_none_lost(self, installation, reports, accepted):
        stored = installation.store.reports()
        lost = [name_of(fields) for fields in accepted if stored.get(name_of(fields)) != fields]
        self.assertEqual(lost, [])
        # Also what was not accepted is either there as it was sent, or not at all.
        sent = {name_of(fields): fields for fields in reports}
        self.assertEqual([name for name in stored if stored[name] != sent.get(name)], [])
        print(f"{len(stored)} reports in the store; accepted and lost: {len(lost)}", flush=True)

    @cases(**{"3000_reports_in_a_folder": (3000, 0.1)})
    def test_none_accepted_is_lost_of(self, count, longest_pause):
        installation = self.install(nginx=NO_RATE)
        reports = list(sample_reports(count))
        killer = Killer(lambda: installation.workers() + installation.nginx_workers(), longest_pause, installation)
        accepted = self.send_all(installation, reports, killer)
        self.assert_none_lost(installation, reports, accepted)
        self.assertGreater(len(accepted), count // 2)
        self.assertGreater(killer.killed, 10)
        self.assertGreater(killer.servers_killed, 0)
        # What was left behind goes, and no report with it.
        installation.run_cron()
        self.assertEqual(installation.store.drafts(), [])
        self.assert_none_lost(installation, reports, accepted)

    def test_none_accepted_is_lost_of_1500_reports_in_the_database(self):
        store = self.database()
        installation = self.install(store=store, nginx=NO_RATE)
        reports = list(sample_reports(1500))
        killer = Killer(installation.workers, 0.1)
        accepted = self.send_all(installation, reports, killer)
        # As a loss of power would find it.
        store.kill()
        store.start()
        self.assert_none_lost(installation, reports, accepted)
        self.assertGreater(len(accepted), 750)

    def test_none_accepted_is_lost_while_the_database_is_killed(self):
        store = self.database()
        installation = self.install(store=store, nginx=NO_RATE)
        reports = list(sample_reports(600))
        # The death of one of its processes makes the database end all of them and recover.
        killer = Killer(lambda: children_of(store.process.pid), 3)
        accepted = self.send_all(installation, reports, killer)
        store.end()
        store.start()
        self.assert_none_lost(installation, reports, accepted)
        self.assertGreater(len(accepted), 0)
        self.assertGreater(killer.killed, 0)
