// The toolkit's own words: file choosers, menus of text fields.
#pragma once

class QCoreApplication;

namespace vexil {

// Lets the toolkit speak the language of the user, where it comes with a catalogue for it. The panel's own
// texts stay as they are. For the life of the application.
void LoadToolkitTranslations(QCoreApplication& application);

}  // namespace vexil
