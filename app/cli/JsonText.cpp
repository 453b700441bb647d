#include "JsonText.h"

namespace {

bool needsEscape(QChar c) {
    return c.unicode() < 0x20 || c == u'"' || c == u'\\';
}

}  // namespace

JsonText &JsonText::string(QStringView value) {
    _text += u'"';
    qsizetype plain = 0;  // start of the run not yet appended
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value[i];
        if (!needsEscape(c)) {
            continue;
        }
        _text += value.sliced(plain, i - plain);
        plain = i + 1;
        switch (c.unicode()) {
            case u'"':
                _text += u"\\\"";
                break;
            case u'\\':
                _text += u"\\\\";
                break;
            case u'\n':
                _text += u"\\n";
                break;
            case u'\r':
                _text += u"\\r";
                break;
            case u'\t':
                _text += u"\\t";
                break;
            default:
                _text += QStringLiteral("\\u%1").arg(uint(c.unicode()), 4, 16, QChar(u'0'));
                break;
        }
    }
    _text += value.sliced(plain);
    _text += u'"';
    return *this;
}

JsonText &JsonText::key(QStringView name) {
    string(name);
    _text += u": ";
    return *this;
}

JsonText &JsonText::number(qint64 value) {
    _text += QString::number(value);
    return *this;
}

JsonText &JsonText::boolean(bool value) {
    _text += value ? u"true" : u"false";
    return *this;
}

JsonText &JsonText::null() {
    _text += u"null";
    return *this;
}
