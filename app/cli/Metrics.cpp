#include "Metrics.h"

#include "app/common/Output.h"
#include "registry/CorvantaManager.h"
#include "registry/ProcStat.h"

#include <QSaveFile>

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// /proc/stat holds a line per processor and one per interrupt before btime.
constexpr qsizetype kProcStatLimit = 256 * 1024;

QByteArray escapeLabel(const QString &value) {
    QByteArray out;
    for (const char c : value.toUtf8()) {
        switch (c) {
            case '\\':
                out += "\\\\";
                break;
            case '"':
                out += "\\\"";
                break;
            case '\n':
                out += "\\n";
                break;
            default:
                out += c;
        }
    }
    return out;
}

QByteArray labels(const InstanceReport &report) {
    return "instance=\"" + escapeLabel(report.instance) + "\",directory=\"" +
           escapeLabel(report.directory) + "\",default=\"" + (report.isDefault ? "true" : "false") +
           '"';
}

void family(QByteArray &out, const char *name, const char *help) {
    out += QByteArray("# HELP ") + name + ' ' + help + "\n# TYPE " + name + " gauge\n";
}

void sample(QByteArray &out, const char *name, const QByteArray &labels, const QByteArray &value) {
    out += QByteArray(name) + '{' + labels + "} " + value + '\n';
}

std::optional<qulonglong> bootTime() {
    QByteArray stat;
    QString error;
    if (!Paths::readAsciiPrefix(QStringLiteral("/proc/stat"), &stat, &error, kProcStatLimit)) {
        return std::nullopt;
    }
    return ProcStat::bootTime(stat.constData(), size_t(stat.size()));
}

QString systemError(int error = errno) {
    return QString::fromLocal8Bit(std::strerror(error));
}

// When the process `pid` started, in seconds since the Unix epoch; nothing
// when that cannot be read.
std::optional<double> processStartTime(qint32 pid) {
    QByteArray stat;
    QString error;
    if (pid <= 0 ||
        !Paths::readAsciiPrefix(QStringLiteral("/proc/%1/stat").arg(pid), &stat, &error, 1024)) {
        return std::nullopt;
    }
    const auto fields = ProcStat::parse(stat.constData(), size_t(stat.size()));
    const long hertz = ::sysconf(_SC_CLK_TCK);
    const std::optional<qulonglong> boot = bootTime();
    if (!fields || !fields->startTicks || hertz <= 0 || !boot) {
        return std::nullopt;
    }
    return double(*boot) + double(*fields->startTicks) / double(hertz);
}

}  // namespace

QByteArray prometheusText(const QList<InstanceReport> &reports) {
    QByteArray out;
    family(out, "corvanta_instances", "Number of Corvanta instances in the installation.");
    out += "corvanta_instances " + QByteArray::number(reports.size()) + '\n';
    family(out, "corvanta_instance_up", "Whether the server of the instance is running.");
    for (const InstanceReport &r : reports) {
        sample(out, "corvanta_instance_up", labels(r), r.status == ServerStatusRunning ? "1" : "0");
    }
    family(out, "corvanta_instance_state",
           "State of the server of the instance: 1 for the current one.");
    for (const InstanceReport &r : reports) {
        const QByteArray common = labels(r);
        for (qint32 s = ServerStatusUnknown; s <= ServerStatusStopping; ++s) {
            sample(out, "corvanta_instance_state",
                   common + ",state=\"" + InstanceReport::stateKeyword(s).toLatin1() + '"',
                   s == r.status ? "1" : "0");
        }
    }
    family(out, "corvanta_instance_server_pid",
           "Process id of the server of the instance, while it lives.");
    QList<std::optional<double>> starts;
    for (const InstanceReport &r : reports) {
        starts.append(r.pid != 0 ? processStartTime(r.pid) : std::nullopt);
        if (r.pid != 0) {
            sample(out, "corvanta_instance_server_pid", labels(r), QByteArray::number(r.pid));
        }
    }
    family(out, "corvanta_instance_server_start_time_seconds",
           "Start time of the server of the instance, in seconds since the Unix epoch.");
    for (qsizetype i = 0; i < reports.size(); ++i) {
        if (starts.at(i)) {
            sample(out, "corvanta_instance_server_start_time_seconds", labels(reports.at(i)),
                   QByteArray::number(*starts.at(i), 'f', 2));
        }
    }
    return out;
}

bool MetricsFile::mayReplace(QString *error) const {
    const std::optional<Paths::ItemInfo> item = Paths::attributesOfItem(_path);
    if (!item) {
        return true;  // nothing there; the write says why it cannot make one
    }
    if (!item->isRegular()) {
        *error = tr("%1 is not a regular file; not replacing it").arg(_path);
        return false;
    }
    QByteArray head;
    QString readError;
    const qsizetype marker = qsizetype(sizeof kMetricsMarker) - 1;
    if (item->size > 0 &&
        (!Paths::readAsciiPrefix(_path, &head, &readError, marker) || head != kMetricsMarker)) {
        *error = tr("%1 was not written by corvanta-monitor; not replacing it").arg(_path);
        return false;
    }
    return true;
}

bool MetricsFile::write(const QByteArray &text, QString *error) {
    if (!mayReplace(error)) {
        return false;
    }
    // Renames over the file mayReplace() accepted. Its temporary name ends
    // in a random suffix, never in the collector's ".prom", so a half-written
    // file is never read.
    QSaveFile file(_path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
        *error = tr("cannot write %1: %2").arg(_path, file.errorString());
        return false;
    }
    _written = Paths::identityOf(_path);
    return true;
}

void MetricsFile::removeWritten() {
    if (_written && Paths::identityOf(_path) == _written) {
        ::unlink(_path.toUtf8().constData());
    }
    _written.reset();
}

int runMetrics(const CommandRequest &request, const QString &home) {
    CorvantaManager manager;
    manager.addSearchPath(home);
    const QByteArray text = prometheusText(InstanceReport::listing(manager.allInstances()));
    if (request.outputFile) {
        MetricsFile file(*request.outputFile);
        QString error;
        if (!file.write(text, &error)) {
            printError(error);
            return ExitFailure;
        }
        return ExitSuccess;
    }
    if (!writeStandardOutput(text)) {
        printError(
            QCoreApplication::translate("Watch", "cannot write the output: %1").arg(systemError()));
        return ExitFailure;
    }
    return ExitSuccess;
}
