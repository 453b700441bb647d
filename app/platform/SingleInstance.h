#pragma once

#include <QString>

class QLocalServer;

// One monitor per user session: the first process claims a per-user name;
// acquire() answers false in any later one while the first is alive.
class SingleInstance {
public:
    explicit SingleInstance(QString name = defaultName());
    ~SingleInstance();
    SingleInstance(const SingleInstance &) = delete;
    SingleInstance &operator=(const SingleInstance &) = delete;

    bool acquire();
    static QString defaultName();

private:
    QString _name;
    QLocalServer *_server = nullptr;
};
