// The commands' hand-written JSON against Qt's own parser.
#include "app/cli/JsonText.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

TEST(JsonText, StringsSurviveAParser) {
    const QString values[] = {
        u""_s,
        u"plain"_s,
        u"quote \" and backslash \\ and slash /"_s,
        u"line\nbreak\r\ttab"_s,
        QString(u"nul \0 bell \a escape \x1b unit \x1f"_s),
        u"Grüße, 数据库, 🗄"_s,
        u"\\\"\\\""_s,
        u"\x7f delete is no control character for JSON"_s,
    };
    for (const QString &value : values) {
        SCOPED_TRACE(value.toStdString());
        JsonText json;
        json.raw(u"[").string(value).raw(u", ").number(-42).raw(u", ").boolean(true);
        json.raw(u", ").null().raw(u", {").key(value).boolean(false).raw(u"}]");
        QJsonParseError error;
        const QJsonArray parsed = QJsonDocument::fromJson(json.toUtf8(), &error).array();
        ASSERT_EQ(error.error, QJsonParseError::NoError) << json.toUtf8().toStdString();
        EXPECT_EQ(parsed,
                  (QJsonArray{value, -42, true, QJsonValue::Null, QJsonObject{{value, false}}}));
        // Nothing below U+0020 reaches the text unescaped.
        for (const char byte : json.toUtf8()) {
            EXPECT_GE(static_cast<unsigned char>(byte), 0x20);
        }
    }
}

}  // namespace
