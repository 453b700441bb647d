#pragma once

#include <QString>
#include <QStringView>

// JSON text written straight into one string: the commands' output has a
// fixed shape, so the cost of a document tree (a sorted map per object) buys
// nothing. The caller keeps the structure valid; values are escaped here.
class JsonText {
public:
    JsonText &raw(QStringView text) {
        _text += text;
        return *this;
    }
    // A quoted string with '"', '\\' and the control characters escaped.
    JsonText &string(QStringView value);
    // `"key": ` followed by the value.
    JsonText &key(QStringView name);
    JsonText &number(qint64 value);
    JsonText &boolean(bool value);
    JsonText &null();

    // The text as UTF-8, as JSON requires whatever the locale.
    QByteArray toUtf8() const { return _text.toUtf8(); }

private:
    QString _text;
};
