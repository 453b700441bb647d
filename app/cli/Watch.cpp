#include "Watch.h"

#include "InstanceLookup.h"
#include "InstanceReport.h"
#include "Metrics.h"
#include "app/common/Output.h"
#include "app/common/TerminationSignals.h"
#include "registry/InstanceModel.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QSocketNotifier>

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

enum class Event { Present, Changed, Appeared, Disappeared };

class Watch {
    Q_DECLARE_TR_FUNCTIONS(Watch)

public:
    Watch(const CommandRequest &request, const QString &home) : _json(request.json) {
        if (request.metricsFile) {
            _metrics.emplace(*request.metricsFile);
        }
        _model.setSearchPaths({home});
    }

    int run(const QString &instance) {
        _model.rescan();
        if (!instance.isEmpty()) {
            const InstanceLookup lookup = InstanceLookup::find(_model.instances(), instance);
            if (!lookup.instance) {
                printError(lookup.error);
                return ExitNoSuchInstance;
            }
            _only = lookup.instance->directory();
        }
        TerminationSignals termination;
        if (!termination.isActive()) {
            return ExitFailure;  // logged; a watch that cannot be ended cleanly must not start
        }
        // A reader that goes away ends the watch with the next line at the
        // latest; a pipe says so at once.
        ::signal(SIGPIPE, SIG_IGN);
        std::unique_ptr<QSocketNotifier> readerGone = watchReader();
        QObject::connect(&_model, &InstanceModel::rescanned, &_model, [this] { update(); });
        QObject::connect(&_model, &InstanceModel::refreshed, &_model, [this] { update(); });
        update();
        if (!_ended) {
            QCoreApplication::exec();
        }
        if (_metrics) {
            _metrics->removeWritten();
        }
        return _status;
    }

private:
    // Prints what differs from the last look and rewrites the metrics.
    void update() {
        const QList<InstanceReport> reports = InstanceReport::listing(_model.instances());
        // First, so that a file refused at the start ends the watch before
        // any line promises more.
        writeMetrics(reports);
        if (_ended) {
            return;
        }
        QMap<QString, InstanceReport> now;
        for (const InstanceReport &report : reports) {
            if (!_only.isEmpty() && report.directory != _only) {
                continue;
            }
            now.insert(report.directory, report);
            const auto before = _seen.constFind(report.directory);
            if (before == _seen.cend()) {
                print(_started ? Event::Appeared : Event::Present, nullptr, &report);
            } else if (before->status != report.status || before->pid != report.pid) {
                print(Event::Changed, &*before, &report);
            }
        }
        for (const InstanceReport &gone : std::as_const(_seen)) {
            if (!now.contains(gone.directory)) {
                print(Event::Disappeared, &gone, nullptr);
            }
        }
        _seen = std::move(now);
        _started = true;
    }

    // A file that cannot be written at the start ends the watch; later, a
    // failure (a full disk, say) is told and the next change tries again.
    void writeMetrics(const QList<InstanceReport> &reports) {
        const QByteArray text = _metrics ? prometheusText(reports) : QByteArray();
        if (!_metrics || text == _metricsText) {
            return;
        }
        QString error;
        if (_metrics->write(text, &error)) {
            _metricsText = text;
            return;
        }
        printError(error);
        _metricsText.clear();
        if (!_started) {
            end(ExitFailure);
        }
    }

    void end(int status) {
        _status = status;
        _ended = true;
        QCoreApplication::exit(status);  // nothing yet when the loop has not started
    }

    // A reader that has gone (EPIPE) ends the watch quietly and successfully.
    void print(Event event, const InstanceReport *before, const InstanceReport *now) {
        const QByteArray line = _json ? jsonLine(event, before, now) : textLine(event, before, now);
        if (_ended || writeStandardOutput(line)) {
            return;
        }
        if (errno == EPIPE) {
            end(ExitSuccess);
            return;
        }
        printError(
            tr("cannot write the output: %1").arg(QString::fromLocal8Bit(std::strerror(errno))));
        end(ExitFailure);
    }

    static QByteArray jsonLine(Event event, const InstanceReport *before,
                               const InstanceReport *now) {
        const InstanceReport &report = now ? *now : *before;
        static const char *const kEvents[] = {"present", "changed", "appeared", "disappeared"};
        // In the keys' sorted order, so that every insertion is an append.
        QJsonObject object;
        object.insert(QLatin1StringView("default"), report.isDefault);
        object.insert(QLatin1StringView("directory"), report.directory);
        object.insert(QLatin1StringView("event"), QLatin1StringView(kEvents[int(event)]));
        object.insert(QLatin1StringView("instance"), report.instance);
        object.insert(QLatin1StringView("pid"),
                      now && now->pid != 0 ? QJsonValue(now->pid) : QJsonValue());
        object.insert(
            QLatin1StringView("previous"),
            before ? QJsonValue(InstanceReport::stateKeyword(before->status)) : QJsonValue());
        object.insert(QLatin1StringView("state"),
                      now ? QJsonValue(InstanceReport::stateKeyword(now->status)) : QJsonValue());
        object.insert(QLatin1StringView("time"),
                      QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
        return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
    }

    static QByteArray textLine(Event event, const InstanceReport *before,
                               const InstanceReport *now) {
        // With its offset from UTC, which a local time does not print.
        const QDateTime local = QDateTime::currentDateTime();
        const QString time =
            local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODateWithMs);
        const QString name = now ? now->instance : before->instance;
        QString line;
        switch (event) {
            case Event::Present:
                line = tr("%1 %2 %3").arg(time, name, InstanceReport::stateText(now->status));
                break;
            case Event::Changed:
                line = tr("%1 %2 %3 -> %4")
                           .arg(time, name, InstanceReport::stateText(before->status),
                                InstanceReport::stateText(now->status));
                break;
            case Event::Appeared:
                line = tr("%1 %2 appeared: %3")
                           .arg(time, name, InstanceReport::stateText(now->status));
                break;
            case Event::Disappeared:
                line = tr("%1 %2 disappeared").arg(time, name);
                break;
        }
        if (now && now->pid != 0) {
            line += tr(" (pid %1)").arg(now->pid);
        }
        line.replace(u'\n', QStringLiteral("\\n"));
        return (line + u'\n').toLocal8Bit();
    }

    // A notifier that ends the watch when standard output is a pipe whose
    // reader has gone: its write end polls as an error then, never as
    // readable, so it cannot fire otherwise.
    std::unique_ptr<QSocketNotifier> watchReader() {
        struct stat st;
        if (::fstat(STDOUT_FILENO, &st) != 0 || !S_ISFIFO(st.st_mode)) {
            return nullptr;
        }
        auto notifier = std::make_unique<QSocketNotifier>(STDOUT_FILENO, QSocketNotifier::Read);
        QSocketNotifier *raw = notifier.get();
        QObject::connect(raw, &QSocketNotifier::activated, raw, [raw] {
            struct pollfd out = {STDOUT_FILENO, 0, 0};
            if (::poll(&out, 1, 0) == 1 && (out.revents & (POLLERR | POLLHUP))) {
                QCoreApplication::exit(ExitSuccess);
            } else {
                raw->setEnabled(false);  // a pipe opened for reading too: rely on the writes
            }
        });
        return notifier;
    }

    const bool _json;
    InstanceModel _model;
    QString _only;                        // the directory of the instance named; empty for all
    QMap<QString, InstanceReport> _seen;  // by directory, as last printed
    std::optional<MetricsFile> _metrics;
    QByteArray _metricsText;  // as last written
    bool _started = false;    // the first look has been printed
    bool _ended = false;
    int _status = ExitSuccess;
};

}  // namespace

int runWatch(const CommandRequest &request, const QString &home) {
    return Watch(request, home).run(request.instance);
}
