#include "SystemLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>

namespace {

SystemLogSink &sink() {
    static SystemLogSink instance;
    return instance;
}

// One line stays one line: a line feed becomes the two characters "\n", a
// carriage return "\r", any other control character (and the Unicode line
// and paragraph separators) "\xHH" or "\uHHHH". Backslashes are kept as they
// are, so the escape is readable rather than reversible.
QString escaped(const QString &line) {
    QString out;
    out.reserve(line.size());
    for (const QChar c : line) {
        const char16_t u = c.unicode();
        if (u == u'\n') {
            out += QStringLiteral("\\n");
        } else if (u == u'\r') {
            out += QStringLiteral("\\r");
        } else if (u == u'\t') {
            out += c;
        } else if (u < 0x20 || u == 0x7f || (u >= 0x80 && u < 0xa0)) {
            out += QStringLiteral("\\x%1").arg(int(u), 2, 16, QLatin1Char('0'));
        } else if (u == 0x2028 || u == 0x2029) {
            out += QStringLiteral("\\u%1").arg(int(u), 4, 16, QLatin1Char('0'));
        } else {
            out += c;
        }
    }
    return out;
}

void writeAll(int fd, const QByteArray &bytes) {
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;  // nowhere else to report a failing standard error
        }
        done += n;
    }
}

}  // namespace

void systemLog(const QString &line) {
    const QString text = escaped(line);
    if (sink()) {
        sink()(text);
        return;
    }
    static const bool opened = [] {
        // No LOG_NDELAY: the socket opens with the first message. glibc
        // creates it with SOCK_CLOEXEC, so launched servers never inherit it.
        ::openlog("corvanta-monitor", 0, LOG_USER);
        return true;
    }();
    (void)opened;
    const QByteArray utf8 = text.toUtf8();
    ::syslog(LOG_NOTICE, "%s", utf8.constData());
    writeAll(STDERR_FILENO, "corvanta-monitor: " + utf8 + '\n');
}

void setSystemLogSink(SystemLogSink newSink) {
    sink() = std::move(newSink);
}
