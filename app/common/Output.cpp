#include "Output.h"

#include <QByteArray>

#include <unistd.h>

#include <cerrno>

void printText(FILE *stream, const QString &text) {
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

bool writeStandardOutput(const QByteArray &bytes) {
    if (std::fflush(stdout) != 0) {
        return false;
    }
    const char *data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, data, size_t(left));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        data += written;
        left -= written;
    }
    return true;
}

void printError(const QString &line) {
    QString text = line;
    text.replace(u'\n', QStringLiteral("\\n")).replace(u'\r', QStringLiteral("\\r"));
    printText(stderr, QStringLiteral("corvanta-monitor: %1\n").arg(text));
}
