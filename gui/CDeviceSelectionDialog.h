// The dialog in which the user picks the target device from the probe
// library's device list: a sortable table with a filter under each column.
#pragma once

#include "probe/DeviceList.h"

#include <QDialog>
#include <QTableView>

#include <optional>

class CDeviceDataModel;
class CDeviceDataProxyModel;
class QPushButton;
class UtilFilterHeader;

class CTableView : public QTableView {
    Q_OBJECT

public:
    explicit CTableView(QWidget* parent = nullptr) : QTableView(parent) {}
};

class CDeviceSelectionDialog : public QDialog {
    Q_OBJECT

public:
    // Shows `devices`, with `current` (a device name) selected when listed.
    CDeviceSelectionDialog(std::vector<DeviceEntry> devices, const QString& current, QWidget* parent = nullptr);

    // Runs the dialog on the probe library's list; the chosen device, or
    // nothing when cancelled.
    static std::optional<DeviceEntry> choose(const QString& current, QWidget* parent);

    // The device of the current row.
    std::optional<DeviceEntry> selection() const;

    CTableView* table() const { return m_table; }
    UtilFilterHeader* filterHeader() const { return m_header; }
    CDeviceDataProxyModel* proxy() const { return m_proxy; }
    QPushButton* okButton() const { return m_ok; }
    QPushButton* cancelButton() const { return m_cancel; }

private slots:
    void OnTableSelectionChanged(const QModelIndex& current, const QModelIndex& previous);
    void OnTableCellActivated();

private:
    void select(const QString& name);

    CDeviceDataModel* m_model = nullptr;       // owned by the dialog
    CDeviceDataProxyModel* m_proxy = nullptr;  // owned by the dialog
    CTableView* m_table = nullptr;             // owned by the dialog
    UtilFilterHeader* m_header = nullptr;      // owned by the table
    QPushButton* m_ok = nullptr;               // owned by the dialog
    QPushButton* m_cancel = nullptr;           // owned by the dialog
};
