// What a process of root's takes from the environment that it was started in.
#pragma once

#include "platform/LocalLookups.h"

/// For a process of root's: keeps the variables that name a display, a language or a proxy, drops all others and sets
/// HOME and PATH to root's own. Root's rights are often gained with a user's environment, and variables of the toolkit
/// and of the libraries below it name folders to load code and settings from, and buses. Whoever owns a bus can have a
/// program run: its address may be a command, or its answers name such an address. So root's window is on no bus, which
/// takes assistive technology away from it. Does nothing for other users.
void keepOnlyHarmlessVariables(const platform::LocalLookups &lookups);

/// Keeps, in place, of the entries of an environment (environ(7)) those that keepOnlyHarmlessVariables() does. It asks
/// nothing and allocates nothing, so it may run before the libraries are initialized: some of them read variables then,
/// and one loads the library that ACC_PROFLIB names.
///
/// What the dynamic loader reads (LD_PRELOAD and the like, ld.so(8)) has had its effect before that.
void keepOnlyHarmlessEntries(char **entries);
