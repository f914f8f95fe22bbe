"""The reference endpoint as an administrator installs it: nginx, PHP-FPM and a store, in a folder and a namespace."""

import glob
import http.client
import os
import shutil
import signal
import socket
import ssl
import struct
import subprocess

from trial.home import read, write
from trial.processes import ORDINARY_USER, Started
from trial.waiting import wait_until

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ENDPOINT = os.path.join(PROJECT, "server")
PATH = "/appdata/plovrin/reportcrash.php"
NGINX = "/usr/sbin/nginx"
FPM = "/usr/sbin/php-fpm8.2"
POSTGRES = "/usr/lib/postgresql/15/bin"
# However the tests end, the servers end in order, and their workers with them.
STOP_WITH_PARENT = ["setpriv", "--pdeathsig", "TERM"]
BOUNDARY = "0f9c2b7e-6b0e-4f0c-9a53-1f1f6a3c8d11"

NGINX_MAIN = """daemon off;
worker_processes 2;
pid {folder}/nginx.pid;
error_log {folder}/nginx-error.log info;
events {{ worker_connections 4096; }}
http {{
    access_log off;
    client_body_temp_path {folder}/bodies;
    fastcgi_temp_path {folder}/answers;
    proxy_temp_path {folder}/unused;
    uwsgi_temp_path {folder}/unused;
    scgi_temp_path {folder}/unused;
    include {folder}/site.conf;
}}
"""
FPM_MAIN = """[global]
error_log = /dev/stderr
pid = {folder}/fpm.pid
daemonize = no
include = {folder}/pool.conf
"""


def changed(text, changes):
    """The sample with this machine's own values; a value that is no longer in the sample is an error."""
    for old, new in changes.items():
        if old not in text:
            raise AssertionError(f"the sample configuration has no {old!r}")
        text = text.replace(old, new)
    return text


def part(name, content):
    return b'Content-Disposition: form-data; name="' + name.encode() + b'"\r\n\r\n' + content + b"\r\n"


def body_of(fields):
    """The body that the program sends for these fields: without a closing delimiter."""
    return b"".join(b"--" + BOUNDARY.encode() + b"\r\n" + part(name, fields[name]) for name in fields)


def children_of(pid):
    try:
        return [int(child) for child in read(f"/proc/{pid}/task/{pid}/children").split()]
    except FileNotFoundError:
        return []


def kill(pid):
    try:
        os.kill(pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


class FolderStore:
    """The reports of the default store, read as an administrator would read them."""

    def __init__(self, path):
        self.path = path
        self.place = path

    def reports(self):
        """Name to fields, of every report that is there."""
        return {os.path.basename(folder): {os.path.basename(path): read(path) for path in glob.glob(f"{folder}/*")}
                for folder in glob.glob(f"{self.path}/*")}

    def drafts(self):
        return [name for name in os.listdir(self.path) if name.startswith(".")]


class SilentDatabase:
    """Takes connections, and never says a word."""

    def __init__(self, folder):
        self.place = f"pgsql:host={folder} dbname=postgres user=reports"
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.bind(os.path.join(folder, ".s.PGSQL.5432"))
        self.socket.listen()

    @staticmethod
    def reports():
        return {}

    def end(self):
        self.socket.close()


class DatabaseStore:
    """A PostgreSQL of its own, on a socket in the folder, run as an ordinary user."""

    name = "postgres"
    settings = ("listen_addresses=",)

    def __init__(self, folder):
        self.folder = folder
        self.data = os.path.join(folder, "data")
        self.place = f"pgsql:host={folder} dbname={self.name} user=reports"
        self.processes = 0
        subprocess.run([*ORDINARY_USER, f"{POSTGRES}/initdb", "--pgdata", self.data, "--username", "reports",
                        "--auth", "trust", "--no-locale", "--encoding", "UTF8", "--no-sync"],
                       check=True, stdout=subprocess.DEVNULL, timeout=60)
        self.start()
        self.create()

    def create(self):
        self.psql("--file", os.path.join(ENDPOINT, "schema.sql"))

    def start(self):
        self.processes += 1
        options = [f"--{setting}" for setting in self.settings]
        self.process = Started([f"{POSTGRES}/postgres", "-D", self.data, "-k", self.folder, *options],
                               self.folder, f"postgres-{self.processes}", prefix=ORDINARY_USER)
        wait_until(self.is_ready, "the database", 60)

    def is_ready(self):
        return subprocess.run([f"{POSTGRES}/pg_isready", "--host", self.folder], stdout=subprocess.DEVNULL,
                              check=False, timeout=30).returncode == 0

    def command(self, *arguments):
        return [f"{POSTGRES}/psql", "--host", self.folder, "--username", "reports", "--dbname", self.name,
                "--no-psqlrc", "--quiet", "--tuples-only", "--no-align", "--set", "ON_ERROR_STOP=1", *arguments]

    def psql(self, *arguments):
        return subprocess.run(self.command(*arguments), check=True, capture_output=True, text=True, timeout=60).stdout

    def backends(self, condition="true"):
        """The processes that serve connections other than the one that asks."""
        answer = self.psql("--command", "SELECT pid FROM pg_stat_activity WHERE backend_type = 'client backend' "
                                        f"AND pid <> pg_backend_pid() AND {condition}")
        return [int(pid) for pid in answer.split()]

    def reports(self):
        answer = self.psql("--command", "SELECT name, encode(crashlog, 'hex'), encode(email, 'hex'), "
                                        "encode(info, 'hex') FROM crash_report", "--pset", "null=none")
        found = {}
        for line in answer.splitlines():
            name, *values = line.split("|")
            found[name] = {field: bytes.fromhex(value)
                           for field, value in zip(("crashlog", "email", "info"), values) if value != "none"}
        return found

    def kill(self):
        """Ends the database as a loss of power would."""
        children = children_of(self.process.pid)
        for pid in [self.process.pid, *children]:
            kill(pid)
        self.process.process.wait()
        for pid in children:
            wait_until(lambda: not os.path.exists(f"/proc/{pid}"), "the database's processes to be gone")

    def end(self):
        # SIGTERM would wait for connections to be closed.
        if self.process.is_running():
            self.process.process.send_signal(signal.SIGINT)
            self.process.exit_status()


class RemoteDatabaseStore(DatabaseStore):
    """The database of docs/server.md: over TCP and TLS and by a password. It changes this namespace's /etc."""

    host = "db.example.org"
    name = "crash_reports"

    def __init__(self, folder, place):
        self.certificate = os.path.join(folder, "server.pem")
        key = os.path.join(folder, "server.key")
        rules = os.path.join(folder, "rules")
        self.settings = ("listen_addresses=127.0.0.1", "ssl=on", f"ssl_cert_file={self.certificate}",
                         f"ssl_key_file={key}", f"hba_file={rules}")
        subprocess.run(["openssl", "req", "-x509", "-days", "2", "-nodes", "-newkey", "ec",
                        "-pkeyopt", "ec_paramgen_curve:prime256v1", "-subj", f"/CN={self.host}",
                        "-addext", f"subjectAltName=DNS:{self.host}", "-keyout", key, "-out", self.certificate],
                       check=True, capture_output=True, timeout=60)
        write(rules, b"local all all trust\nhostssl all all 127.0.0.1/32 scram-sha-256\n")
        write("/etc/hosts", read("/etc/hosts") + f"127.0.0.1 {self.host}\n".encode())
        super().__init__(folder)
        self.place = place

    def create(self):
        password = os.urandom(8).hex()
        self.psql("--dbname", "postgres", "--command", f"CREATE USER crash_reports PASSWORD '{password}'")
        self.psql("--dbname", "postgres", "--command", f"CREATE DATABASE {self.name}")
        self.psql("--command", "GRANT CREATE ON SCHEMA public TO crash_reports")
        self.psql("--username", "crash_reports", "--file", os.path.join(ENDPOINT, "schema.sql"))
        path = "/etc/crash-reports.pgpass"
        write(path, f"{self.host}:5432:{self.name}:crash_reports:{password}\n".encode())
        os.chmod(path, 0o600)

    def trust(self):
        """Adds the database's authority to the system's."""
        bundle = "/etc/ssl/certs/ca-certificates.crt"
        content = read(bundle)
        os.remove(bundle)
        write(bundle, content + read(self.certificate))


class Installation:
    """nginx on port 443 of the namespace and PHP-FPM behind it, configured by the samples with a few values changed.

    tracer is a command line that PHP-FPM is started with, such as strace's."""

    def __init__(self, folder, authority, store=None, nginx=None, pool=None, tracer=()):
        self.folder = folder
        self.authority = authority
        self.tracer = tracer
        self.endpoint = os.path.join(folder, "endpoint")
        shutil.copytree(ENDPOINT, self.endpoint)
        self.store = store or FolderStore(os.path.join(folder, "store"))
        if isinstance(self.store, FolderStore):
            os.makedirs(self.store.path, exist_ok=True)
        self.socket = os.path.join(folder, "fpm.socket")
        self.spool = os.path.join(folder, "spool")
        os.mkdir(self.spool)
        self.write_configuration(nginx or {}, pool or {})
        self.fpm = self.nginx = None
        self.starts = 0

    def write_configuration(self, nginx, pool):
        folder = self.folder
        shutil.copy("/etc/nginx/fastcgi_params", folder)
        write(f"{folder}/nginx.conf", NGINX_MAIN.format(folder=folder).encode())
        write(f"{folder}/fpm.conf", FPM_MAIN.format(folder=folder).encode())
        site = changed(read(f"{ENDPOINT}/nginx.conf").decode(), {
            "/etc/ssl/crash.example.org.pem": f"{self.authority}/localhost.pem",
            "/etc/ssl/private/crash.example.org.key": f"{self.authority}/localhost.key",
            "/run/php/crash-reports.sock": self.socket,
            "/usr/local/lib/crash-reports": self.endpoint,
            **nginx,
        })
        write(f"{folder}/site.conf", site.encode())
        pool_text = changed(read(f"{ENDPOINT}/php-fpm.conf").decode(), {
            # Only root can hand the socket over; here all run as one ordinary user.
            "listen.owner = www-data\nlisten.group = www-data\n": "",
            "user = crash-reports\ngroup = crash-reports\n": "",
            "/run/php/crash-reports.sock": self.socket,
            "/usr/local/lib/crash-reports": self.endpoint,
            "env[REPORT_STORE] = /var/lib/crash-reports": f'env[REPORT_STORE] = "{self.store.place}"',
            **{"/var/spool/crash-reports": self.spool, **pool},
        })
        write(f"{folder}/pool.conf", pool_text.encode())

    def run_cron(self):
        """Runs every command of the sample for cron, at once and as the one user."""
        lines = changed(read(f"{ENDPOINT}/cron").decode(), {
            "/usr/local/lib/crash-reports": self.endpoint,
            "/var/spool/crash-reports": self.spool,
        }).splitlines()
        for line in lines:
            if line and not line.startswith("#"):
                *_, command = line.split(maxsplit=6)
                subprocess.run([*ORDINARY_USER, "sh", "-c", command], check=True, stdout=subprocess.DEVNULL, timeout=60,
                               env={**os.environ, "REPORT_STORE": self.store.place})

    def start(self):
        self.start_fpm()
        self.start_nginx()

    def start_fpm(self):
        self.starts += 1
        command = [*STOP_WITH_PARENT, FPM, "--nodaemonize", "--fpm-config", f"{self.folder}/fpm.conf"]
        self.fpm = Started([*self.tracer, *command], self.folder, f"fpm-{self.starts}", prefix=ORDINARY_USER)
        self.wait_until_started(self.fpm, lambda: "ready to handle connections" in self.fpm.errors())

    def start_nginx(self):
        self.starts += 1
        if os.getuid() == 0:
            # An ordinary user may use the port, in this namespace.
            write("/proc/sys/net/ipv4/ip_unprivileged_port_start", b"0")
        command = [*STOP_WITH_PARENT, NGINX, "-c", f"{self.folder}/nginx.conf", "-e", "stderr"]
        self.nginx = Started(command, self.folder, f"nginx-{self.starts}", prefix=ORDINARY_USER)
        self.wait_until_started(self.nginx, self.is_listening)

    @staticmethod
    def wait_until_started(process, is_ready):
        def has_started():
            if not process.is_running():
                raise RuntimeError(f"{process.name} ended: {process.errors()}")
            return is_ready()
        wait_until(has_started, f"{process.name} to start")

    @staticmethod
    def is_listening():
        try:
            socket.create_connection(("127.0.0.1", 443), 5).close()
            return True
        except OSError:
            return False

    def workers(self):
        return children_of(self.master()) if self.fpm.is_running() else []

    def master(self):
        """The process of PHP-FPM that starts the workers."""
        return int(read(f"{self.folder}/fpm.pid"))

    def nginx_workers(self):
        return children_of(self.nginx.pid)

    def kill_nginx(self):
        for pid in [self.nginx.pid, *self.nginx_workers()]:
            kill(pid)
        self.nginx.process.wait()

    def stop_fpm(self):
        if self.fpm.is_running():
            os.kill(self.master(), signal.SIGTERM)
            self.fpm.exit_status()

    def end(self):
        if self.nginx:
            self.nginx.end()
        if self.fpm:
            self.stop_fpm()

    def log(self):
        """What nginx wrote for the administrator, PHP's messages among it."""
        return read(f"{self.folder}/nginx-error.log").decode(errors="replace")

    # Clients that are not the program

    def connect(self, host="localhost"):
        context = ssl.create_default_context(cafile=f"{self.authority}/authority.pem")
        return http.client.HTTPSConnection(host, context=context, timeout=60)

    def request(self, method="POST", body=None, headers=None, host="localhost"):
        """The status and the body of the answer."""
        connection = self.connect(host)
        try:
            connection.request(method, PATH, body, {
                "Content-Type": f"multipart/form-data; boundary={BOUNDARY}", **(headers or {})})
            answer = connection.getresponse()
            return answer.status, answer.read()
        finally:
            connection.close()

    def post(self, fields, host="localhost"):
        return self.request(body=body_of(fields), host=host)

    def fastcgi(self, body, **parameters):
        """What PHP-FPM itself answers, without nginx in front of it; parameters of None are left out."""
        parameters = {
            "SCRIPT_FILENAME": f"{self.endpoint}/reportcrash.php", "REQUEST_METHOD": "POST",
            "CONTENT_LENGTH": str(len(body)), "CONTENT_TYPE": f"multipart/form-data; boundary={BOUNDARY}", **parameters}
        pairs = b"".join(name_value(name.encode(), value.encode())
                         for name, value in parameters.items() if value is not None)
        records = [record(1, struct.pack("!HB5x", 1, 0)), record(4, pairs), record(4, b"")]
        records += [record(5, body[at:at + 0x8000]) for at in range(0, len(body), 0x8000)]
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(60)
            client.connect(self.socket)
            client.sendall(b"".join([*records, record(5, b"")]))
            # PHP waits for what was announced and is not there.
            client.shutdown(socket.SHUT_WR)
            head, _, content = standard_output(client.makefile("rb")).partition(b"\r\n\r\n")
        return head.decode(), content


def name_value(name, value):
    """A FastCGI parameter, its lengths in the four-byte form."""
    return struct.pack("!II", len(name) | 1 << 31, len(value) | 1 << 31) + name + value


def record(kind, content):
    return struct.pack("!BBHHBB", 1, kind, 1, len(content), 0, 0) + content


def standard_output(stream):
    output = b""
    while header := stream.read(8):
        _, kind, _, length, padding, _ = struct.unpack("!BBHHBB", header)
        content = stream.read(length)
        stream.read(padding)
        if kind == 6:
            output += content
    return output
