#include "Panels.h"

#include "model/FilePath.h"
#include "model/RemuxItem.h"

#include <QAbstractItemView>
#include <QAbstractProxyModel>
#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileDialog>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QLoggingCategory>
#include <QUrl>

#include <algorithm>

Q_LOGGING_CATEGORY(lcPanels, "com.morvane.Panels")

using namespace Qt::StringLiterals;

namespace {

// A file dialog whose confirming button takes the selected folders as well as the
// selected files, in the order they stand in the view, so that one panel imports
// both. Qt's own dialog would step into a selected folder instead.
class FilesAndFoldersDialog final : public QFileDialog {
public:
    using QFileDialog::QFileDialog;
    QStringList chosen;

    void accept() override {
        chosen.clear();
        const auto* view = findChild<QAbstractItemView*>(u"listView"_s);
        const auto* model = findChild<QFileSystemModel*>();
        if (view && model && view->selectionModel()) {
            QModelIndexList rows = view->selectionModel()->selectedRows();
            std::sort(rows.begin(), rows.end(),
                      [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
            for (const QModelIndex& row : rows) {
                // The view shows the dialog's proxy of the file system model.
                const QModelIndex source = mapToSource(row);
                chosen.append(model->filePath(source.isValid() ? source : row));
            }
        }
        if (chosen.isEmpty()) {
            QFileDialog::accept(); // a typed name, handled as Qt does
            chosen = selectedFiles();
            return;
        }
        done(QDialog::Accepted);
    }

private:
    QModelIndex mapToSource(const QModelIndex& index) const {
        const auto* proxy = qobject_cast<const QAbstractProxyModel*>(index.model());
        return proxy ? proxy->mapToSource(index) : QModelIndex();
    }
};

} // namespace

namespace Panels {

QString importNameFilter() {
    QStringList extensions(RemuxItem::supportedExtensions().begin(),
                           RemuxItem::supportedExtensions().end());
    std::sort(extensions.begin(), extensions.end());
    QStringList patterns;
    for (const QString& extension : extensions) {
        // Name filters match case-sensitively here; files named CLIP.MKV count too.
        patterns << u"*."_s + extension << u"*."_s + extension.toUpper();
    }
    return u"Video files ("_s + patterns.join(u' ') + u')';
}

QFileDialog* presentImportPanel(QWidget* parent, std::function<void(QStringList)> completion) {
    auto* dialog = new FilesAndFoldersDialog(parent, u"Choose video files or folders to remux"_s);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilter(importNameFilter());
    dialog->setLabelText(QFileDialog::Accept, u"Add"_s);
    // Qt's dialog names its button "Open" while a folder is selected, as if pressing
    // it stepped into the folder; here it adds the folder, so the name stays. Queued,
    // to come after the dialog's own update of the button.
    const auto keepLabel = [dialog] { dialog->setLabelText(QFileDialog::Accept, u"Add"_s); };
    if (const auto* view = dialog->findChild<QAbstractItemView*>(u"listView"_s)) {
        QObject::connect(view->selectionModel(), &QItemSelectionModel::selectionChanged, dialog,
                         keepLabel, Qt::QueuedConnection);
    }
    if (const auto* name = dialog->findChild<QLineEdit*>(u"fileNameEdit"_s)) {
        QObject::connect(name, &QLineEdit::textChanged, dialog, keepLabel, Qt::QueuedConnection);
    }
    QObject::connect(dialog, &QDialog::accepted, dialog,
                     [dialog, completion = std::move(completion)] { completion(dialog->chosen); });
    dialog->open();
    return dialog;
}

QFileDialog* presentOutputFolderPanel(QWidget* parent, std::function<void(QString)> completion) {
    auto* dialog = new QFileDialog(parent, u"Choose output directory for converted files"_s);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setLabelText(QFileDialog::Accept, u"Select"_s);
    QObject::connect(dialog, &QDialog::accepted, dialog,
                     [dialog, completion = std::move(completion)] {
                         const QStringList chosen = dialog->selectedFiles();
                         if (!chosen.isEmpty() && !chosen.first().isEmpty()) {
                             completion(chosen.first());
                         }
                     });
    dialog->open();
    return dialog;
}

void revealInFinder(const QString& url) {
    const auto failed = [url] {
        qCCritical(lcPanels, "Failed to reveal in Finder: %s",
                   qUtf8Printable(FilePath::lastPathComponent(url)));
        QApplication::beep();
    };
    if (!QFileInfo::exists(url)) {
        failed();
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
        u"org.freedesktop.FileManager1"_s, u"ShowItems"_s);
    call << QStringList{QUrl::fromLocalFile(url).toString()} << QString();
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher, url, failed] {
        watcher->deleteLater();
        if (!watcher->isError()) {
            return;
        }
        // No file manager offers the interface: open the folder.
        const QString folder = FilePath::deletingLastPathComponent(url);
        if (!QDesktopServices::openUrl(QUrl::fromLocalFile(folder))) {
            failed();
        }
    });
}

} // namespace Panels
