// Text from outside, made fit to be shown in a line of the window.
#pragma once

#include <QString>

/// The text with a space for each control character, line end and character that would reorder the text around it
/// (the explicit directional formatting characters of Unicode Standard Annex #9).
QString displayText(QString text);
