// What assistive technology is told of a field of one line.
#pragma once

class QAccessibleInterface;
class QLineEdit;

/// The text of a line edit, as one run of attributes. The toolkit's own interface (6.4) says of every character that
/// the run it belongs to is empty, by which a screen reader (Orca 43) loses the last letter of what was typed. For a
/// factory of such interfaces: the toolkit owns it.
QAccessibleInterface *accessibleField(QLineEdit &field);
