// The baseline of the idle probe: a tray icon with a menu and nothing else.
// --tick-ms N adds a repeating timer, to show that the probe catches one.

#include <QApplication>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>

int main(int argc, char **argv) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QPixmap pixmap(22, 22);
    pixmap.fill(Qt::darkGray);
    QMenu menu;
    menu.addAction(QStringLiteral("Quit"), &app, &QApplication::quit);
    QSystemTrayIcon icon{QIcon(pixmap)};
    icon.setContextMenu(&menu);
    QObject::connect(&icon, &QSystemTrayIcon::activated, &menu,
                     [&menu](QSystemTrayIcon::ActivationReason reason) {
                         if (reason == QSystemTrayIcon::Trigger) {
                             menu.popup(QCursor::pos());
                         }
                     });
    icon.show();
    QTimer tick;
    const int at = app.arguments().indexOf(QStringLiteral("--tick-ms"));
    if (at > 0 && at + 1 < app.arguments().size()) {
        tick.start(app.arguments().at(at + 1).toInt());
    }
    return QApplication::exec();
}
