#include "HelpWindow.h"

#include "HelpView.h"

#include <QVBoxLayout>

using namespace Qt::StringLiterals;

HelpWindow::HelpWindow(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName(u"help"_s);
    setWindowTitle(u"Morvane Help"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    resize(760, 720);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new HelpView(this));
}
