#include "platform/qt/ToolkitTranslations.h"

#include <memory>

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

namespace vexil {

void LoadToolkitTranslations(QCoreApplication& application) {
    auto catalogue = std::make_unique<QTranslator>(&application);
    // No catalogue is no failure: the toolkit's words are in English then, as without one.
    if (catalogue->load(QLocale(), "qtbase", "_", QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        QCoreApplication::installTranslator(catalogue.release());
    }
}

}  // namespace vexil
