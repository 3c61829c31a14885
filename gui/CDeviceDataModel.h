// The device list as an item model, and the proxy that sorts and filters it
// for the device selection table.
#pragma once

#include "probe/DeviceList.h"

#include <QAbstractItemModel>
#include <QSortFilterProxyModel>

#include <vector>

class UtilFilterHeader;

class CDeviceDataModel : public QAbstractItemModel {
    Q_OBJECT

public:
    explicit CDeviceDataModel(QObject* parent = nullptr);

    void setDevices(std::vector<DeviceEntry> devices);
    // Empties the list inside a model reset.
    void Reset();
    const DeviceEntry* entry(int row) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    std::vector<DeviceEntry> m_devices;
};

class CDeviceDataProxyModel : public QSortFilterProxyModel {
    Q_OBJECT

public:
    explicit CDeviceDataProxyModel(QObject* parent = nullptr);
    // The header whose editors hold the column filters (not owned).
    void setFilterHeader(const UtilFilterHeader* header) { m_header = header; }

public slots:
    void OnColFilterChanged();

protected:
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

private:
    const UtilFilterHeader* m_header = nullptr;  // not owned
    std::vector<std::string> m_filters;
};
