"""What a desktop reads of the program: valid, of one version, and modest about which files are ours."""

import os
import plistlib
import re
import shutil
import struct
import tempfile
from email.utils import parsedate_to_datetime

from support import APPLICATION_ID, PROJECT, BuildTest, generated, main, read, run

METAINFO = generated(f"{APPLICATION_ID}.metainfo.xml")
MANUAL = generated("korvale-crash-reporter.1")
MIME_TYPE = os.path.join(PROJECT, "resources", f"{APPLICATION_ID}.xml")
ICONS = os.path.join(PROJECT, "resources", "icons")
OWN_TYPE = "application/x-korvale-crash-log"
OWN_LOG = read(PROJECT, "tests", "data", "Harbour_2026-11-02-101500_anvil.crash").encode()
SYSTEM_MIME_TYPES = "/usr/share/mime/packages/freedesktop.org.xml"


def project_version():
    return re.search(r"^project\(.*? VERSION ([0-9.]+) ", read(PROJECT, "CMakeLists.txt"), re.MULTILINE)[1]


def release_date():
    return re.search(r"^set\(KORVALE_RELEASE_DATE ([0-9-]+)\)", read(PROJECT, "CMakeLists.txt"), re.MULTILINE)[1]


class Validity(BuildTest):
    def test_the_desktop_entry(self):
        entry = os.path.join(PROJECT, "resources", f"{APPLICATION_ID}.desktop")
        self.assertEqual(self.assert_succeeds("desktop-file-validate", entry), "")

    def test_the_metainfo(self):
        self.assert_succeeds("appstreamcli", "validate", "--pedantic", "--no-net", METAINFO)

    def test_the_manual_page(self):
        self.assertEqual(self.assert_succeeds("groff", "-man", "-Tutf8", "-ww", "-z", MANUAL), "")
        self.assertEqual(self.assert_succeeds("lexgrog", MANUAL).split(": ", 1)[1],
                         '"korvale-crash-reporter - send the crash report of a Korvale application"\n')

    def test_the_mime_type_by_the_grammar_of_the_systems_own(self):
        system_types = read(SYSTEM_MIME_TYPES)
        grammar = system_types[system_types.index("<!DOCTYPE"):system_types.index("]>") + 2]
        declaration, types = read(MIME_TYPE).split("\n", 1)
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "types.xml")
            with open(path, "w", encoding="utf-8") as file:
                file.write("\n".join([declaration, grammar, types]))
            self.assert_succeeds("xmllint", "--noout", "--valid", path)

    def test_the_drawings(self):
        drawings = [name for name in os.listdir(ICONS) if name.endswith(".svg")]
        self.assertEqual(len(drawings), 4)
        for name in drawings:
            self.assert_succeeds("xmllint", "--noout", os.path.join(ICONS, name))

    def test_the_bitmaps_have_the_size_of_their_name(self):
        bitmaps = [name for name in os.listdir(ICONS) if name.endswith(".png")]
        self.assertEqual(len(bitmaps), 7)
        for name in bitmaps:
            with open(os.path.join(ICONS, name), "rb") as file:
                side = int(name.removesuffix(".png"))
                # The size follows the signature, and the length and the name of the header (PNG section 11.2.2).
                self.assertEqual(struct.unpack(">16x2I", file.read(24)), (side, side))


class Bundle(BuildTest):
    """What a Mac reads of the program; no Mac has read it yet."""

    def setUp(self):
        with open(generated("Info.plist"), "rb") as file:
            self.properties = plistlib.load(file)

    def test_is_the_programs(self):
        self.assertEqual(self.properties["CFBundleIdentifier"], APPLICATION_ID)
        self.assertEqual(self.properties["CFBundleExecutable"], "korvale-crash-reporter")
        self.assertEqual(self.properties["CFBundleShortVersionString"], project_version())

    def test_offers_itself_for_crash_logs_after_their_own_programs(self):
        (document,) = self.properties["CFBundleDocumentTypes"]
        self.assertEqual(document["LSHandlerRank"], "Alternate")
        self.assertEqual(document["CFBundleTypeRole"], "Viewer")
        self.assertEqual(document["CFBundleTypeExtensions"], ["crash", "korvale-crash"])


class Version(BuildTest):
    def test_of_the_metainfo_is_the_projects(self):
        releases = re.findall(r'<release version="([^"]*)" date="([^"]*)"', read(METAINFO))
        self.assertEqual(releases[0], (project_version(), release_date()))

    def test_of_the_manual_page_is_the_projects(self):
        heading = read(MANUAL).split("\n", 1)[0]
        self.assertIn(f'"{release_date()}" "Korvale Crash Reporter {project_version()}"', heading)

    def test_of_the_changelog_is_the_projects(self):
        headings = re.findall(r"^## (.*)$", read(PROJECT, "CHANGELOG.md"), re.MULTILINE)
        self.assertEqual(headings[0], f"{project_version()} ({release_date()})")

    def test_of_the_package_is_the_projects(self):
        heading = read(PROJECT, "debian", "changelog").split("\n", 1)[0]
        self.assertIn(f"korvale-crash-reporter ({project_version()}) ", heading)
        written = re.search(r"^ -- .*>  (.*)$", read(PROJECT, "debian", "changelog"), re.MULTILINE)[1]
        self.assertEqual(parsedate_to_datetime(written).date().isoformat(), release_date())

    def test_stands_in_the_changelog_for_every_release_of_the_metainfo(self):
        releases = re.findall(r'<release version="([^"]*)" date="([^"]*)"', read(METAINFO))
        headings = re.findall(r"^## (.*)$", read(PROJECT, "CHANGELOG.md"), re.MULTILINE)
        self.assertEqual(headings, [f"{version} ({date})" for version, date in releases])


class MimeType(BuildTest):
    """The database of a system on which only the program was installed beside the common types."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        cls.data = os.path.join(cls.folder, "share")
        packages = os.path.join(cls.data, "mime", "packages")
        os.makedirs(packages)
        shutil.copy(SYSTEM_MIME_TYPES, packages)
        shutil.copy(MIME_TYPE, packages)
        cls.environment = {
            "XDG_DATA_DIRS": cls.data, "XDG_DATA_HOME": os.path.join(cls.folder, "home"), "HOME": cls.folder}
        cls.update = run("update-mime-database", os.path.join(cls.data, "mime"), environment=cls.environment)

    def test_the_database_takes_it_without_a_word(self):
        self.assertEqual((self.update.returncode, self.update.stdout), (0, ""))

    def type_of(self, name, content):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(content)
        said = self.assert_succeeds(
            "gio", "info", "--attributes=standard::content-type", path, environment=self.environment)
        return re.search(r"standard::content-type: (.*)", said)[1]

    def test_a_crash_log_of_ours_is_known_by_its_content(self):
        self.assertEqual(self.type_of("Harbour_2026-11-02-101500_anvil.crash", OWN_LOG), OWN_TYPE)
        self.assertEqual(self.type_of("report", OWN_LOG), OWN_TYPE)

    def test_a_file_with_our_own_suffix_is_ours(self):
        self.assertEqual(self.type_of("Harbour_2026-11-02.korvale-crash", b"Process: Harbour\n"), OWN_TYPE)

    def test_crash_files_of_others_are_not_ours(self):
        others = {
            "Lantern_2026-11-02-101500_anvil.crash": OWN_LOG.replace(b"com.korvale.harbour", b"org.example.lantern"),
            "_usr_bin_lantern.1000.crash":
                b"ProblemType: Crash\nArchitecture: amd64\nCoreDump: base64\n H4sICAAAAAAC\n",
            "Harbour_2026-11-02-101500_anvil.crash": b"\x7fELF\x02\x01\x01\x00" + bytes(4096),
            "plain.crash": b"a note of somebody about a crash of com.korvale.harbour\n",
            "late.crash": b"\n" + OWN_LOG,
        }
        for name, content in others.items():
            with self.subTest(name):
                self.assertNotIn("korvale", self.type_of(name, content))

    def test_the_suffix_of_others_stays_unclaimed(self):
        self.assertEqual(re.findall(r'<glob [^>]*pattern="([^"]*)"', read(MIME_TYPE)), ["*.korvale-crash"])

    def test_a_crash_log_of_ours_is_a_text_as_well(self):
        self.assertIn(f"{OWN_TYPE} text/plain", read(self.data, "mime", "subclasses"))


main()
