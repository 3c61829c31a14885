// Shows how far a long worker job (parsing a large ELF file) has come.
// Driven by the bridge's progress request: start, update, end.
#pragma once

#include <QProgressDialog>

class ProgressDialog : public QProgressDialog {
    Q_OBJECT

public:
    explicit ProgressDialog(QWidget* parent = nullptr);

    // Applies one request (flags of ProgressFlags); 0 to go on, -1 once the
    // user has cancelled.
    int apply(int value, const QString& text, int flags, int limit);
};
