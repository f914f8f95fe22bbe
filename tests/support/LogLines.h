// What is logged while a test looks.
#pragma once

#include <QLoggingCategory>
#include <QString>
#include <QStringList>

/// Keeps what is logged as long as it lives, one text for each message, with its category before it.
class LogLines
{
public:
    /// The rules are those of QT_LOGGING_RULES.
    explicit LogLines(const QString &rules)
    {
        all().clear();
        QLoggingCategory::setFilterRules(rules);
        before = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &context, const QString &text) {
            all() << QString::fromLatin1(context.category) + QStringLiteral(": ") + text;
        });
    }
    LogLines(const LogLines &) = delete;
    LogLines &operator=(const LogLines &) = delete;
    ~LogLines()
    {
        qInstallMessageHandler(before);
        QLoggingCategory::setFilterRules({});
    }

    static QStringList &all()
    {
        static QStringList kept;
        return kept;
    }

    static QString text() { return all().join(u'\n'); }

private:
    QtMessageHandler before;
};
