// The start of the toolkit, and a clear end where it cannot start.
#pragma once

#include <QApplication>

#include <memory>

/// Starts the toolkit for this application: English alone and laid out left to right in every locale, as the program's
/// own texts are. The arguments must outlive the result.
///
/// Without a display, or without a plugin for it, the process ends with one line on standard error, which gives the
/// toolkit's own reason, and exit status 1. Left to itself the toolkit would abort, with a page of messages.
std::unique_ptr<QApplication> startedToolkit(int &argumentCount, char **arguments);
