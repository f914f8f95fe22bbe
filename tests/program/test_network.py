"""What goes wrong between the program and its server: the alert, the window afterwards, and never a second POST."""

from support import CONNECTION_FAILED, ProgramTest, UPLOAD_FAILED, cases


class AnswersWithBytes(ProgramTest):
    @cases(
        one_byte=("one-byte",),
        chunks=("chunks",),
        one_gibibyte=("huge",),
        cut_short_after_bytes=("cut-short-after-bytes",),
        status_401=("status-401-with-body",),
        status_404=("status-404-with-body",),
        status_413=("status-413-with-body",),
        status_500=("status-500-with-body",),
    )
    def test_is_a_refusal(self, answer):
        server = self.serve(f"{answer},accept")
        program = self.submitted(self.launch())
        self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
        self.assert_usable_after_failure(program)
        self.assert_posts(server, 1)
        program.submit()
        self.assert_accepted(program, server, posts=2)


class AnswersWithoutBytes(ProgramTest):
    @cases(
        status_204=("status-204",),
        status_304=("status-304",),
        status_401=("status-401",),
        status_404=("status-404",),
        status_413=("status-413",),
        status_500=("status-500",),
        # HTTP gives these two no body (RFC 9110 section 6.4.1); what follows the head is not part of the answer.
        status_204_with_body=("status-204-with-body",),
        status_304_with_body=("status-304-with-body",),
    )
    def test_is_an_acceptance(self, answer):
        server = self.serve(answer)
        self.assert_accepted(self.submitted(self.launch()), server)


class NoAnswer(ProgramTest):
    @cases(
        cut_short=("cut-short",),
        closed_after_the_request=("close-after-request",),
        closed_during_the_request=("close-during-request",),
    )
    def test_is_a_failed_connection(self, answer):
        server = self.serve(f"{answer},accept")
        program = self.submitted(self.launch())
        self.assertEqual(program.dismiss_alert(), CONNECTION_FAILED)
        self.assert_usable_after_failure(program)
        self.assertEqual(len(server.posts()), 1)
        program.submit()
        self.assertEqual(program.exit_status(), 0)
        self.assertEqual(len(server.posts()), 2)

    def test_is_a_failed_connection_closed_before_the_request(self):
        server = self.serve("close-before-request,accept")
        program = self.submitted(self.launch())
        self.assertEqual(program.dismiss_alert(), CONNECTION_FAILED)
        self.assert_usable_after_failure(program)
        self.assertEqual(server.handshakes(), 1)
        self.assert_posts(server, 0)
        program.submit()
        self.assert_accepted(program, server)

    def test_nothing_listening_is_a_failed_connection(self):
        program = self.submitted(self.launch())
        self.assertEqual(program.dismiss_alert(), CONNECTION_FAILED)
        self.assert_usable_after_failure(program)
        server = self.serve()
        program.submit()
        self.assert_accepted(program, server)

    def test_an_unknown_host_is_a_failed_connection(self):
        # The proxy's, for loopback has a name without any list or service that knows it. The namespace further in has
        # neither.
        nameless = ("unshare", "--mount", "sh", "-c",
                    "mount --bind /dev/null /etc/hosts && mount --bind /dev/null /etc/resolv.conf && exec \"$@\"", "sh",
                    "unshare", "--user", "--map-user=1000", "--map-group=1000",
                    "env", "https_proxy=http://proxy.example.org:3128")
        server = self.serve()
        program = self.start("-remotename", "anvil", "-log", self.crash_log, prefix=nameless).wait_for_window()
        self.submitted(program)
        self.assertEqual(program.dismiss_alert(), CONNECTION_FAILED)
        self.assert_usable_after_failure(program)
        self.assertEqual(server.handshakes(), 0)


class Certificates(ProgramTest):
    @cases(
        stranger=("stranger",),
        expired=("expired",),
        other_host=("otherhost",),
    )
    def test_a_server_that_cannot_be_trusted_gets_nothing(self, identity):
        stranger = self.serve(identity=identity)
        program = self.submitted(self.launch())
        self.assertEqual(program.dismiss_alert(), CONNECTION_FAILED)
        self.assert_usable_after_failure(program)
        self.assertEqual(stranger.requests(), [])
        stranger.end()
        server = self.serve()
        program.submit()
        self.assert_accepted(program, server)


class Redirects(ProgramTest):
    @cases(
        status_301=("redirect-301",),
        status_302=("redirect-302",),
        status_303=("redirect-303",),
        status_307=("redirect-307",),
        status_308=("redirect-308",),
        to_nothing=("redirect-to-nothing",),
    )
    def test_are_a_failed_connection_and_not_followed(self, redirect):
        server = self.serve(f"{redirect},accept")
        program = self.submitted(self.launch())
        self.assertEqual(program.dismiss_alert(), CONNECTION_FAILED)
        self.assert_usable_after_failure(program)
        self.assertEqual([request.method for request in server.requests()], ["POST"])
        program.submit()
        self.assert_accepted(program, server, posts=2)
