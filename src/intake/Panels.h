#pragma once

// The file dialogs and the file manager, for the window: the import panel, the
// output-folder panel and the reveal of a file. They know nothing of the queue;
// what the user chose goes to a callback. Everything opens without blocking, and
// callbacks come only on confirmation, on the main thread.

#include <QString>
#include <QStringList>

#include <functional>

class QFileDialog;
class QWidget;

namespace Panels {

// "Video files (*.avi *.m2ts …)": the accepted extensions, both cases.
QString importNameFilter();

// Lets the user pick files and folders together. Gives the open dialog, which
// deletes itself when closed.
QFileDialog* presentImportPanel(QWidget* parent, std::function<void(QStringList)> completion);
// Lets the user pick or create one folder.
QFileDialog* presentOutputFolderPanel(QWidget* parent, std::function<void(QString)> completion);

// Shows the file selected in the desktop's file manager (its FileManager1 D-Bus
// interface), or else opens the folder that holds it. When the file is gone or
// neither way works: a log line and a beep, nothing more.
void revealInFinder(const QString& url);

} // namespace Panels
