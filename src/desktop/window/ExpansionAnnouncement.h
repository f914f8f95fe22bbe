// Telling assistive technology that a control has been expanded or collapsed.
#pragma once

class QWidget;

/// Tells of the state that the control's accessible interface has now. Where nobody listens, it does nothing.
void announceExpansion(QWidget &control);
