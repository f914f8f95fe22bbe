// What a process takes over from whoever has started it.
#pragma once

/// Puts right what the program is started with and would fail by, as it may be started from a crashing application:
///  - standard descriptors that are closed lead nowhere, or the first files and sockets that are opened would be taken
///    for them and written to;
///  - a write to standard error gives up where nobody reads what is there, instead of waiting for it, and does not stop
///    the program where a terminal stops whoever writes from the background;
///  - no timer is set, signals that the program before has not taken are forgotten but for the requests to end, none is
///    blocked, and the end of a child is told;
///  - what is made can be used by the user, and changed by nobody else; others may read it as they otherwise may, or
///    what a library writes for root into a cache that everybody shares would serve root alone.
/// To be called at the start of main, before anything is kept open.
void putInheritedStateRight();
