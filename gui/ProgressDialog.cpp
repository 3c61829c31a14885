#include "gui/ProgressDialog.h"

#include "base/Bridge.h"

ProgressDialog::ProgressDialog(QWidget* parent) : QProgressDialog(parent)
{
    setWindowTitle(tr("Please wait"));
    setWindowModality(Qt::WindowModal);
    setAutoClose(false);
    setAutoReset(false);
    setMinimumDuration(0);
    setMinimumWidth(420);
    // A fresh QProgressDialog starts its own show timer; it is shown on start only.
    QProgressDialog::reset();
    hide();
}

int ProgressDialog::apply(int value, const QString& text, int flags, int limit)
{
    if (flags & kProgressStart) {
        QProgressDialog::reset();
        setLabelText(text);
        setRange(0, limit > 0 ? limit : 0);  // no limit: a busy indicator
        setValue(0);
        show();
    }
    if (flags & kProgressUpdate) {
        if (!text.isEmpty() && !(flags & kProgressStart))
            setLabelText(text);
        setValue(std::clamp(value, minimum(), std::max(minimum(), maximum())));
    }
    const bool cancelled = wasCanceled();
    if (flags & kProgressEnd) {
        QProgressDialog::reset();
        hide();
    }
    return cancelled ? -1 : 0;
}
