#pragma once

#include "registry/CorvantaManager.h"

#include <QCoreApplication>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

// What the commands report about one instance, read once from its record.
struct InstanceReport {
    Q_DECLARE_TR_FUNCTIONS(InstanceReport)

public:
    QString instance;   // the directory name, as INSTANCE names it
    QString name;       // as the menu shows it
    QString directory;  // as listed
    bool isDefault = false;
    qint32 status = ServerStatusUnknown;
    qint32 pid = 0;  // 0: not known
    std::optional<QString> logFile;

    // `isDefault`: whether it is the instance "default" names.
    static InstanceReport of(const CorvantaInstance &instance, bool isDefault);
    // One report per instance, in the listing's order, the default one marked.
    static QList<InstanceReport> listing(const QList<CorvantaInstancePtr> &instances);

    // One object with the keys instance, name, directory, default, state,
    // pid (null when not known) and logFile (null when there is none).
    QJsonObject toJson() const;
    // `list --json`'s document: the keys installation and instances.
    static QJsonObject listingJson(const QString &home, const QList<InstanceReport> &reports);

    // "stopped", "starting", "running", "stopping" or "unknown": the stable
    // words of the JSON output and of the exit status's meaning.
    static QString stateKeyword(qint32 status);
    // The same word for a person, translated.
    static QString stateText(qint32 status);

    // A table with a header line, one line per report, columns aligned.
    static QString table(const QList<InstanceReport> &reports);
};
