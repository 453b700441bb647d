#pragma once

class QCoreApplication;

// Loads the embedded translation for the user's locale, if there is one.
// Texts without a translation show their English source.
void installTranslations(QCoreApplication &app);
