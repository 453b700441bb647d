// A notification server for tests: owns org.freedesktop.Notifications on the session bus,
// appends "title | body | action keys | desktop-entry hint" per notification to FILE (line
// breaks in the body as "\n"), and with --invoke-first-action answers each at once with its
// first action. Prints "ready" once it owns the name.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QFile>
#include <QTimer>
#include <QVariantMap>

#include <cstdio>

using namespace Qt::StringLiterals;

class Recorder : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    Recorder(QString file, bool invoke) : _file(std::move(file)), _invoke(invoke) {}

public slots:
    QStringList GetCapabilities() { return {u"actions"_s, u"body"_s}; }
    uint Notify(const QString &, uint, const QString &, const QString &summary, QString body,
                const QStringList &actions, const QVariantMap &hints, int) {
        const uint id = ++_last;
        QStringList keys;
        for (qsizetype i = 0; i + 1 < actions.size(); i += 2) {
            keys << actions[i];
        }
        body.replace(u'\n', u"\\n"_s);
        const QStringList fields{summary, body, keys.join(u','),
                                 hints.value(u"desktop-entry"_s).toString()};
        QFile out(_file);
        if (out.open(QIODevice::Append)) {
            out.write(fields.join(u" | "_s).toUtf8() + '\n');
        }
        if (_invoke && !keys.isEmpty()) {
            QTimer::singleShot(0, this, [this, id, key = keys.first()] {
                emit ActionInvoked(id, key);
                emit NotificationClosed(id, 2);
            });
        }
        return id;
    }

signals:
    void ActionInvoked(uint id, const QString &key);
    void NotificationClosed(uint id, uint reason);

private:
    QString _file;
    bool _invoke;
    uint _last = 0;
};

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    Recorder recorder(args.value(1), args.contains(u"--invoke-first-action"_s));
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(u"/org/freedesktop/Notifications"_s, &recorder,
                            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals) ||
        !bus.registerService(u"org.freedesktop.Notifications"_s)) {
        std::fprintf(stderr, "notification_recorder: cannot own the name: %s\n",
                     qPrintable(bus.lastError().message()));
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}

#include "notification_recorder.moc"
