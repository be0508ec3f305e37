#pragma once

// Alerts and confirmations. The title is the alert's main text and the message its
// informative text: desktops that draw a dialog attached to its window without a
// title bar never show a window title, and the title is what the user must read.

#include <QMessageBox>
#include <QPushButton>
#include <QString>

namespace Alert {

inline QMessageBox* create(QWidget* parent, const QString& title, const QString& message) {
    auto* alert = new QMessageBox(QMessageBox::Warning, QStringLiteral("Morvane"), title,
                                  QMessageBox::NoButton, parent);
    alert->setInformativeText(message);
    alert->setTextFormat(Qt::PlainText);
    return alert;
}

// The cancel button, which is the default too: Return or Escape never destroy.
inline QPushButton* addCancel(QMessageBox* alert) {
    QPushButton* cancel = alert->addButton(QMessageBox::Cancel);
    alert->setDefaultButton(cancel);
    alert->setEscapeButton(cancel);
    return cancel;
}

} // namespace Alert
