#include "RemuxItem.h"

#include "FilePath.h"

#include <QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

QString RemuxItem::outputExtension() const {
    if (!cachedMediaInfo) {
        return u"mp4"_s;
    }
    const QString codec = cachedMediaInfo->videoCodec.toLower();
    return (codec == u"mjpeg" || codec == u"prores") ? u"mov"_s : u"mp4"_s;
}

QString RemuxItem::outputFilename() const {
    const QString base = FilePath::deletingPathExtension(FilePath::lastPathComponent(url));
    const QString extension = outputExtension();
    if (FilePath::pathExtension(url).toLower() != extension) {
        return base + u'.' + extension;
    }
    return base + u".morvane."_s + extension;
}

const QSet<QString>& RemuxItem::supportedExtensions() {
    static const QSet<QString> extensions{u"mkv"_s,  u"webm"_s, u"avi"_s, u"ts"_s,  u"mts"_s,
                                          u"m2ts"_s, u"mxf"_s,  u"mov"_s, u"mp4"_s, u"m4v"_s};
    return extensions;
}

const QString& RemuxItem::supportedFormatsLabel() {
    static const QString label = [] {
        QStringList names(supportedExtensions().begin(), supportedExtensions().end());
        std::sort(names.begin(), names.end());
        for (QString& name : names) {
            name = name.toUpper();
        }
        return names.join(u" \u00B7 "_s);
    }();
    return label;
}

BatchTally tally(const QList<RemuxItem>& items) {
    BatchTally counts;
    for (const RemuxItem& item : items) {
        counts.converted += item.status == ProcessingStatus::completed;
        counts.skipped += item.status == ProcessingStatus::skipped;
        counts.failed += item.status == ProcessingStatus::failed;
    }
    return counts;
}

QStringList BatchTally::parts() const {
    QStringList parts;
    if (converted >= 1) {
        parts.append(u"%1 converted"_s.arg(converted));
    }
    if (skipped >= 1) {
        parts.append(u"%1 skipped"_s.arg(skipped));
    }
    if (failed >= 1) {
        parts.append(u"%1 failed"_s.arg(failed));
    }
    return parts;
}
