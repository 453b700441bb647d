#include "InstanceReport.h"

#include <QJsonValue>

#include <algorithm>
#include <array>

InstanceReport InstanceReport::of(const CorvantaInstance &instance, bool isDefault) {
    InstanceReport report;
    report.instance = instance.displayName();
    report.name = instance.instanceName();
    report.directory = instance.directory();
    report.isDefault = isDefault;
    report.status = instance.serverStatus();
    // A pid read from a stale lock file is no process of this instance.
    const bool live = report.status == ServerStatusStarting ||
                      report.status == ServerStatusRunning || report.status == ServerStatusStopping;
    report.pid = live ? instance.pid() : 0;
    // The listing has just probed its configuration.
    report.logFile = instance.probedLogFile();
    return report;
}

QJsonObject InstanceReport::toJson() const {
    return {
        {QStringLiteral("instance"), instance},
        {QStringLiteral("name"), name},
        {QStringLiteral("directory"), directory},
        {QStringLiteral("default"), isDefault},
        {QStringLiteral("state"), stateKeyword(status)},
        {QStringLiteral("pid"), pid != 0 ? QJsonValue(pid) : QJsonValue(QJsonValue::Null)},
        {QStringLiteral("logFile"), logFile ? QJsonValue(*logFile) : QJsonValue(QJsonValue::Null)},
    };
}

QString InstanceReport::stateKeyword(qint32 status) {
    switch (status) {
        case ServerStatusStopped:
            return QStringLiteral("stopped");
        case ServerStatusStarting:
            return QStringLiteral("starting");
        case ServerStatusRunning:
            return QStringLiteral("running");
        case ServerStatusStopping:
            return QStringLiteral("stopping");
        default:
            return QStringLiteral("unknown");
    }
}

QString InstanceReport::stateText(qint32 status) {
    switch (status) {
        case ServerStatusStopped:
            return tr("stopped");
        case ServerStatusStarting:
            return tr("starting");
        case ServerStatusRunning:
            return tr("running");
        case ServerStatusStopping:
            return tr("stopping");
        default:
            return tr("unknown");
    }
}

QString InstanceReport::table(const QList<InstanceReport> &reports) {
    constexpr int kColumns = 7;
    using Row = std::array<QString, kColumns>;
    const QString none = QStringLiteral("-");
    QList<Row> rows{{tr("INSTANCE"), tr("DEFAULT"), tr("STATE"), tr("PID"), tr("NAME"),
                     tr("DIRECTORY"), tr("LOG")}};
    for (const InstanceReport &r : reports) {
        rows.append({r.instance, r.isDefault ? tr("yes") : none, stateText(r.status),
                     r.pid != 0 ? QString::number(r.pid) : none, r.name, r.directory,
                     r.logFile.value_or(none)});
    }
    std::array<qsizetype, kColumns> widths{};
    for (const Row &row : std::as_const(rows)) {
        for (int c = 0; c < kColumns; ++c) {
            widths[c] = std::max(widths[c], row[c].size());
        }
    }
    QString out;
    for (const Row &row : std::as_const(rows)) {
        QString line;
        for (int c = 0; c < kColumns - 1; ++c) {
            line += row[c].leftJustified(widths[c]) + QStringLiteral("  ");
        }
        out += line + row[kColumns - 1] + u'\n';
    }
    return out;
}
