#include "Trends.h"

#include "Theme.h"

#include <QGraphicsLayout>
#include <QVBoxLayout>
#include <QtCharts/QChart>
#include <QtCharts/QLegend>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>

#include <algorithm>
#include <cmath>

QT_CHARTS_USE_NAMESPACE

namespace {

// Ranges the value axis steps through, so that it does not creep with every epoch.
constexpr std::array<double, 8> OFF_REACHES = {0.05, 0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0};
constexpr std::array<double, 4> STEERING_REACHES = {5.0, 10.0, 20.0, 40.0};

template <std::size_t N>
double reach_for(const std::array<double, N>& reaches, double largest)
{
    const auto found = std::lower_bound(reaches.begin(), reaches.end(), largest);
    return found == reaches.end() ? reaches.back() : *found;
}

QString label_format(double reach)
{
    return reach < 0.2 ? "%.2f" : reach < 2.0 ? "%.1f" : "%.0f";
}

} // namespace

Trends::Trends(const Console& shown) : console(shown)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 6, 4, 4);
    column->setSpacing(0);
    off = add("off_line", "Off the line, m");
    steering = add("steering", "Steering, degrees");
    column->addWidget(off.view);
    column->addWidget(steering.view);
    apply_theme();
}

Trends::Trend Trends::add(const QString& name, const QString& title)
{
    auto* chart = new QChart;
    chart->legend()->hide();
    chart->setBackgroundVisible(false);
    chart->setMargins(QMargins(2, 0, 8, 0));
    chart->layout()->setContentsMargins(0, 0, 0, 0);
    chart->setTitle(title);
    chart->setTitleFont(ui_font(12, true));

    Trend trend{new QChartView(chart), new QLineSeries, new QLineSeries, new QValueAxis, new QValueAxis};
    trend.view->setObjectName(name);
    trend.view->setRenderHint(QPainter::Antialiasing);
    trend.view->setFrameShape(QFrame::NoFrame);
    trend.view->setFocusPolicy(Qt::NoFocus);
    trend.time->setRange(-Console::CHART_S, 0.0);
    trend.time->setTickCount(4);
    trend.time->setLabelFormat("%.0f s");
    trend.value->setTickCount(3);
    for (QValueAxis* axis : {trend.time, trend.value}) {
        axis->setLabelsFont(ui_font(10));
        axis->setLineVisible(false);
    }
    chart->addAxis(trend.time, Qt::AlignBottom);
    chart->addAxis(trend.value, Qt::AlignLeft);
    trend.zero->append(-Console::CHART_S, 0.0);
    trend.zero->append(0.0, 0.0);
    for (QLineSeries* series : {trend.zero, trend.curve}) {
        chart->addSeries(series);
        series->attachAxis(trend.time);
        series->attachAxis(trend.value);
    }
    set_range(trend, 1.0);
    return trend;
}

void Trends::set_range(Trend& trend, double reach)
{
    if (trend.value->max() == reach)
        return;
    trend.value->setRange(-reach, reach);
    trend.value->setLabelFormat(label_format(reach));
}

void Trends::advance()
{
    if (!isVisible() || console.samples().empty())
        return;
    const double now_s = console.samples().back().time_s;
    // More points than columns would be drawn for nothing.
    const std::size_t step = std::max<std::size_t>(1, console.samples().size() / 300);
    QVector<QPointF> off_points;
    QVector<QPointF> steering_points;
    double largest_off = 0.0;
    double largest_steering = 0.0;
    const std::size_t count = console.samples().size();
    for (std::size_t i = (count - 1) % step; i < count; i += step) {
        const Sample& sample = console.samples()[i];
        const double time = sample.time_s - now_s;
        off_points.append({time, sample.off_seen});
        steering_points.append({time, sample.steering_deg});
        largest_off = std::max(largest_off, std::fabs(sample.off_seen));
        largest_steering = std::max(largest_steering, std::fabs(sample.steering_deg));
    }
    set_range(off, reach_for(OFF_REACHES, largest_off));
    set_range(steering, reach_for(STEERING_REACHES, largest_steering));
    off.curve->replace(off_points);
    steering.curve->replace(steering_points);
}

void Trends::apply_theme()
{
    for (Trend* trend : {&off, &steering}) {
        trend->view->chart()->setTitleBrush(theme().ink);
        trend->view->setBackgroundBrush(theme().panel);
        trend->zero->setPen(QPen(theme().faint, 1.2));
        for (QValueAxis* axis : {trend->time, trend->value}) {
            axis->setLabelsColor(theme().faint);
            axis->setGridLineColor(theme().edge);
        }
    }
    off.curve->setPen(QPen(theme().accent, 2.0));
    steering.curve->setPen(QPen(theme().caution, 2.0));
}

void Trends::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.fillRect(rect(), theme().panel);
    round_corners(painter, rect());
}

void Trends::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    advance();
}
