// What a TextDisplay tells assistive technology.
#pragma once

#include <QString>

namespace reportview {

class TextDisplay;

/// UTF-16 code units that one answer to assistive technology holds at most. A message of the accessibility bus holds
/// 128 MiB (the D-Bus specification, "Message Format") and a code unit takes up to three bytes in it, so 44 million
/// units would still go over; but the window stands still while an answer is made and read, and for this many it does
/// so for less than a blink. Whoever wants more asks for it part by part.
inline constexpr qsizetype kLongestAnswer = qsizetype(4) * 1024 * 1024;
/// UTF-16 code units of a new text that are announced; the rest is there for the asking.
inline constexpr qsizetype kLongestAnnouncement = 4096;

/// Registers the accessible interface of all displays with the toolkit; once, however often it is called.
void makeTextDisplaysAccessible();

/// What is announced of a text: its begin, up to the bound, and no part of a character.
QString announcedOf(const QString &text);

/// Announcements to whoever listens.
void tellOfNewText(TextDisplay &display, const QString &before);
void tellOfCaret(TextDisplay &display);
void tellOfSelection(TextDisplay &display);

} // namespace reportview
