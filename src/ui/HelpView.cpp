#include "HelpView.h"

#include "Legibility.h"
#include "model/RemuxItem.h"
#include "tools/ChildProcess.h"

#include <QFileInfo>
#include <QFontDatabase>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QProcess>
#include <QStyle>
#include <QTextDocument>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

QLabel* label(const QString& text, Qt::TextFormat format, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setTextFormat(format);
    label->setText(text);
    label->setWordWrap(true);
    label->setOpenExternalLinks(true);
    label->setTextInteractionFlags(Qt::TextBrowserInteraction);
    label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    return label;
}

void scaleFont(QWidget* widget, double scale, QFont::Weight weight = QFont::Normal) {
    QFont font = widget->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setWeight(weight);
    widget->setFont(font);
}

void secondary(QWidget* widget) {
    QPalette palette = widget->palette();
    QColor colour = palette.color(QPalette::WindowText);
    colour.setAlphaF(0.7f);
    palette.setColor(QPalette::WindowText, colour);
    widget->setPalette(palette);
}

struct Section {
    const char16_t* title;
    const char16_t* icon;
    QStyle::StandardPixmap fallback;
};

} // namespace

HelpView::HelpView(QWidget* parent) : QScrollArea(parent) {
    setWidgetResizable(true);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setMinimumSize(560, 500);
    setFrameShape(QFrame::NoFrame);

    auto* canvas = new QWidget(this);
    auto* centring = new QHBoxLayout(canvas);
    centring->setContentsMargins(0, 0, 0, 0);
    auto* column = new QWidget(canvas);
    column->setMaximumWidth(720);
    centring->addStretch(1);
    centring->addWidget(column, 100);
    centring->addStretch(1);

    auto* stack = new QVBoxLayout(column);
    stack->setContentsMargins(32, 32, 32, 32);
    stack->setSpacing(28);

    auto* header = new QVBoxLayout;
    header->setSpacing(6);
    QLabel* name = label(u"Morvane"_s, Qt::PlainText, column);
    scaleFont(name, 2.2, QFont::Bold);
    QLabel* tagline =
        label(u"Remux video files into QuickTime-compatible MP4s — fast and lossless."_s,
              Qt::PlainText, column);
    scaleFont(tagline, 1.25);
    secondary(tagline);
    header->addWidget(name);
    header->addWidget(tagline);
    stack->addLayout(header);

    const auto section = [&](const Section& s) {
        auto* box = new QVBoxLayout;
        box->setSpacing(10);
        auto* titleRow = new QHBoxLayout;
        titleRow->setSpacing(8);
        auto* icon = new QLabel(column);
        icon->setPixmap(Legibility::visiblePixmap(
            QIcon::fromTheme(QString::fromUtf16(s.icon), style()->standardIcon(s.fallback)),
            QSize(20, 20), devicePixelRatioF(), palette().color(QPalette::Window),
            palette().color(QPalette::WindowText)));
        QLabel* title = label(QString::fromUtf16(s.title), Qt::PlainText, column);
        scaleFont(title, 1.25, QFont::DemiBold);
        titleRow->addWidget(icon);
        titleRow->addWidget(title, 1);
        box->addLayout(titleRow);
        auto* body = new QVBoxLayout;
        body->setSpacing(8);
        box->addLayout(body);
        stack->addLayout(box);
        return body;
    };
    const auto paragraph = [&](QVBoxLayout* body, const QString& markdown) {
        QLabel* text = label(markdown, Qt::MarkdownText, column);
        secondary(text);
        body->addWidget(text);
        return text;
    };
    // Rows of a number or a key in a fixed column beside wrapping text.
    const auto table = [&](QVBoxLayout* body, const QList<std::pair<QString, QString>>& rows,
                           int keyWidth, int gap, int spacing, bool monospace,
                           Qt::TextFormat format) {
        auto* grid = new QGridLayout;
        grid->setHorizontalSpacing(gap);
        grid->setVerticalSpacing(spacing);
        grid->setColumnMinimumWidth(0, keyWidth);
        grid->setColumnStretch(1, 1);
        for (int row = 0; row < rows.size(); ++row) {
            QLabel* key = label(rows[row].first, Qt::PlainText, column);
            if (monospace) {
                key->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
            }
            scaleFont(key, 0.95, QFont::DemiBold);
            key->setFixedWidth(keyWidth);
            QLabel* text = label(rows[row].second, format, column);
            secondary(text);
            grid->addWidget(key, row, 0, Qt::AlignTop);
            grid->addWidget(text, row, 1, Qt::AlignTop);
        }
        body->addLayout(grid);
    };

    QVBoxLayout* body =
        section({u"What Morvane Does", u"help-about", QStyle::SP_MessageBoxInformation});
    paragraph(
        body,
        u"Morvane **remuxes** video files into MP4s that play in QuickTime, Photos, Final Cut, and other Apple apps. *Remuxing* means changing the file's container — the outer format that holds the video and audio streams — without re-encoding the streams themselves. The video and audio are copied across exactly as they were in the original."_s);
    paragraph(
        body,
        u"Because nothing is re-encoded, conversion finishes in seconds rather than hours, and the picture and sound are bit-for-bit identical to the source. The new file is also roughly the same size as the original."_s);

    body = section({u"Supported Files", u"text-x-generic", QStyle::SP_FileIcon});
    paragraph(body, u"Morvane accepts files with any of these container extensions:"_s);
    QLabel* formats = label(RemuxItem::supportedFormatsLabel(), Qt::PlainText, column);
    formats->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    formats->setContentsMargins(0, 2, 0, 2);
    body->addWidget(formats);
    paragraph(
        body,
        u"The extension is only half the story. Inside any video file, the picture data is stored in one of many possible **video codecs** (the format the video is encoded in). QuickTime only plays a handful of codecs, so Morvane can only remux files whose contents match. An AVI containing H.264 video will work; the same AVI containing an older codec like DivX or Xvid will not."_s);
    // The AV1 hardware sentence is left out: on Linux every AV1 file is accepted.
    paragraph(
        body,
        u"Compatible video codecs: **H.264**, **HEVC**, **ProRes**, **MJPEG**, and **AV1** (the newer codec used by YouTube and Netflix). You don't need to know which codec your file uses ahead of time — drop it in and Morvane will tell you if it can't convert one. The rest of your batch keeps running either way."_s);
    paragraph(body,
              u"Drop a folder to add every supported file inside it, including subfolders."_s);

    body = section({u"How Video Is Handled", u"video-x-generic", QStyle::SP_MediaPlay});
    paragraph(
        body,
        u"The video stream is copied bit-for-bit into the new MP4 — no re-encoding, no quality loss. Even very large files typically finish in seconds because Morvane is rewriting the container, not rebuilding the picture."_s);
    paragraph(
        body,
        u"HEVC files (the codec iPhones use for modern recordings) are automatically tagged with the `hvc1` marker that QuickTime requires. The one common case Morvane can't handle is **10-bit H.264** (sometimes labeled Hi10P), which QuickTime itself doesn't support — those files are rejected with a clear message."_s);

    body = section({u"How Audio Is Handled", u"audio-x-generic", QStyle::SP_MediaVolume});
    paragraph(
        body,
        u"Audio is copied across untouched whenever it's already in a QuickTime-compatible codec: **AAC**, **MP3**, **Apple Lossless**, **AC3**, or **EAC3** (the latter two are the Dolby Digital surround formats found on most movies)."_s);
    paragraph(
        body,
        u"Less common audio codecs — DTS, FLAC, Vorbis, Opus, TrueHD, and so on — aren't playable by QuickTime, so Morvane **transcodes** (re-encodes) them to AAC stereo at 192 kbps. **This audio transcode is the only re-encoding Morvane ever performs**; everything else, video included, is a bit-for-bit copy."_s);

    body = section({u"How Subtitles Are Handled", u"media-view-subtitles-symbolic",
                    QStyle::SP_FileDialogDetailedView});
    paragraph(body, u"Subtitles come in two kinds, and Morvane handles each differently."_s);
    paragraph(
        body,
        u"**Text subtitles** (SubRip, SSA/ASS, mov_text, WebVTT) are stored as words plus timing data — the .srt files you'll find on subtitle download sites are this kind. Morvane embeds them inside the new MP4 as `mov_text` tracks AND extracts each one as a side-by-side .srt file you can edit or use elsewhere."_s);
    paragraph(
        body,
        u"**Bitmap subtitles** (PGS from Blu-rays, VobSub from DVDs) store each subtitle as a small image rather than text. They can't be converted to text without OCR, which Morvane doesn't do, so they're skipped. The video and audio still convert normally — only the bitmap subtitle tracks are dropped from the output."_s);

    body = section({u"Skipped Files", u"security-high", QStyle::SP_DialogApplyButton});
    paragraph(body, u"A file marked **Skipped** is not an error. It means one of two things:"_s);
    table(
        body,
        {{u"•"_s,
          u"The file is already fully QuickTime-compatible (right container, right codecs, right HEVC tag). Remuxing it would produce a bit-for-bit copy of the original, so Morvane doesn't bother."_s},
         {u"•"_s,
          u"A converted file with the same name already exists at the destination. Morvane will not overwrite existing files."_s}},
        8, 8, 4, false, Qt::PlainText);
    paragraph(
        body,
        u"If you're not sure whether a file needs converting, drop it in — Morvane will tell you."_s);

    body = section({u"Output Location", u"folder", QStyle::SP_DirIcon});
    paragraph(
        body,
        u"By default, the converted file is saved next to the original — same folder, same base name. Drop in `Vacation.mkv` from your Movies folder and you'll find `Vacation.mp4` in the same folder when it finishes. MJPEG footage is written as `.mov` instead, since that's QuickTime's native MJPEG container. The original is left untouched."_s);
    paragraph(
        body,
        u"To collect all the converted files in one place, click **Save To…** in the toolbar and choose a folder. Every conversion will go there until you click Save To… again."_s);
    paragraph(
        body,
        u"If a file with the same name already exists at the destination, Morvane skips that conversion rather than overwriting it."_s);

    body = section({u"How to Use", u"input-mouse", QStyle::SP_ArrowRight});
    table(
        body,
        {{u"1"_s,
          u"Drag video files (or whole folders) onto the Morvane window. You can also click **Import** in the toolbar or press Ctrl+O. Folders are scanned recursively for supported files."_s},
         {u"2"_s,
          u"*(Optional)* Click **Save To…** to send every converted file to a single folder."_s},
         {u"3"_s,
          u"Click **Start** (or press Ctrl+Return). Morvane remuxes up to two files in parallel and shows live progress for each."_s},
         {u"4"_s, u"Right-click any item to cancel, retry, or reveal it in the file manager."_s},
         {u"5"_s,
          u"When the batch finishes, you'll get a notification. Use **Retry Failed** in the toolbar to reprocess any items that errored out."_s}},
        18, 10, 6, false, Qt::MarkdownText);

    body = section({u"Keyboard Shortcuts", u"input-keyboard", QStyle::SP_ComputerIcon});
    table(body,
          {{u"Ctrl+O"_s, u"Import files or folders"_s},
           {u"Ctrl+Return"_s, u"Start remuxing"_s},
           {u"Ctrl+R"_s, u"Start remuxing (from menu)"_s},
           {u"Ctrl+Esc or Ctrl+."_s, u"Cancel everything currently running"_s},
           {u"Ctrl+K"_s, u"Clear completed items from the list"_s},
           {u"Ctrl+? or F1"_s, u"Show this help window"_s}},
          150, 16, 4, true, Qt::PlainText);

    body = section({u"Privacy", u"system-lock-screen", QStyle::SP_DialogYesButton});
    paragraph(
        body,
        u"Morvane runs entirely on your computer. It does not make network connections, collect telemetry, report analytics, or send any information about you or your files anywhere. The app has nothing to phone home to."_s);
    paragraph(
        body,
        u"The only files Morvane touches are the ones you drop on it and the MP4s and .srt sidecars it writes next to them (or into the folder you chose with **Save To…**). It does not read or catalog the rest of your disk."_s);

    body = section({u"Support", u"mail-message", QStyle::SP_DialogHelpButton});
    const QString site = QStringLiteral(MORVANE_HOMEPAGE);
    const QString email = QStringLiteral(MORVANE_SUPPORT_EMAIL);
    paragraph(
        body,
        u"Morvane is distributed from [%1](%2). For bug reports or questions, email [%3](mailto:%3)."_s
            .arg(QUrl(site).host(), site, email));

    body = section({u"Credits", u"text-x-generic-template", QStyle::SP_FileDialogInfoView});
    credits_ = paragraph(body, creditsText(std::nullopt));
    license_ = paragraph(body, QString());
    stack->addStretch(1);
    setWidget(canvas);
    readFFmpegBuild();
}

QString HelpView::creditsText(const std::optional<FFmpegService::FFmpegBuild>& build) {
    return u"Morvane uses **FFmpeg"_s + (build ? u' ' + build->version : QString()) +
           u"** to do the actual remux work. FFmpeg is free, open-source software maintained by the FFmpeg project."_s;
}

HelpView::~HelpView() {
    // The child's end must not reach labels that are already gone.
    if (versionQuery_) {
        versionQuery_->disconnect(this);
        delete versionQuery_;
    }
}

// The FFmpeg that runs may be the system's, which an update changes under a running
// build: its own answer to -version, asked as the view is made, is what the credits
// name.
void HelpView::readFFmpegBuild() {
    const QString unknown = u"Morvane could not read which FFmpeg it runs."_s;
    const QString tool = FFmpegService::ffmpegPath();
    if (tool.isEmpty() || !QFileInfo::exists(tool)) {
        license_->setText(u"Morvane could not find its FFmpeg."_s);
        return;
    }
    versionQuery_ = new QProcess(this);
    ChildProcess::describe(*versionQuery_, tool, {u"-hide_banner"_s, u"-version"_s});
    connect(versionQuery_, &QProcess::errorOccurred, this, [this, unknown](QProcess::ProcessError) {
        if (license_->text().isEmpty()) {
            license_->setText(unknown);
        }
    });
    connect(versionQuery_, &QProcess::finished, this, [this, unknown] {
        const std::optional<FFmpegService::FFmpegBuild> build = FFmpegService::parseVersionOutput(
            QString::fromUtf8(versionQuery_->readAllStandardOutput()));
        if (!build) {
            license_->setText(unknown);
            return;
        }
        credits_->setText(creditsText(build));
        license_->setText(u"The FFmpeg that Morvane runs is built under the **"_s + build->license +
                          u"** license."_s);
    });
    versionQuery_->start();
}

QStringList HelpView::texts() const {
    QStringList all;
    for (const QLabel* text : widget()->findChildren<QLabel*>()) {
        if (!text->text().isEmpty()) {
            QTextDocument document;
            document.setMarkdown(text->text());
            all.append(text->textFormat() == Qt::MarkdownText ? document.toPlainText().trimmed()
                                                              : text->text());
        }
    }
    return all;
}
