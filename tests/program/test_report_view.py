"""The report view on a desktop: found words, the keyboard, and what the accessibility bus is told."""

from gi.repository import Atspi, GLib

from support import CRASH_LOG, ProgramTest
from trial.waiting import wait_until

REPORT = "Report"
FIND = "Find in the report"


class ReportView(ProgramTest):
    def unfolded(self):
        program = self.launch()
        self.assert_report_shown(program, self.expected())
        program.click(REPORT)
        wait_until(lambda: program.screen.has_focus(REPORT), "the focus on the report")
        return program

    def view(self, program):
        return program.screen.find(REPORT)

    def selected(self, program):
        view = self.view(program)
        if Atspi.Text.get_n_selections(view) == 0:
            return None
        place = Atspi.Text.get_selection(view, 0)
        return Atspi.Text.get_text(view, place.start_offset, place.end_offset)

    def test_words_are_found_and_escape_leaves_the_window_open(self):
        program = self.unfolded()
        program.key("ctrl+f")
        wait_until(lambda: program.screen.is_shown(FIND), "the find bar")
        program.type("thread")
        wait_until(lambda: self.selected(program) == "Thread", "the word to be found")
        program.key("Escape", "Escape")
        wait_until(lambda: not program.screen.is_shown(FIND), "the find bar to close")
        wait_until(lambda: program.screen.has_focus(REPORT), "the focus on the report")
        self.assertTrue(program.screen.is_shown(REPORT))

    def test_return_in_the_find_bar_sends_nothing(self):
        server = self.serve()
        program = self.unfolded()
        program.key("ctrl+f")
        wait_until(lambda: program.screen.has_focus(FIND), "the focus on the find bar")
        program.type("zebra")
        program.key("Return")
        wait_until(lambda: program.screen.find(FIND).get_description() == "Not found", "the outcome to be told")
        self.assertFalse(program.is_sending())
        self.assert_posts(server, 0)

    def test_everything_is_selected_by_keyboard(self):
        program = self.unfolded()
        program.key("ctrl+a")
        wait_until(lambda: self.selected(program) == self.expected().decode(), "everything to be selected")

    def test_tab_leaves_the_report(self):
        program = self.unfolded()
        program.key("Tab")
        wait_until(lambda: not program.screen.has_focus(REPORT), "the focus to leave the report")

    def test_the_bus_is_told_the_text_line_by_line(self):
        program = self.unfolded()
        view = self.view(program)
        report = self.expected().decode()
        self.assertEqual(Atspi.Text.get_character_count(view), len(report))
        offset = 0
        for line in report.splitlines(keepends=True):
            told = Atspi.Text.get_text_at_offset(view, offset, Atspi.TextBoundaryType.LINE_START)
            self.assertEqual((told.content, told.start_offset, told.end_offset), (line, offset, offset + len(line)))
            offset += len(line)

    def test_a_screen_reader_moves_the_caret_and_selects(self):
        program = self.unfolded()
        view = self.view(program)
        place = CRASH_LOG.decode().index("EXC")
        Atspi.Text.set_caret_offset(view, place)
        wait_until(lambda: Atspi.Text.get_caret_offset(view) == place, "the caret to move")
        Atspi.Text.add_selection(view, place, place + 3)
        wait_until(lambda: self.selected(program) == "EXC", "the selection")
        self.assertTrue(view.get_state_set().contains(Atspi.StateType.READ_ONLY))
        extents = Atspi.Text.get_character_extents(view, place, Atspi.CoordType.SCREEN)
        middle = (extents.x + extents.width // 2, extents.y + extents.height // 2)
        self.assertEqual(Atspi.Text.get_offset_at_point(view, *middle, Atspi.CoordType.SCREEN), place)

    def test_a_screen_reader_is_told_where_the_caret_goes(self):
        program = self.unfolded()
        heard = []
        listener = Atspi.EventListener.new(lambda event: heard.append((event.type, event.detail1)))
        for kind in ("object:text-caret-moved", "object:text-selection-changed"):
            listener.register(kind)
            self.addCleanup(listener.deregister, kind)

        def hears(kind, place):
            while GLib.MainContext.default().iteration(False):
                pass
            return any(type.startswith(kind) and detail == place for type, detail in heard)
        program.key("ctrl+Home", "Right")
        wait_until(lambda: hears("object:text-caret-moved", 1), "the caret's move to be told")
        program.key("shift+Right")
        wait_until(lambda: hears("object:text-caret-moved", 2), "the caret's move to be told")
        wait_until(lambda: any(type.startswith("object:text-selection-changed") for type, _ in heard),
                   "the selection to be told")
