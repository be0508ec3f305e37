#include "FilePath.h"

namespace FilePath {

namespace {
qsizetype extensionDot(const QString& name) {
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot <= 0 || dot == name.size() - 1) {
        return -1;
    }
    return dot;
}

QString withoutTrailingSlashes(const QString& path) {
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == u'/') {
        --end;
    }
    return path.left(end);
}
} // namespace

QString lastPathComponent(const QString& path) {
    const QString trimmed = withoutTrailingSlashes(path);
    if (trimmed == u"/") {
        return trimmed;
    }
    return trimmed.mid(trimmed.lastIndexOf(u'/') + 1);
}

QString pathExtension(const QString& path) {
    const QString name = lastPathComponent(path);
    const qsizetype dot = extensionDot(name);
    return dot < 0 ? QString() : name.mid(dot + 1);
}

QString deletingPathExtension(const QString& name) {
    const QString last = lastPathComponent(name);
    const qsizetype dot = extensionDot(last);
    return dot < 0 ? last : last.left(dot);
}

QString deletingLastPathComponent(const QString& path) {
    const QString trimmed = withoutTrailingSlashes(path);
    const qsizetype slash = trimmed.lastIndexOf(u'/');
    if (slash < 0) {
        return QString();
    }
    return slash == 0 ? QStringLiteral("/") : trimmed.left(slash);
}

QString appendingPathComponent(const QString& directory, const QString& component) {
    if (directory.endsWith(u'/')) {
        return directory + component;
    }
    return directory + u'/' + component;
}

} // namespace FilePath
