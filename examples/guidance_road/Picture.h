#pragma once

#include "Report.h"

#include <QImage>

/// Draws a drive: the way over its line in plan, and the distance off the line and the steering over time.
///
/// What counts for the figures is drawn over the rest in another colour. Needs a QApplication.
QImage draw_picture(const Drive& drive, const Figures& figures);
