#pragma once

// The strip of buttons under the list: Import, Save To and Remove on the left;
// Start, Cancel, Retry Failed and Clear Completed on the right. Buttons show and
// enable themselves from the engine's state and the list's selection at once.

#include <QWidget>

class FileListView;
class QPushButton;
class RemuxService;

class ControlBar final : public QWidget {
    Q_OBJECT
public:
    ControlBar(RemuxService& service, FileListView& list, QWidget* parent = nullptr);

    QPushButton* button(const QString& objectName) const;
    // Remove as clicked: at once for one idle row, else after the confirmation.
    void removeSelection();

private:
    void update();
    void toggleSaveTo();

    RemuxService& service_;
    FileListView& list_;
    QPushButton* import_;
    QPushButton* saveTo_;
    QPushButton* remove_;
    QPushButton* start_;
    QPushButton* cancel_;
    QPushButton* retryFailed_;
    QPushButton* clearCompleted_;
};
