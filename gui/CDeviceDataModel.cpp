#include "gui/CDeviceDataModel.h"

#include "base/Text.h"
#include "view/UtilFilterHeader.h"

namespace {
constexpr int kNumberRole = Qt::UserRole;  // 32: the numbers the columns sort by
constexpr const char* kUnspecified = "Unspecified";
}  // namespace

CDeviceDataModel::CDeviceDataModel(QObject* parent) : QAbstractItemModel(parent)
{
    setObjectName(QStringLiteral("DeviceDataModel"));
}

void CDeviceDataModel::setDevices(std::vector<DeviceEntry> devices)
{
    beginResetModel();
    m_devices = std::move(devices);
    endResetModel();
}

void CDeviceDataModel::Reset() { setDevices({}); }

const DeviceEntry* CDeviceDataModel::entry(int row) const
{
    return row >= 0 && row < rowCount() ? &m_devices[static_cast<std::size_t>(row)] : nullptr;
}

QModelIndex CDeviceDataModel::index(int row, int column, const QModelIndex& parent) const
{
    if (parent.isValid() || row < 0 || row >= rowCount() || column < 0 || column >= devicelist::kColumnCount)
        return {};
    return createIndex(row, column);
}

QModelIndex CDeviceDataModel::parent(const QModelIndex&) const { return {}; }

int CDeviceDataModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_devices.size());
}

int CDeviceDataModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : devicelist::kColumnCount;
}

QVariant CDeviceDataModel::data(const QModelIndex& index, int role) const
{
    const DeviceEntry* e = index.isValid() ? entry(index.row()) : nullptr;
    if (!e)
        return {};
    if (role == Qt::DisplayRole)
        return QString::fromStdString(devicelist::cellText(*e, index.column()));
    if (role == kNumberRole) {
        if (index.column() == devicelist::kColNumCores)
            return e->numCores;
        if (index.column() == devicelist::kColFlashSize)
            return e->flashSize;
    }
    return {};
}

QVariant CDeviceDataModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractItemModel::headerData(section, orientation, role);
    return QString::fromLatin1(devicelist::columnTitle(section));
}

// ---------------------------------------------------------------------------

CDeviceDataProxyModel::CDeviceDataProxyModel(QObject* parent) : QSortFilterProxyModel(parent) {}

void CDeviceDataProxyModel::OnColFilterChanged()
{
    std::vector<std::string> filters;
    if (m_header)
        for (int c = 0; c < m_header->columnCount(); ++c)
            filters.push_back(m_header->filterValue(c).toStdString());
    if (filters == m_filters)
        return;
    m_filters = std::move(filters);
    invalidateFilter();
}

bool CDeviceDataProxyModel::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const int column = left.column();
    if (column == devicelist::kColManufacturer) {
        const bool l = text::equalsFolded(left.data().toString().toStdString(), kUnspecified);
        const bool r = text::equalsFolded(right.data().toString().toStdString(), kUnspecified);
        if (l != r) {
            // The view reverses a descending sort itself; negating this rule
            // there keeps the generic cores on top in both orders.
            const bool descending = column == sortColumn() && sortOrder() == Qt::DescendingOrder;
            return descending ? r : l;
        }
    }
    if (column == devicelist::kColNumCores)
        return left.data(kNumberRole).toInt() < right.data(kNumberRole).toInt();
    if (column == devicelist::kColFlashSize)
        return left.data(kNumberRole).toUInt() < right.data(kNumberRole).toUInt();
    return text::compareFolded(left.data().toString().toStdString(), right.data().toString().toStdString()) < 0;
}

bool CDeviceDataProxyModel::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const
{
    for (std::size_t c = 0; c < m_filters.size(); ++c) {
        if (m_filters[c].empty())
            continue;
        const QModelIndex cell = sourceModel()->index(sourceRow, static_cast<int>(c), sourceParent);
        if (!devicelist::matches(cell.data().toString().toStdString(), m_filters[c]))
            return false;
    }
    return true;
}
