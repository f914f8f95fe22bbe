"""A build for a package: where its reports go must be said, and it gets by without tests."""

import tempfile

from support import PROJECT, BuildTest, main

HOST = "crash.korvale.example"


class Package(BuildTest):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = folder.name

    def configure(self, *arguments):
        return ("cmake", "--preset", "package", "-S", PROJECT, "-B", self.build, *arguments)

    def test_without_a_host_does_not_configure(self):
        said = " ".join(self.assert_fails(*self.configure(), cwd=PROJECT).split())
        self.assertIn('A package needs to know where its users\' reports go, and SUBMISSION_HOST is "localhost".', said)
        self.assertIn("-DSUBMISSION_HOST=crash.example.org", said)

    def test_is_hardened_and_knows_no_tests_but_their_target(self):
        self.assert_succeeds(*self.configure(f"-DSUBMISSION_HOST={HOST}"), cwd=PROJECT)
        self.assertIn("No tests were found", self.assert_succeeds("ninja", "-C", self.build, "test"))
        cache = self.assert_succeeds("cmake", "-N", "-LA", "-B", self.build)
        self.assertIn("KORVALE_HARDENING:BOOL=ON", cache)
        self.assertIn("KORVALE_WARNINGS_AS_ERRORS:BOOL=OFF", cache)
        self.assertIn(f"SUBMISSION_HOST:STRING={HOST}", cache)


main()
