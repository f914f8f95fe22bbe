"""A clipboard manager, which takes over what a program that ends has copied (freedesktop.org's ClipboardManager)."""

import sys

from Xlib import X, display
from Xlib.protocol import event

# The most that is put into a property at once.
CHUNK = 64 * 1024


class ClipboardManager:
    """Says on standard output when it is ready, and when it has kept a text."""

    def __init__(self):
        self.display = display.Display()
        self.window = self.display.screen().root.create_window(
            0, 0, 1, 1, 0, X.CopyFromParent, event_mask=X.PropertyChangeMask)
        self.kept = b""
        self.pending = []  # events that came while a certain one was waited for
        self.own("CLIPBOARD_MANAGER")
        print("ready", flush=True)

    def atom(self, name):
        return self.display.intern_atom(name)

    def own(self, selection):
        self.window.set_selection_owner(self.atom(selection), X.CurrentTime)
        if self.display.get_selection_owner(self.atom(selection)) != self.window:
            raise RuntimeError(f"{selection} has another owner")

    def run(self):
        while True:
            came = self.pending.pop(0) if self.pending else self.display.next_event()
            if came.type == X.SelectionRequest:
                self.answer(came)

    def answer(self, request):
        if request.target == self.atom("SAVE_TARGETS"):
            self.save()
            self.notify(request, request.property)
            self.own("CLIPBOARD")
            print(f"kept {len(self.kept)} bytes", flush=True)
        elif request.target == self.atom("UTF8_STRING"):
            self.hand_over(request)
        else:
            self.notify(request, X.NONE)

    def save(self):
        """Asks the owner of the clipboard for its text, which may come in pieces (ICCCM, 2.7.2)."""
        place = self.atom("KEPT_TEXT")
        self.window.convert_selection(self.atom("CLIPBOARD"), self.atom("UTF8_STRING"), place, X.CurrentTime)
        if self.wait_for(lambda came: came.type == X.SelectionNotify).property == X.NONE:
            raise RuntimeError("the owner of the clipboard has no text")
        value = self.window.get_full_property(place, X.AnyPropertyType)
        is_in_pieces = value.property_type == self.atom("INCR")
        self.forget_property_changes()
        self.window.delete_property(place)
        if not is_in_pieces:
            self.kept = bytes(value.value)
            return
        pieces = []
        while True:
            self.wait_for(lambda came: came.type == X.PropertyNotify and came.state == X.PropertyNewValue)
            piece = bytes(self.window.get_full_property(place, X.AnyPropertyType).value)
            self.window.delete_property(place)
            if not piece:
                break
            pieces.append(piece)
        self.kept = b"".join(pieces)

    def hand_over(self, request):
        for start in range(0, len(self.kept), CHUNK):
            request.requestor.change_property(
                request.property, self.atom("UTF8_STRING"), 8, self.kept[start:start + CHUNK], X.PropModeAppend)
        self.notify(request, request.property)

    def notify(self, request, place):
        request.requestor.send_event(event.SelectionNotify(
            time=request.time, requestor=request.requestor, selection=request.selection, target=request.target,
            property=place))
        self.display.flush()

    def forget_property_changes(self):
        self.display.sync()
        self.pending += [came for came in self.waiting_events() if came.type != X.PropertyNotify]

    def waiting_events(self):
        return [self.display.next_event() for _ in range(self.display.pending_events())]

    def wait_for(self, is_wanted):
        while True:
            came = self.display.next_event()
            if is_wanted(came):
                return came
            self.pending.append(came)


if __name__ == "__main__":
    sys.exit(ClipboardManager().run())
