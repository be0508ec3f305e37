#include "ControlBar.h"

#include "FileListView.h"
#include "engine/RemuxService.h"
#include "intake/Panels.h"
#include "model/FilePath.h"

#include <QHBoxLayout>
#include "Alert.h"

#include <QMessageBox>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {
constexpr int saveToMaxWidth = 220;

QPushButton* makeButton(const QString& name, const QString& label, QWidget* parent) {
    auto* button = new QPushButton(label, parent);
    button->setObjectName(name);
    button->setAutoDefault(false);
    return button;
}
} // namespace

ControlBar::ControlBar(RemuxService& service, FileListView& list, QWidget* parent)
    : QWidget(parent), service_(service), list_(list),
      import_(makeButton(u"import"_s, u"Import"_s, this)),
      saveTo_(makeButton(u"saveTo"_s, QString(), this)),
      remove_(makeButton(u"remove"_s, QString(), this)),
      start_(makeButton(u"start"_s, u"Start"_s, this)),
      cancel_(makeButton(u"cancel"_s, u"Cancel"_s, this)),
      retryFailed_(makeButton(u"retryFailed"_s, u"Retry Failed"_s, this)),
      clearCompleted_(makeButton(u"clearCompleted"_s, u"Clear Completed"_s, this)) {
    import_->setToolTip(u"Import video files or a folder"_s);
    start_->setToolTip(u"Start remuxing the queue"_s);
    // Start is no default button: a plain Return must not start a batch. Ctrl+Return
    // and Ctrl+Escape belong to the window's Start and Cancel All, which the Help
    // window shares.

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(12, 2, 12, 2);
    row->setSpacing(8);
    for (QPushButton* button : {import_, saveTo_, remove_}) {
        row->addWidget(button);
    }
    row->addStretch(1);
    for (QPushButton* button : {start_, cancel_, retryFailed_, clearCompleted_}) {
        row->addWidget(button);
    }

    connect(import_, &QPushButton::clicked, this, [this] {
        Panels::presentImportPanel(window(),
                                   [this](QStringList urls) { service_.addFiles(urls, 0); });
    });
    connect(saveTo_, &QPushButton::clicked, this, &ControlBar::toggleSaveTo);
    connect(remove_, &QPushButton::clicked, this, &ControlBar::removeSelection);
    connect(start_, &QPushButton::clicked, &service_, &RemuxService::startBatch);
    connect(cancel_, &QPushButton::clicked, &service_, &RemuxService::cancelAll);
    connect(retryFailed_, &QPushButton::clicked, &service_, &RemuxService::retryFailed);
    connect(clearCompleted_, &QPushButton::clicked, &service_, &RemuxService::clearCompleted);

    for (auto signal : {&RemuxService::itemsInserted, &RemuxService::itemsRemoved}) {
        connect(&service_, signal, this, &ControlBar::update);
    }
    connect(&service_, &RemuxService::itemChanged, this, &ControlBar::update);
    connect(&service_, &RemuxService::itemsReset, this, &ControlBar::update);
    connect(&service_, &RemuxService::isRemuxingChanged, this, &ControlBar::update);
    connect(&service_, &RemuxService::customOutputDirectoryChanged, this, &ControlBar::update);
    connect(list_.selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ControlBar::update);
    update();
}

QPushButton* ControlBar::button(const QString& objectName) const {
    return findChild<QPushButton*>(objectName);
}

void ControlBar::update() {
    const QList<RemuxItem>& items = service_.items();
    const auto any = [&items](ProcessingStatus a, ProcessingStatus b) {
        return std::any_of(items.begin(), items.end(),
                           [&](const RemuxItem& i) { return i.status == a || i.status == b; });
    };
    const bool remuxing = service_.isRemuxing();

    const std::optional<QString>& folder = service_.customOutputDirectory();
    const QString label =
        folder ? u"Save To: "_s + FilePath::lastPathComponent(*folder) : u"Save To…"_s;
    saveTo_->setText(saveTo_->fontMetrics().elidedText(label, Qt::ElideMiddle, saveToMaxWidth));
    saveTo_->setToolTip(folder ? u"Click to reset to source folder"_s
                               : u"Choose a folder for all converted files"_s);

    const qsizetype selected = list_.selectedIds().size();
    remove_->setVisible(selected > 0);
    remove_->setText(selected == 1 ? u"Remove"_s : u"Remove %1"_s.arg(selected));

    start_->setEnabled(!items.isEmpty() && !remuxing);
    cancel_->setVisible(remuxing);
    retryFailed_->setVisible(!remuxing && any(ProcessingStatus::failed, ProcessingStatus::failed));
    clearCompleted_->setEnabled(any(ProcessingStatus::completed, ProcessingStatus::skipped));
}

void ControlBar::toggleSaveTo() {
    // A button that shows a folder resets it; only the next click chooses another.
    if (service_.customOutputDirectory()) {
        service_.setCustomOutputDirectory(std::nullopt);
        return;
    }
    Panels::presentOutputFolderPanel(
        window(), [this](QString folder) { service_.setCustomOutputDirectory(folder); });
}

void ControlBar::removeSelection() {
    const QSet<QUuid> ids = list_.selectedIds();
    const bool anyProcessing = std::any_of(ids.begin(), ids.end(), [this](const QUuid& id) {
        const std::optional<RemuxItem> item = service_.item(id);
        return item && item->status == ProcessingStatus::processing;
    });
    // The ids the dialog was raised for, whatever happens to the selection meanwhile.
    const auto remove = [this, ids] {
        service_.removeItems(ids);
        list_.clearSelection();
    };
    if (ids.size() < 2 && !anyProcessing) {
        remove();
        return;
    }
    QMessageBox* confirm = Alert::create(
        this,
        ids.size() == 1 ? u"Remove this item?"_s
                        : u"Remove "_s + QString::number(ids.size()) + u" items?"_s,
        u"This stops any in-progress conversion for the selected items. Source files are not affected."_s);
    confirm->setObjectName(u"removeSelectionConfirmation"_s);
    confirm->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton* destroy = confirm->addButton(remove_->text(), QMessageBox::DestructiveRole);
    Alert::addCancel(confirm);
    connect(confirm, &QMessageBox::finished, this, [confirm, destroy, remove] {
        if (confirm->clickedButton() == destroy) {
            remove();
        }
    });
    confirm->open();
}
