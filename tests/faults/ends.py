"""Every state of a submission in which it is given up, and every way of doing so.

Within a second the window is idle again, or the program has ended. Afterwards nothing comes of it any more: no POST, no
alert, nothing left open; the attempt was counted.
"""

import signal

from gi.repository import Atspi

import names
from attempt import EMPTY
from ends_world import (
    BEING_MADE, ENDED, GivingUp, IDLE, LOCKED, State, Way, answering_alert, closing, connection_states, logging_out,
    pressing, signalled, stopped, submitting_again, typing)
from network_world import TRY_AGAIN
from peers import DEAD, HOLD, after_connect, after_handshake, after_head, after_request
from situation import FAILED, Group, REFUSED, SENDING

BIG = 8 << 20
NO = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nNO"


def connected(tried):
    return any(peer.connections for peer in tried.place.peers)


def head_read(tried):
    return any(request.head is not None for request in tried.place.requests())


def posted(tried):
    return tried.place.posts()


def alert_shown(tried):
    """Shown, and the one that keys go to."""
    window = tried.outcome() and tried.program.screen.alert_window()
    return window and window.get_state_set().contains(Atspi.StateType.ACTIVE)


def locked(tried):
    """The alert was answered; the form stays locked until it is edited."""
    return tried.outcome() and tried.dismiss() and tried.can_go_on()


def stalled(tried):
    """The alert that there is no transfer was answered; the window goes on as if there were one."""
    return tried.outcome() == NOT_CREATED and tried.dismiss() and tried.form.is_sending()


def proxy_asked_for(tried):
    tried.command = tried.child()
    return tried.command


NOT_CREATED = f"alert {('Unable to submit crash report - failed to establish a connection.', TRY_AGAIN)}"
# The program's faster clock is not for the command.
HANGING = "#!/bin/sh\nexec env --unset=LD_PRELOAD sleep 60\n"

# The C library's lookup cannot be called off: its sockets stay until the resolver gives up.
LOOKUP = State("the name is looked up", after_request(EMPTY), lambda tried: tried.asked.questions, names=names.silent,
               stays=2)
CONNECTING = State("it connects", DEAD, lambda tried: BEING_MADE in connection_states(tried))
HANDSHAKE = State("the handshake is not answered", after_connect(HOLD), connected)
SECURED = State("the connection is secured and the report not read", after_handshake(HOLD), connected, report=BIG)
BODY = State("the report is half sent", after_head(HOLD), head_read, report=BIG)
WAITING = State("the answer is waited for", after_request(HOLD), posted, posts=1)
ANSWERING = State("half of the answer's head is there", after_request(EMPTY[:20], HOLD), posted, posts=1)
PROXY = State("the desktop's proxy is asked for", after_connect(HOLD), proxy_asked_for, anew=True,
              instead=("/usr/bin/proxy", HANGING))
SENDING_STATES = (PROXY, LOOKUP, CONNECTING, HANDSHAKE, SECURED, BODY, WAITING, ANSWERING)

REFUSAL = State("the alert of a refusal is shown", after_request(NO), alert_shown, posts=1, says=("Returned data: NO",))
FAILURE = State("the alert of a failed connection is shown", (), alert_shown)
REFUSED_REPORT = State("a refused report is locked", after_request(NO), locked, posts=1, says=("Returned data: NO",))
# Without libcurl there is nothing to send with.
STALLED = State("it is stalled without a transfer", after_request(EMPTY), stalled, anew=True,
                instead=("/usr/lib/*/libcurl.so.4", ""))
SETTLED_STATES = (REFUSAL, FAILURE, REFUSED_REPORT, STALLED)

SIGNALS = tuple(Way(name, signalled(getattr(signal, name))) for name in ("SIGTERM", "SIGINT", "SIGHUP"))
ALL_SIGNALS = Way("SIGHUP, SIGINT and SIGTERM, twice each",
                  signalled(*(signal.SIGHUP, signal.SIGINT, signal.SIGTERM) * 2))
LOGOUT = Way("a logout", logging_out, session=True)
CLOSING = Way("closing the window", closing)
CLOSING_ALERT = Way("closing the alert", typing("alt+F4"))
CANCEL = Way("Cancel", pressing("Cancel"))
ESCAPE = Way("Escape", typing("Escape"))
ESCAPES = Way("Escape, twenty times", typing(*["Escape"] * 20))
AGAIN = Way("Report Crash, ten times more,", submitting_again(10))
EDIT = Way("Edit Report", pressing("Edit Report"))
ANSWER = Way("its button", answering_alert)
DISMISS = Way("Escape, twice", typing("Escape", "Escape"))
# Sixty times the clock: the minute without a byte passes in a second. What was not sent when the program was stopped is
# sent when it goes on, and the minute begins anew: another second.
MINUTE = Way("a minute's stop", stopped(66), clock=60, within=2.0)
MOMENT = Way("a moment's stop", stopped(6), clock=60)


def row(state, way, end, **options):
    return GivingUp(f"{way.name} while {state.name}", end, state, way, **options)


SIGNALLED = Group("ends: signals", "ends_world", tuple(
    row(state, way, ENDED) for state in (*SENDING_STATES, *SETTLED_STATES) for way in SIGNALS) + tuple(
    row(state, ALL_SIGNALS, ENDED) for state in (WAITING, REFUSAL)))

LOGGED_OUT = Group("ends: logout", "ends_world", tuple(
    row(state, LOGOUT, ENDED) for state in (*SENDING_STATES, *SETTLED_STATES)))

CLOSED = Group("ends: closing the window", "ends_world", (
    *(row(state, CLOSING, ENDED) for state in (*SENDING_STATES, REFUSED_REPORT, STALLED)),
    *(row(state, CLOSING_ALERT, LOCKED) for state in (REFUSAL, FAILURE)),
))

CANCELLED = Group("ends: cancel", "ends_world", (
    *(row(state, CANCEL, IDLE, sends_again=True) for state in (*SENDING_STATES, STALLED)),
    *(row(state, ESCAPES, IDLE, sends_again=True) for state in (*SENDING_STATES, STALLED)),
    *(row(state, ESCAPE, IDLE) for state in (PROXY, HANDSHAKE, WAITING, STALLED)),
    *(row(state, AGAIN, SENDING) for state in (*SENDING_STATES, STALLED)),
    row(REFUSED_REPORT, EDIT, IDLE),
    *(row(state, way, LOCKED) for state in (REFUSAL, FAILURE) for way in (ANSWER, ESCAPE)),
    # The first answers the alert, the second edits the report if the window is in front again by then.
    *(row(state, DISMISS, (LOCKED, IDLE)) for state in (REFUSAL, FAILURE)),
))

STOPPED = Group("ends: stopped and continued", "ends_world", (
    row(PROXY, MOMENT, SENDING),
    row(LOOKUP, MOMENT, SENDING),
    row(HANDSHAKE, MOMENT, SENDING),
    row(WAITING, MOMENT, SENDING),
    *(row(state, MINUTE, FAILED) for state in SENDING_STATES),
    row(REFUSAL, MINUTE, REFUSED),
    row(FAILURE, MINUTE, FAILED),
    row(REFUSED_REPORT, MINUTE, LOCKED),
    # Only Cancel leaves it.
    row(STALLED, MINUTE, SENDING),
))

GROUPS = (SIGNALLED, LOGGED_OUT, CLOSED, CANCELLED, STOPPED)
