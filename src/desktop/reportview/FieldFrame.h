// The frame of a scroll area that is a field.
#pragma once

class QAbstractScrollArea;

namespace reportview {

/// Paints the frame that the style gives a field of one line, and leaves the corner between scroll bars as it is; for
/// the area's own paint event, in place of what the toolkit does there (6.4). That one's frame lacks some of its sides
/// at scales such as 150 %, and its corner has the colour that a palette may have for frames alone.
void paintFieldFrame(QAbstractScrollArea &area);

} // namespace reportview
