#pragma once

class QCoreApplication;
class QLocale;

// Loads the embedded translation for the user's locale, if there is one, and
// answers whether one was installed. Texts without a translation show their
// English source.
bool installTranslations(QCoreApplication &app);
// The same for a given locale.
bool installTranslations(QCoreApplication &app, const QLocale &locale);
