#pragma once

#include "Commands.h"
#include "InstanceReport.h"

#include "registry/Paths.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QList>
#include <QString>

#include <optional>

// The instances in the Prometheus text exposition format (0.0.4): gauges
// corvanta_instances, and per instance, labelled instance, directory and
// default, corvanta_instance_up, corvanta_instance_state (one series per
// state word, 1 for the current one), and while a server lives
// corvanta_instance_server_pid and corvanta_instance_server_start_time_seconds.
// Starts with kMetricsMarker.
QByteArray prometheusText(const QList<InstanceReport> &reports);

// How every text prometheusText() writes begins: what tells a metrics file
// this program wrote from anyone else's.
inline constexpr char kMetricsMarker[] = "# HELP corvanta_";

// A metrics file that a collector reads while it is being replaced.
class MetricsFile {
    Q_DECLARE_TR_FUNCTIONS(MetricsFile)

public:
    explicit MetricsFile(QString path) : _path(std::move(path)) {}

    // Replaces the file with `text` as QSaveFile does, so a reader sees the
    // old text or the new, never part of one. Refuses,
    // leaving it alone, an existing item that is not a regular file or not
    // empty and without kMetricsMarker: a file this program did not write.
    // Answers false with one line in `error` when nothing was replaced.
    bool write(const QByteArray &text, QString *error);
    // Removes the file when it is still the one the last write() put there
    // (a stopped writer must not leave stale values behind).
    void removeWritten();

    const QString &path() const { return _path; }

private:
    bool mayReplace(QString *error) const;

    QString _path;
    std::optional<Paths::FileIdentity> _written;
};

// `metrics`: the instances in the Prometheus text format, on standard output
// or replacing a file.
int runMetrics(const CommandRequest &request, const QString &home);
