#include "Output.h"

#include <QByteArray>

void printText(FILE *stream, const QString &text) {
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

void printError(const QString &line) {
    QString text = line;
    text.replace(u'\n', QStringLiteral("\\n")).replace(u'\r', QStringLiteral("\\r"));
    printText(stderr, QStringLiteral("corvanta-monitor: %1\n").arg(text));
}
