// Lets GoogleTest print Qt's texts as texts.
#pragma once

#include <QString>

#include <ostream>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
