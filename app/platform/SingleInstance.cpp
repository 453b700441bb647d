#include "SingleInstance.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>
#include <cstdio>

namespace {

// A monitor that is alive accepts at once; this only bounds a wedged one.
constexpr int ConnectTimeoutMs = 1000;
// Leaves room in sockaddr_un.sun_path (108 bytes) for the name.
constexpr qsizetype MaxSocketPath = 100;

bool ownerIsAlive(const QString &name) {
    QLocalSocket socket;
    socket.connectToServer(name);
    const bool connected = socket.waitForConnected(ConnectTimeoutMs);
    socket.abort();
    return connected;
}

}  // namespace

SingleInstance::SingleInstance(QString name) : _name(std::move(name)) {}

SingleInstance::~SingleInstance() {
    delete _server;
}

QString SingleInstance::defaultName() {
    const QString base = QStringLiteral("corvanta-monitor-%1").arg(::getuid());
    // The runtime directory is private to the user, so nobody else can
    // occupy the name there; the shared temporary directory is the fallback.
    const QString runtime = QFile::decodeName(qgetenv("XDG_RUNTIME_DIR"));
    if (runtime.startsWith(u'/') && QFileInfo(runtime).isDir()) {
        const QString path = QDir(runtime).filePath(base);
        if (path.size() < MaxSocketPath) {
            return path;
        }
    }
    return base;
}

bool SingleInstance::acquire() {
    if (_server) {
        return true;
    }
    if (ownerIsAlive(_name)) {
        return false;
    }
    auto *server = new QLocalServer;
    server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server->listen(_name) && server->serverError() == QAbstractSocket::AddressInUseError) {
        // Either a monitor that crashed left its socket behind, or another
        // one started in the meantime.
        if (ownerIsAlive(_name)) {
            delete server;
            return false;
        }
        QLocalServer::removeServer(_name);
        server->listen(_name);
    }
    if (!server->isListening()) {
        // Refusing to start over this would lock the user out; run without
        // the guarantee and say so.
        std::fprintf(stderr, "corvanta-monitor: cannot claim %s: %s\n", qPrintable(_name),
                     qPrintable(server->errorString()));
        delete server;
        return true;
    }
    // A later launch only probes; drop its connection.
    QObject::connect(server, &QLocalServer::newConnection, server, [server] {
        while (QLocalSocket *peer = server->nextPendingConnection()) {
            peer->abort();
            peer->deleteLater();
        }
    });
    _server = server;
    return true;
}
