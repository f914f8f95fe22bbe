// What the tests of widgets share.
#pragma once

#include "support/EventLoop.h"
#include "support/NamedCase.h"

#include <QTest>
#include <QTextDocumentFragment>
#include <QWidget>

#include <gtest/gtest.h>

/// A case of a table of texts.
struct NamedText : NamedCase {
    QString text;
};

/// What a person reads where a widget was given markup.
inline QString readText(const QString &markup)
{
    return QTextDocumentFragment::fromHtml(markup).toPlainText();
}

/// The child of that object name; a missing one ends the test run, because nothing can be tested without it.
template<typename Widget>
Widget &child(const QWidget &window, const char *name)
{
    auto *widget = window.findChild<Widget *>(QLatin1String(name));
    if (!widget) {
        qFatal("The window has no child named %s.", name);
    }
    return *widget;
}
