// The tips of the controls as they are shown.
#pragma once

#include <QString>

namespace vexil {

// A tip as lines of about equal length, in the font of tips. The toolkit breaks formatted text only, and
// leaves room below it for a line that is not there.
QString TipInLines(const QString& tip);

}  // namespace vexil
