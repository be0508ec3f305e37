#include "HelpWindow.h"

#include <QScrollArea>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

HelpWindow::HelpWindow(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName(u"help"_s);
    setWindowTitle(u"Morvane Help"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    resize(760, 720);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setWidget(new QWidget(scroll));
    layout->addWidget(scroll);
}
