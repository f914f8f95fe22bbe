// Text from outside, made fit to be shown in a line of the window.
#pragma once

#include <QString>

/// The text with a space for each control character, line end and character that would reorder the text around it
/// (the explicit directional formatting characters of Unicode Standard Annex #9).
QString displayText(QString text);

/// The text, or, where it has more UTF-16 code units than that, its beginning and its last tailUnits with an ellipsis
/// between. No pair of surrogates is parted.
QString withEllipsis(const QString &text, qsizetype maxUnits, qsizetype tailUnits);

/// The text with places to break a line inside its long words; a label breaks its lines between words only.
QString breakable(QStringView text);

/// The text as a label shows it from left to right, whatever script the names in it are written in.
QString leftToRight(const QString &text);

/// Markup that shows the text as it is: a tool tip takes what looks like markup for markup, and wraps markup only. A
/// text that would cover the screen is cut.
QString toolTipText(const QString &text);
