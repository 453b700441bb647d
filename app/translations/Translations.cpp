#include "Translations.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

bool installTranslations(QCoreApplication &app) {
    return installTranslations(app, QLocale::system());
}

bool installTranslations(QCoreApplication &app, const QLocale &locale) {
    auto *translator = new QTranslator(&app);
    // Tries corvanta_de_DE, corvanta_de, ... for each of the user's languages.
    if (!translator->load(locale, QStringLiteral("corvanta"), QStringLiteral("_"),
                          QStringLiteral(":/i18n"))) {
        delete translator;
        return false;
    }
    return QCoreApplication::installTranslator(translator);
}
