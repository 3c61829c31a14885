#include "view/GraphPicture.h"

#include "probe/SampleStore.h"
#include "symbols/SymbolDatabase.h"
#include "view/CurveColors.h"
#include "view/GraphWidget.h"
#include "view/Scale.h"

#include <QFontMetrics>
#include <QPainter>

QImage renderGraphPicture(SampleStore& store, SymbolDatabase& symbols, QSize size)
{
    curvecolors::assign(symbols.selected());
    GraphWidget graph(store, symbols);
    graph.resize(size);
    graph.setHeld(true);
    // The smallest zoom of the tool bar's list that shows the whole recording.
    const double newest = store.currentTimeStamp();
    const int divisions = std::max(graph.grid().divisionsX, 1);
    std::uint32_t perDivision = scale::kTimePerDivision.back();
    for (const std::uint32_t us : scale::kTimePerDivision)
        if (double(us) * divisions >= newest) {
            perDivision = us;
            break;
        }
    graph.setTimePerDivision(perDivision);
    graph.setStartTime(0);
    graph.setCursorX(graph.grid().gridRight());

    QImage image(size, QImage::Format_RGB32);
    QPainter p(&image);
    graph.paintFrame(p);

    // Legend: zoom, then each shown curve's name in its colour.
    QStringList names;
    std::vector<QColor> colours;
    for (const Node* n : symbols.selected()) {
        if (!n->symbol().ShowInGraph)
            continue;
        names << QString::fromStdString(n->NameWithParents) + "  " + scale::resolutionText(n->symbol().YResolution);
        colours.push_back(curvecolors::toQColor(n->symbol().GraphColor));
    }
    const QFontMetrics fm(p.font());
    const int line = fm.height();
    int width = fm.horizontalAdvance(scale::timePerDivisionText(perDivision));
    for (const QString& name : names)
        width = std::max(width, fm.horizontalAdvance(name));
    const QRect box(image.width() - width - 30, 10, width + 16, line * int(names.size() + 1) + 8);
    p.fillRect(box, QColor(0, 0, 0, 200));
    p.setPen(QColor(192, 192, 192));
    p.drawText(box.left() + 8, box.top() + 4 + fm.ascent(), scale::timePerDivisionText(perDivision));
    for (int i = 0; i < names.size(); ++i) {
        p.setPen(colours[std::size_t(i)]);
        p.drawText(box.left() + 8, box.top() + 4 + fm.ascent() + line * (i + 1), names[i]);
    }
    return image;
}
