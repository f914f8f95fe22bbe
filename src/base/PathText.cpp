// Rules for paths as texts.
#include "base/PathText.h"

namespace {

constexpr QChar kSeparator = u'/';

QString withoutTrailingSeparators(const QString &path)
{
    qsizetype end = path.size();
    while (end > 0 && path.at(end - 1) == kSeparator) {
        --end;
    }
    return path.left(end);
}

QString withoutLeadingSeparators(const QString &component)
{
    qsizetype start = 0;
    while (start < component.size() && component.at(start) == kSeparator) {
        ++start;
    }
    return component.mid(start);
}

} // namespace

QString lastPathComponent(const QString &path)
{
    const QString trimmed = withoutTrailingSeparators(path);
    if (trimmed.isEmpty()) {
        // Nothing but separators is the root directory, whose name is its separator.
        return path.left(1);
    }
    return trimmed.mid(trimmed.lastIndexOf(kSeparator) + 1);
}

QStringList pathComponents(const QString &path)
{
    QStringList components = path.split(kSeparator, Qt::SkipEmptyParts);
    if (path.startsWith(kSeparator)) {
        components.prepend(kSeparator);
    }
    return components;
}

std::optional<QString> byAppendingPathComponent(const std::optional<QString> &path, const QString &component)
{
    if (!path) {
        return std::nullopt;
    }
    const QString name = withoutLeadingSeparators(component);
    if (name.isEmpty()) {
        return path;
    }
    if (path->isEmpty()) {
        // An empty path has no seam: the component alone is the answer, absolute or relative as it came.
        return component;
    }
    return withoutTrailingSeparators(*path) + kSeparator + name;
}
