#pragma once

#include "Console.h"

#include <QWidget>
#include <QtCharts/QChartView>

class QLabel;

namespace QtCharts {
class QLineSeries;
class QValueAxis;
} // namespace QtCharts

/// The latest minute: the distance off the line, and the steering. The range of values is that of the latest part
/// of it, so that a turn at the end of the field does not flatten what comes after.
class Trends : public QWidget {
    Q_OBJECT

public:
    explicit Trends(const Console& shown);

    /// Takes up what came since, when it is to be seen.
    void advance();

    void apply_theme();

protected:
    void showEvent(QShowEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    struct Trend {
        QLabel* title;
        QLabel* latest;
        QtCharts::QChartView* view;
        QtCharts::QLineSeries* curve;
        QtCharts::QLineSeries* zero;
        QtCharts::QValueAxis* time;
        QtCharts::QValueAxis* value;
    };
    Trend add(const QString& name, const QString& title);
    static void set_range(const Trend& trend, double reach);
    void show_latest();

    const Console& console;
    Trend off;
    Trend steering;
};
