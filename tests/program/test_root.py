"""Running as root with the environment of the user at the console: whose logs, whose settings, whose programs."""

import os
import re
import subprocess

from support import ADDRESS, APPLICATION_LOGS, CRASH_LOG, ProgramTest, cases
from test_home import states_below
from test_nothing_leaves import Trace, local_sockets
from trial.expected import expected_report
from trial.home import Home, read, write
from Xlib import Xatom
from Xlib.display import Display

USER_ID = 4321
SECRET = b"for root alone\n"
# The display's, and that of the service that knows the accounts of this machine.
SOCKETS_OF_ROOT = re.compile(r"@?/tmp/\.X11-unix/X\d+|/(var/)?run/nscd/socket")

# The console user as systemd's login service writes it down, in a /run of the program's own.
LOGIN_SERVICE = f"""
mount -t tmpfs tmpfs /run
mkdir -p /run/systemd/seats /run/systemd/sessions /run/systemd/users
cat >/run/systemd/seats/seat0 <<SEAT
IS_SEAT0=1
CAN_MULTI_SESSION=1
ACTIVE=c1
ACTIVE_UID={USER_ID}
SESSIONS=c1
SEAT
cat >/run/systemd/sessions/c1 <<SESSION
UID={USER_ID}
USER=conny
ACTIVE=1
STATE=active
REMOTE=0
TYPE=x11
CLASS=$1
SEAT=seat0
SESSION
mount --bind "$2" /etc/passwd
shift 2
exec "$@"
"""


def give(path, user):
    """Makes the file, the link or the folder, with all that is in it, the user's, and private."""
    for parent, folders, files in os.walk(path):
        for name in (*folders, *files):
            os.chown(os.path.join(parent, name), user, user, follow_symlinks=False)
    os.chown(path, user, user, follow_symlinks=False)


class Root(ProgramTest):
    """The home is that of conny, who is at the console; HOME and the XDG variables name folders in it."""

    def setUp(self):
        super().setUp()
        os.chmod(self.folder, 0o711)
        self.home_of_root = Home(self.subfolder("root"))
        self.configuration = os.path.join(self.home_of_root.path, ".config")
        self.secret = os.path.join(self.folder, "secret")
        write(self.secret, SECRET)
        os.chmod(self.secret, 0o600)

    def account_list(self):
        path = os.path.join(self.folder, "passwd")
        write(path, f"root:x:0:0:root:{self.home_of_root.path}:/bin/sh\n"
                    f"conny:x:{USER_ID}:{USER_ID}:Conny Sole:{self.home.path}:/bin/sh\n".encode())
        os.chmod(path, 0o644)
        return path

    def path_of_log(self, suffix):
        return os.path.join(self.home.logs, f"Harbour{suffix}")

    def launch_as_root(self, session_class="user", environment=(), trace=()):
        give(self.home.path, USER_ID)
        for suffix in APPLICATION_LOGS:
            if not os.path.islink(self.path_of_log(suffix)):
                os.chmod(self.path_of_log(suffix), 0o600)
        prefix = ("unshare", "--mount", "bash", "-e", "-c", LOGIN_SERVICE, "bash", session_class, self.account_list(),
                  "env", *environment, *trace)
        program = self.start("-remotename", "anvil", "-log", self.crash_log, prefix=prefix)
        # No assistive technology reaches the window: the keyboard does.
        self.window = program.desktop.tool("xdotool", "search", "--sync", "--onlyvisible", "--pid", str(program.pid),
                                           "--name", "Korvale Crash Reporter").split()[0]
        return program

    def calls_of_program(self, trace):
        """Without those of what has started it."""
        lines = trace.lines()
        return lines[1 + next(at for at, line in enumerate(lines) if f'execve("{self.binary}"' in line):]

    def submitted_by_keyboard(self, program):
        """Types into the address, where the focus is at first, and presses the default button."""
        program.desktop.tool("xdotool", "windowfocus", "--sync", self.window, "type", ADDRESS)
        program.desktop.tool("xdotool", "key", "Return")
        return program

    def closed(self, program):
        program.desktop.tool("xdotool", "windowfocus", "--sync", self.window, "key", "alt+F4")
        self.assert_ends_silently(program)

    # Whose logs

    def assert_report_with(self, program, *suffixes):
        logs = {suffix: APPLICATION_LOGS[suffix] for suffix in suffixes}
        self.assert_report_sent(program, self.server, expected_report(CRASH_LOG, logs))

    def test_the_console_users_logs_are_appended(self):
        self.server = self.serve()
        self.assert_report_with(self.submitted_by_keyboard(self.launch_as_root()), *APPLICATION_LOGS)

    def test_a_crash_log_that_only_root_may_read_is_sent_for_root(self):
        self.server = self.serve()
        self.crash_log = os.path.join(self.home_of_root.path, os.path.basename(self.crash_log))
        write(self.crash_log, CRASH_LOG)
        os.chmod(self.crash_log, 0o600)
        os.chmod(self.home_of_root.path, 0o700)
        self.assert_report_with(self.submitted_by_keyboard(self.launch_as_root()), *APPLICATION_LOGS)

    def test_at_the_login_screen_no_logs_are_appended(self):
        self.server = self.serve()
        self.assert_report_with(self.submitted_by_keyboard(self.launch_as_root("greeter")))

    def test_a_standard_error_that_is_open_for_reading_alone_is_not_written_to(self):
        # As sudo hands on what somebody has opened who may only read it.
        reading = ("bash", "-c", 'exec 2<"$0"; exec "$@"', self.secret)
        self.closed(self.launch_as_root(environment=("QT_LOGGING_RULES=korvale.*=true",), trace=reading))
        self.assertEqual(read(self.secret), SECRET)

    def test_no_file_that_tells_of_accounts_takes_the_place_of_a_closed_standard_error(self):
        # What a name service keeps open would be written to for good.
        trace = Trace(os.path.join(self.subfolder("trace"), "calls"))
        closed = ("bash", "-c", 'exec 2>&-; exec "$@"', "bash")
        self.closed(self.launch_as_root(trace=(*trace.prefix(), *closed)))
        opened = [line.rpartition("= ")[2] for line in self.calls_of_program(trace)
                  if "openat(" in line and "/etc/passwd" in line]
        self.assertNotEqual(opened, [])
        self.assertEqual([descriptor for descriptor in opened if descriptor in ("0", "1", "2")], [])

    def test_a_log_that_leads_to_what_only_root_may_read_is_left_out(self):
        self.server = self.serve()
        os.remove(self.path_of_log(".1.log"))
        os.symlink(self.secret, self.path_of_log(".1.log"))
        program = self.submitted_by_keyboard(self.launch_as_root())
        self.assert_report_with(program, ".task.1.log", ".2.log", ".task.2.log")

    def folder_behind_roots_own(self):
        """Its file may be read by everybody, and the folder above it be entered by root alone."""
        folder = os.path.join(self.subfolder("private"), "work")
        os.mkdir(folder)
        secret = os.path.join(folder, "secret")
        write(secret, SECRET)
        os.chmod(secret, 0o644)
        os.chmod(os.path.dirname(folder), 0o700)
        return folder

    def process_of_roots(self, folder):
        other = subprocess.Popen(["sleep", "600"], cwd=folder)
        self.addCleanup(other.wait)
        self.addCleanup(other.kill)
        return f"/proc/{other.pid}"

    def assert_left_out(self, target, environment=()):
        self.server = self.serve()
        os.remove(self.path_of_log(".1.log"))
        os.symlink(target, self.path_of_log(".1.log"))
        program = self.submitted_by_keyboard(self.launch_as_root(environment=environment))
        self.assert_report_with(program, ".task.1.log", ".2.log", ".task.2.log")

    def test_a_log_that_leads_to_a_secret_of_the_kernels_is_left_out(self):
        key = "/proc/sys/net/ipv4/tcp_fastopen_key"
        write(key, b"deadbeef-00112233-44556677-8899aabb")
        self.assertTrue(read(key))
        self.assert_left_out(key)

    def test_a_log_that_leads_into_the_folder_that_root_was_in_is_left_out(self):
        self.assert_left_out("/proc/self/cwd/secret", ("-C", self.folder_behind_roots_own()))

    def test_a_log_that_leads_into_the_folder_that_another_process_of_roots_is_in_is_left_out(self):
        self.assert_left_out(self.process_of_roots(self.folder_behind_roots_own()) + "/cwd/secret")

    @cases(itself=(False,), another=(True,))
    def test_a_log_that_leads_to_what_the_system_knows_of_a_process_of_roots_is_left_out_for(self, another):
        self.assert_left_out((self.process_of_roots("/") if another else "/proc/self") + "/maps")

    def test_a_log_that_leads_to_another_file_of_the_users_is_appended(self):
        self.server = self.serve()
        moved = os.path.join(self.home.path, "moved")
        os.rename(self.path_of_log(".1.log"), moved)
        os.chmod(moved, 0o600)
        os.symlink(moved, self.path_of_log(".1.log"))
        self.assert_report_with(self.submitted_by_keyboard(self.launch_as_root()), *APPLICATION_LOGS)

    # Whose settings

    def test_the_settings_are_roots_own(self):
        self.server = self.serve()
        program = self.launch_as_root()
        before = states_below(self.home.path)
        self.assert_report_with(self.submitted_by_keyboard(program), *APPLICATION_LOGS)
        self.assertEqual(self.home_of_root.settings()["crashSubmissionCount"], "1")
        self.assertEqual(states_below(self.home.path), before)

    def test_the_settings_are_not_written_through_the_users_links(self):
        self.server = self.serve()
        os.makedirs(self.home.settings_folder)
        os.symlink(self.secret, self.home.settings_path)
        self.assert_accepted(self.submitted_by_keyboard(self.launch_as_root()), self.server)
        self.assertEqual(read(self.secret), SECRET)
        self.assertEqual(self.home_of_root.settings()["crashSubmissionCount"], "1")

    def test_no_link_that_is_put_later_into_a_users_folder_is_followed(self):
        self.server = self.serve()
        os.makedirs(self.home_of_root.settings_folder)
        give(self.home_of_root.settings_folder, USER_ID)
        program = self.launch_as_root()
        os.symlink(self.secret, self.home_of_root.settings_path)
        self.assert_accepted(self.submitted_by_keyboard(program), self.server)
        self.assertEqual(read(self.secret), SECRET)

    def link_configuration_to_the_users(self):
        """Root's own link, to a folder in the user's home."""
        folder = os.path.join(self.home.path, "of-the-user")
        os.mkdir(folder)
        os.rmdir(self.configuration)
        os.symlink(folder, self.configuration)
        return folder

    def test_nothing_is_kept_through_a_link_of_roots_into_the_users_home(self):
        self.server = self.serve()
        folder = self.link_configuration_to_the_users()
        self.assert_accepted(self.submitted_by_keyboard(self.launch_as_root()), self.server)
        self.assertEqual(os.listdir(folder), [])

    def plant_settings_folder(self, place):
        """A folder of the user's in the place of the program's, in which the settings are a link to root's file."""
        planted = os.path.join(place, "Korvale")
        os.mkdir(planted)
        os.symlink(self.secret, os.path.join(planted, "CrashReporter.conf"))
        give(planted, USER_ID)

    def test_nothing_is_kept_where_the_user_plants_a_folder_behind_a_link_of_roots_after_the_start(self):
        self.server = self.serve()
        folder = self.link_configuration_to_the_users()
        program = self.launch_as_root()
        self.plant_settings_folder(folder)
        self.assert_accepted(self.submitted_by_keyboard(program), self.server)
        self.assertEqual(read(self.secret), SECRET)

    def test_nothing_is_kept_where_a_folder_has_been_planted_after_the_start(self):
        self.server = self.serve()
        program = self.launch_as_root()
        self.plant_settings_folder(self.configuration)
        self.assert_accepted(self.submitted_by_keyboard(program), self.server)
        self.assertEqual(read(self.secret), SECRET)

    @cases(others_the_configuration=(".config", 0o707), the_group_the_configuration=(".config", 0o770),
           others_the_programs=(".config/Korvale", 0o707), the_group_the_programs=(".config/Korvale", 0o770),
           others_the_home=("", 0o703))
    def test_nothing_is_kept_where_a_folder_may_be_written_by(self, place, mode):
        self.server = self.serve()
        os.makedirs(self.home_of_root.settings_folder)
        os.chmod(os.path.join(self.home_of_root.path, place), mode)
        self.assert_accepted(self.submitted_by_keyboard(self.launch_as_root()), self.server)
        self.assertEqual(os.listdir(self.home_of_root.settings_folder), [])

    def test_settings_of_another_owner_are_left_alone(self):
        self.server = self.serve()
        self.home_of_root.write_settings("[General]\ncrashSubmissionCount=7\n")
        os.chown(self.home_of_root.settings_path, USER_ID, USER_ID)
        self.assert_accepted(self.submitted_by_keyboard(self.launch_as_root()), self.server)
        self.assertEqual(self.home_of_root.settings()["crashSubmissionCount"], "7")

    def test_roots_settings_are_kept_where_folders_are_made_without_a_mask(self):
        self.server = self.serve()
        os.rmdir(self.configuration)
        masked = self.launch_as_root(trace=("bash", "-c", 'umask 0 && exec "$@"', "bash"))
        self.assert_accepted(self.submitted_by_keyboard(masked), self.server)
        self.assertEqual(self.home_of_root.settings()["crashSubmissionCount"], "1")
        for folder in (self.home_of_root.settings_folder, self.configuration):
            self.assertEqual(os.stat(folder).st_mode & 0o777, 0o700, folder)

    # Whose programs

    def trap(self):
        """An address of a bus: a command that leaves a mark."""
        command = os.path.join(self.folder, "command")
        self.mark = os.path.join(self.folder, "mark")
        write(command, f"#!/bin/sh\necho $0 >{self.mark}\n".encode())
        os.chmod(command, 0o755)
        return f"unixexec:path={command}"

    def put_on_the_display(self, name, value):
        display = Display(self.desktop.display)
        self.addCleanup(display.close)
        root, atom = display.screen().root, display.intern_atom(name)
        root.change_property(atom, Xatom.STRING, 8, value.encode())
        display.sync()
        self.addCleanup(display.sync)
        self.addCleanup(root.delete_property, atom)

    @cases(session_bus=("DBUS_SESSION_BUS_ADDRESS",), accessibility_bus=("AT_SPI_BUS_ADDRESS",))
    def test_no_command_is_run_that_is_named_as_the(self, variable):
        self.closed(self.launch_as_root(environment=[f"{variable}={self.trap()}"]))
        self.assertFalse(os.path.exists(self.mark))

    @cases(no_bus=("--unset=DBUS_SESSION_BUS_ADDRESS",), the_users_bus=("QT_ACCESSIBILITY=1",))
    def test_no_command_is_run_that_the_display_names_as_the_accessibility_bus_with(self, variable):
        self.put_on_the_display("AT_SPI_BUS", self.trap())
        self.closed(self.launch_as_root(environment=[variable]))
        self.assertFalse(os.path.exists(self.mark))

    def test_the_display_alone_is_spoken_to(self):
        trace = Trace(os.path.join(self.subfolder("trace"), "calls"))
        hostile = (f"SESSION_MANAGER=local/anvil:{self.folder}/sessions", "QT_IM_MODULE=ibus",
                   "QT_QPA_PLATFORMTHEME=xdgdesktopportal", "XDG_CURRENT_DESKTOP=GNOME", f"TZ=:{self.folder}/zone",
                   # Loaded by a library that the toolkit brings with it, before the first line of main.
                   f"ACC_PROFLIB={self.folder}/profiling.so")
        self.closed(self.launch_as_root(environment=hostile, trace=trace.prefix()))
        self.assert_nothing_of_the_users(self.calls_of_program(trace))

    def assert_nothing_of_the_users(self, lines, *commands):
        """The display is spoken to, the commands are run, and of this folder only what root may use is named."""
        strangers = {path for path in local_sockets(lines) if not SOCKETS_OF_ROOT.fullmatch(path.replace('"', ""))}
        self.assertEqual(strangers, set())
        started = [line for line in lines if "execve(" in line]
        self.assertEqual([line for line in started if not any(f'execve("{path}"' in line for path in commands)], [])
        allowed = (self.crash_log, self.home.logs, self.home_of_root.path)
        self.assertEqual([line for line in lines if self.folder in line and not any(path in line for path in allowed)],
                         [])

    def test_a_report_is_sent_by_what_the_system_has_alone(self):
        self.server = self.serve()
        trace = Trace(os.path.join(self.subfolder("trace"), "calls"))
        hostile = [f"{variable}={self.home.path}/{variable}" for variable in (
            "OPENSSL_CONF", "OPENSSL_MODULES", "OPENSSL_ENGINES", "SSL_CERT_FILE", "SSL_CERT_DIR", "SSLKEYLOGFILE",
            "CURL_HOME", "CURL_CA_BUNDLE", "CURL_SSL_BACKEND", "NETRC", "HOSTALIASES", "LOCALDOMAIN", "PX_MODULE_PATH",
            "GIO_MODULE_DIR", "GIO_EXTRA_MODULES")]
        program = self.submitted_by_keyboard(self.launch_as_root(environment=hostile, trace=trace.prefix()))
        self.assert_report_with(program, *APPLICATION_LOGS)
        # It asks what the system says of proxies, with the system's own command.
        self.assert_nothing_of_the_users(self.calls_of_program(trace), "/usr/bin/proxy")

    @cases(served=("vnc:port=5999",), drawn_into_a_file=("offscreen",), listed=("vnc;xcb",))
    def test_the_window_is_shown_on_the_display_and_not(self, platform):
        self.closed(self.launch_as_root(environment=[f"QT_QPA_PLATFORM={platform}"]))
