"""The documentation of what is sent, compared with what the program sends."""

import os
import re

from installation import PROJECT
from server_support import DESCRIPTION, ServerTest
from support import ADDRESS
from trial.home import read


def documented(heading):
    """The first column of the table of docs/privacy.md with that heading, in the order of the table."""
    text = read(os.path.join(PROJECT, "docs", "privacy.md")).decode()
    rows = text[text.index(f"| {heading} |"):].split("\n\n")[0].splitlines()[2:]
    return [re.match(r"\| `([^`]+)` \|", row)[1] for row in rows]


class Privacy(ServerTest):
    def sent(self):
        server = self.serve()
        program = self.submitted(self.launch(), ADDRESS, DESCRIPTION)
        self.assert_accepted(program, server)
        return server.posts()[0]

    def test_every_header_that_is_sent_is_documented_and_no_other(self):
        self.assertEqual(sorted(name for name, _ in self.sent().entry["headers"]), sorted(documented("header")))

    def test_every_field_that_is_sent_is_documented_and_no_other(self):
        self.assertEqual(sorted(self.sent().fields()), sorted(documented("field")))

    def test_every_setting_that_is_stored_is_documented_and_no_other(self):
        self.sent()
        self.assertEqual(sorted(self.home.settings()), sorted(documented("setting")))
