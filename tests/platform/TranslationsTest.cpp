#include "Translations.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

#include <gtest/gtest.h>

namespace {

// Removes whatever a test installed, so each starts from the English source.
class TranslationsTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (QTranslator *t : qApp->findChildren<QTranslator *>()) {
            QCoreApplication::removeTranslator(t);
            delete t;
        }
    }
    static QString tr(const char *context, const char *text) {
        return QCoreApplication::translate(context, text);
    }
};

TEST_F(TranslationsTest, GermanTranslationIsEmbeddedAndCoversMenuAlertAndInstanceTexts) {
    ASSERT_TRUE(installTranslations(*qApp, QLocale(QLocale::German, QLocale::Germany)));
    EXPECT_EQ(tr("Application", "Start %1").arg(tr("CorvantaInstance", "Default Instance")),
              "Standardinstanz starten");
    EXPECT_EQ(tr("Application", "%1: Stopping")
                  .arg(tr("CorvantaInstance", "Instance '%1'").arg("analytics")),
              "Instanz „analytics“: Wird beendet");
    EXPECT_EQ(
        tr("Application", "This will stop the Corvanta instance in directory\n%1.").arg("/srv/db"),
        "Dadurch wird die Corvanta-Instanz im Verzeichnis\n/srv/db beendet.");
    EXPECT_EQ(tr("Application", "Quit Corvanta Monitor"), "Corvanta Monitor beenden");
    EXPECT_EQ(tr("Application", "Cancel"), "Abbrechen");
}

TEST_F(TranslationsTest, WithoutATranslationTheEnglishSourceShows) {
    EXPECT_FALSE(installTranslations(*qApp, QLocale(QLocale::English, QLocale::UnitedStates)));
    EXPECT_FALSE(installTranslations(*qApp, QLocale(QLocale::Finnish, QLocale::Finland)));
    EXPECT_EQ(tr("Application", "Start %1").arg("Default Instance"), "Start Default Instance");
    EXPECT_EQ(tr("Application", "Cancel"), "Cancel");
}

TEST_F(TranslationsTest, SystemLocaleDecides) {
    // The test runner sets the language for this one case through the
    // environment; elsewhere the outcome depends on the machine.
    const QByteArray lang = qgetenv("CORVANTA_TEST_EXPECT_LANG");
    if (lang.isEmpty()) {
        GTEST_SKIP() << "needs CORVANTA_TEST_EXPECT_LANG";
    }
    ASSERT_EQ(installTranslations(*qApp), lang == "de");
    EXPECT_EQ(tr("Application", "Stop"), lang == "de" ? "Beenden" : "Stop");
}

}  // namespace
