// The menu's pieces that need no application: placement, the confirmation dialog, exported labels.
#include "app/translations/Translations.h"
#include "app/tray/DBusMenuExporter.h"
#include "app/tray/MenuPlacement.h"
#include "app/tray/MessageBoxPrompt.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QScreen>
#include <QTimer>
#include <QTranslator>

#include "../TestSupport.h"

// Rows: at the top right, at the bottom left, at either edge, on a second screen, then at the
// pointer when the icon's place is unknown; menus taller than the room scroll.
TEST(MenuPlacement, OpensBesideTheIconAwayFromThePanelAndWithinTheScreen) {
    const QRect screen(0, 0, 1024, 768), second(1024, 0, 1280, 1024);
    const std::tuple<QRect, QPoint, QSize, QRect, QRect> cases[] = {
        {{1001, 1, 22, 30}, {}, {250, 200}, screen, {774, 31, 250, 200}},
        {{1001, 1, 22, 30}, {}, {250, 5000}, screen, {774, 31, 250, 737}},
        {{10, 740, 22, 28}, {}, {250, 200}, screen, {10, 540, 250, 200}},
        {{10, 740, 22, 28}, {}, {250, 5000}, screen, {10, 0, 250, 740}},
        {{0, 300, 24, 24}, {}, {250, 200}, screen, {24, 300, 250, 200}},
        {{1000, 300, 24, 24}, {}, {250, 200}, screen, {750, 300, 250, 200}},
        {{2280, 0, 24, 24}, {}, {250, 200}, second, {2054, 24, 250, 200}},
        {{}, {500, 400}, {250, 200}, screen, {500, 400, 250, 200}},
        {{}, {1000, 700}, {250, 200}, screen, {750, 500, 250, 200}},
        {{}, {500, 400}, {250, 5000}, screen, {500, 0, 250, 768}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        const auto &[icon, pointer, menu, available, expected] = c;
        EXPECT_EQ(trayMenuGeometry(icon, pointer, menu, available), expected);
    }
}

// The real dialog in German with a long directory: the sentence stays on one line and only the
// directory wraps. Its title, default button and Escape are e2e.tray's.
TEST(ConfirmationDialog, KeepsTheSentenceWholeAndWrapsOnlyTheDirectory) {
    ASSERT_TRUE(installTranslations(*qApp, QLocale(u"de"_s)));
    const QString informative =
        QCoreApplication::translate("Application",
                                    "This will start up a Corvanta instance in directory\n%1.")
            .arg(u"/srv"_s + u"/a-rather-long-directory-name"_s.repeated(12));
    const QString sentence = informative.section(u'\n', 0, 0);
    EXPECT_FALSE(sentence.startsWith(u"This will"_s));  // German is embedded
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || !box->isVisible()) {
            return;
        }
        poll.stop();
        auto *label = box->findChild<QLabel *>(u"qt_msgbox_informativelabel"_s);
        EXPECT_FALSE(box->windowIcon().isNull());
        EXPECT_GE(label->contentsRect().width(), label->fontMetrics().horizontalAdvance(sentence));
        EXPECT_LE(box->width(), box->screen()->availableGeometry().width());
        // Wrapped text is taller than the same text given all the room it wants.
        EXPECT_GT(label->heightForWidth(label->width()), label->heightForWidth(100000));
        box->reject();
    });
    poll.start(10);
    EXPECT_FALSE(MessageBoxPrompt().confirm(u"Do you want to start the Default Instance?"_s,
                                            informative, u"Start"_s, u"Cancel"_s));
    qDeleteAll(qApp->findChildren<QTranslator *>());
}

TEST(ExportedMenu, LabelsKeepNamesLiteralAndMarkMnemonicsTheInterfacesWay) {
    EXPECT_EQ(DBusMenuExporter::labelOf(u"Start Instance 'a_b && c'"_s),
              u"Start Instance 'a__b & c'"_s);
    EXPECT_EQ(DBusMenuExporter::labelOf(u"&Quit"_s), u"_Quit"_s);
    EXPECT_EQ(DBusMenuExporter::labelOf(u"&_x&"_s), u"__x&"_s);
}
