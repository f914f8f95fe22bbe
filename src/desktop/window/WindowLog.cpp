// Keeps the window's log lines back unless they are asked for.
#include "desktop/window/WindowLog.h"

Q_LOGGING_CATEGORY(lcWindow, "korvale.window", QtFatalMsg)
