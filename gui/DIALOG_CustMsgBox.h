// The program's only message box. Beyond a stock box it can close itself
// after a time-out (counting the seconds down in its title), carry a check
// box, and copy itself as text on Ctrl+C.
#pragma once

#include "base/Bridge.h"
#include "base/TaggedAlloc.h"

#include <QDialog>
#include <QTimer>

class QCheckBox;
class QLabel;
class QPushButton;

class DIALOG_CustMsgBox : public QDialog {
    Q_OBJECT

public:
    static constexpr int kTickMs = 10;
    static constexpr std::size_t kWorkBufferSize = 32768;
    static constexpr int kCopyLimit = 2048;

    explicit DIALOG_CustMsgBox(const MessageBoxRequest& request, QWidget* parent = nullptr);
    ~DIALOG_CustMsgBox() override;

    // Shows the box modally and returns what the caller gets.
    static MessageBoxAnswer run(const MessageBoxRequest& request, QWidget* parent = nullptr);

    // The caller's answer: the dismissed value when dismissed, otherwise the
    // pressed button's index or the default result.
    MessageBoxAnswer answer() const;
    int result() const { return m_result; }
    bool dismissed() const { return m_dismissed; }
    int remainingMs() const { return m_remainingMs; }
    // The text Ctrl+C puts on the clipboard.
    QString copyText() const;

    QPushButton* button(int index) const { return index == 0 ? m_button0 : (index == 1 ? m_button1 : nullptr); }
    QCheckBox* checkBox() const { return m_checkBox; }
    QLabel* iconLabel() const { return m_iconLabel; }
    QLabel* textLabel() const { return m_textLabel; }

public slots:
    void reject() override;

private slots:
    void _SlotOnBtn0();
    void _SlotOnBtn1();
    void _SlotOnTimer();
    void _SlotOnCopy();

private:
    void finish();
    void applyTitle(const QString& title);

    MessageBoxRequest m_request;
    alloc::Block<char> m_work;  // the message text while the box is open
    QLabel* m_iconLabel = nullptr;   // owned by the dialog
    QLabel* m_textLabel = nullptr;   // owned by the dialog
    QCheckBox* m_checkBox = nullptr; // owned by the dialog
    QPushButton* m_button0 = nullptr;  // owned by the dialog
    QPushButton* m_button1 = nullptr;  // owned by the dialog
    QTimer m_timer;
    int m_baseWidth = 0;
    int m_remainingMs = 0;
    int m_result = 0;
    int m_checkState = 0;
    bool m_dismissed = false;
    bool m_finished = false;
};
