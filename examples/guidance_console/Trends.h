#pragma once

#include "Console.h"

#include <QWidget>
#include <QtCharts/QChartView>

namespace QtCharts {
class QLineSeries;
class QValueAxis;
} // namespace QtCharts

/// The latest minute: the distance off the line, and the steering.
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

private:
    struct Trend {
        QtCharts::QChartView* view;
        QtCharts::QLineSeries* curve;
        QtCharts::QLineSeries* zero;
        QtCharts::QValueAxis* time;
        QtCharts::QValueAxis* value;
    };
    Trend add(const QString& name, const QString& title);
    static void set_range(Trend& trend, double reach);

    const Console& console;
    Trend off;
    Trend steering;
};
