#include "gui/CDeviceSelectionDialog.h"

#include "base/Text.h"
#include "gui/CDeviceDataModel.h"
#include "view/UtilFilterHeader.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

CDeviceSelectionDialog::CDeviceSelectionDialog(std::vector<DeviceEntry> devices, const QString& current,
                                               QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(tr("Target Device Settings"));
    setWindowIcon(QIcon(QStringLiteral(":/Resources/Icons/plug-connect.png")));

    auto* frame = new QLabel(tr("Select the target device. Type into the fields under the column titles to "
                                "narrow the list; right-click the titles to show or hide columns."),
                             this);
    frame->setWordWrap(true);
    frame->setFrameShape(QFrame::StyledPanel);
    frame->setMargin(6);

    m_model = new CDeviceDataModel(this);
    m_model->setDevices(std::move(devices));
    m_proxy = new CDeviceDataProxyModel(this);
    m_proxy->setSourceModel(m_model);

    m_table = new CTableView(this);
    m_header = new UtilFilterHeader(devicelist::kColumnCount, m_table);
    m_header->setLiveFiltering(true);
    m_table->setHorizontalHeader(m_header);
    m_proxy->setFilterHeader(m_header);
    connect(m_header, &UtilFilterHeader::SignalFilterChanged, m_proxy, &CDeviceDataProxyModel::OnColFilterChanged);
    m_table->setModel(m_proxy);
    m_table->setSortingEnabled(true);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->verticalHeader()->hide();
    m_header->setSectionsMovable(true);
    m_header->setSectionsClickable(true);
    m_header->setSortIndicatorShown(true);
    m_header->setStretchLastSection(true);
    m_table->sortByColumn(devicelist::kColManufacturer, Qt::AscendingOrder);
    m_table->resizeColumnsToContents();
    m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 6);
    connect(m_table->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &CDeviceSelectionDialog::OnTableSelectionChanged);
    connect(m_table, &QAbstractItemView::activated, this, &CDeviceSelectionDialog::OnTableCellActivated);
    connect(m_table, &QAbstractItemView::doubleClicked, this, &CDeviceSelectionDialog::OnTableCellActivated);

    m_ok = new QPushButton(tr("OK"), this);
    m_cancel = new QPushButton(tr("Cancel"), this);
    // Enter in a filter must not close the dialog.
    for (QPushButton* b : {m_ok, m_cancel}) {
        b->setDefault(false);
        b->setAutoDefault(false);
    }
    connect(m_ok, &QPushButton::clicked, this, &QDialog::accept);
    connect(m_cancel, &QPushButton::clicked, this, &QDialog::reject);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_ok);
    buttons->addWidget(m_cancel);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(frame);
    layout->addWidget(m_table, 1);
    layout->addLayout(buttons);

    setTabOrder(m_header->editor(0), m_header->editor(1));
    for (int c = 1; c + 1 < devicelist::kColumnCount; ++c)
        setTabOrder(m_header->editor(c), m_header->editor(c + 1));
    setTabOrder(m_header->editor(devicelist::kColumnCount - 1), m_table);
    setTabOrder(m_table, m_ok);
    setTabOrder(m_ok, m_cancel);

    resize(760, 520);
    select(current);
    m_ok->setEnabled(m_table->currentIndex().isValid());
}

void CDeviceSelectionDialog::select(const QString& name)
{
    if (name.isEmpty())
        return;
    for (int row = 0; row < m_proxy->rowCount(); ++row) {
        const QModelIndex cell = m_proxy->index(row, devicelist::kColDevice);
        if (text::equalsFolded(cell.data().toString().toStdString(), name.toStdString())) {
            m_table->setCurrentIndex(cell);
            m_table->scrollTo(cell, QAbstractItemView::PositionAtCenter);
            return;
        }
    }
}

std::optional<DeviceEntry> CDeviceSelectionDialog::selection() const
{
    const QModelIndex current = m_table->currentIndex();
    if (!current.isValid())
        return std::nullopt;
    const DeviceEntry* e = m_model->entry(m_proxy->mapToSource(current).row());
    return e ? std::optional<DeviceEntry>(*e) : std::nullopt;
}

void CDeviceSelectionDialog::OnTableSelectionChanged(const QModelIndex& current, const QModelIndex&)
{
    m_ok->setEnabled(current.isValid());
}

void CDeviceSelectionDialog::OnTableCellActivated()
{
    if (m_table->currentIndex().isValid())
        accept();
}

std::optional<DeviceEntry> CDeviceSelectionDialog::choose(const QString& current, QWidget* parent)
{
    CDeviceSelectionDialog dialog(devicelist::load(), current, parent);
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return dialog.selection();
}
