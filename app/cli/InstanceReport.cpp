#include "InstanceReport.h"

#include <QJsonArray>

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

QList<InstanceReport> InstanceReport::listing(const QList<CorvantaInstancePtr> &instances) {
    const CorvantaInstancePtr defaultInstance = chooseDefaultInstance(instances);
    QList<InstanceReport> reports;
    reports.reserve(instances.size());
    for (const CorvantaInstancePtr &instance : instances) {
        reports.append(of(*instance, instance == defaultInstance));
    }
    return reports;
}

namespace {

// Indexed by ServerStatus; the English words are the JSON's and the sources
// of the translated ones.
constexpr const char *kStateWords[] = {
    QT_TRANSLATE_NOOP("InstanceReport", "unknown"),  QT_TRANSLATE_NOOP("InstanceReport", "stopped"),
    QT_TRANSLATE_NOOP("InstanceReport", "starting"), QT_TRANSLATE_NOOP("InstanceReport", "running"),
    QT_TRANSLATE_NOOP("InstanceReport", "stopping"),
};

const char *stateWord(qint32 status) {
    return status >= ServerStatusStopped && status <= ServerStatusStopping
               ? kStateWords[status]
               : kStateWords[ServerStatusUnknown];
}

}  // namespace

QJsonObject InstanceReport::toJson() const {
    // In the keys' sorted order, so that every insertion is an append.
    QJsonObject object;
    object.insert(QLatin1StringView("default"), isDefault);
    object.insert(QLatin1StringView("directory"), directory);
    object.insert(QLatin1StringView("instance"), instance);
    object.insert(QLatin1StringView("logFile"), logFile ? QJsonValue(*logFile) : QJsonValue());
    object.insert(QLatin1StringView("name"), name);
    object.insert(QLatin1StringView("pid"), pid != 0 ? QJsonValue(pid) : QJsonValue());
    object.insert(QLatin1StringView("state"), stateKeyword(status));
    return object;
}

QJsonObject InstanceReport::listingJson(const QString &home, const QList<InstanceReport> &reports) {
    QJsonArray array;
    for (const InstanceReport &report : reports) {
        array.append(report.toJson());
    }
    return {{QStringLiteral("installation"), home}, {QStringLiteral("instances"), array}};
}

QString InstanceReport::stateKeyword(qint32 status) {
    return QLatin1StringView(stateWord(status));
}

QString InstanceReport::stateText(qint32 status) {
    return tr(stateWord(status));
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
