// The graph of a whole recording as a picture, for the headless front end:
// the same GraphWidget, drawn offscreen at a zoom that fits the recording,
// with a legend of the curves.
#pragma once

#include <QImage>
#include <QSize>

class SampleStore;
class SymbolDatabase;

QImage renderGraphPicture(SampleStore& store, SymbolDatabase& symbols, QSize size = QSize(1600, 800));
