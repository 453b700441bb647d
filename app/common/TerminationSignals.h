#pragma once

#include <QObject>

class QSocketNotifier;

// Ends the event loop on SIGTERM, SIGINT and SIGHUP as the tray's quit item
// does, so that a session ending, a service stopped or a Ctrl+C in a terminal
// still releases everything in order and the process exits with status 0.
// One object at a time.
class TerminationSignals : public QObject {
    Q_OBJECT

public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;  // back to the default dispositions

    // False when the pipe could not be made; the signals then keep their
    // default effect.
    bool isActive() const { return _notifier != nullptr; }

private:
    void drain();

    QSocketNotifier *_notifier = nullptr;
};
