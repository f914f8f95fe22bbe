// The logging category of the report window.
#pragma once

#include <QLoggingCategory>

/// "korvale.window": off unless QT_LOGGING_RULES switches it on. Never a word of the report, the address or the
/// description.
Q_DECLARE_LOGGING_CATEGORY(lcWindow)
