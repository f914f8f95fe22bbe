// The application's main function.
#pragma once

/// Sets up the application, the report window and its controller, launches them and runs the event loop. Takes the
/// process's own argument count and vector, unchanged; returns the exit status: 0 after an orderly end, 1 when the
/// toolkit cannot start and for a program whose file lends it rights. Where memory runs out in the event loop, the
/// process ends with 1, too, without returning.
int applicationMain(int argc, char **argv);
