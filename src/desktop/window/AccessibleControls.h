// What assistive technology is told of the controls that the toolkit has no words for.
#pragma once

/// Makes the disclosure triangle a button that expands and collapses, the spinner a busy progress bar, the window's
/// actions known, a field's text one run, and nothing of the box around an alert's button. To be called before any of
/// them is looked at; calling it again changes nothing.
void installAccessibleControls();
