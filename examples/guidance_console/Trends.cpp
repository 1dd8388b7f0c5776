#include "Trends.h"

#include "Light_bar.h"
#include "Theme.h"

#include <QGraphicsLayout>
#include <QHBoxLayout>
#include <QLabel>
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
constexpr std::array<double, 8> OFF_REACHES = {0.05, 0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0}; // metres
constexpr std::array<double, 4> STEERING_REACHES = {5.0, 10.0, 20.0, 40.0};               // degrees
constexpr double LARGEST_CM = 50.0;
constexpr double RANGE_S = 15.0; // the range is that of so many latest seconds

template <std::size_t N>
double reach_for(const std::array<double, N>& reaches, double largest)
{
    const auto found = std::lower_bound(reaches.begin(), reaches.end(), largest);
    return found == reaches.end() ? reaches.back() : *found;
}

} // namespace

Trends::Trends(const Console& shown) : console(shown)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 8, 4, 2);
    column->setSpacing(0);
    off = add("off_line", "Off the line, m (right +)");
    steering = add("steering", "Steering, ° (right +)");
    for (const Trend& trend : {off, steering}) {
        auto* head = new QHBoxLayout;
        head->setContentsMargins(10, 0, 12, 0);
        head->addWidget(trend.title, 1);
        head->addWidget(trend.latest);
        column->addLayout(head);
        column->addWidget(trend.view, 1);
    }
    apply_theme();
}

Trends::Trend Trends::add(const QString& name, const QString& title)
{
    auto* chart = new QChart;
    chart->legend()->hide();
    chart->setBackgroundVisible(false);
    chart->setMargins(QMargins());
    chart->layout()->setContentsMargins(0, 0, 0, 0);

    Trend trend{new QLabel(title), new QLabel,     new QChartView(chart), new QLineSeries,
                new QLineSeries,   new QValueAxis, new QValueAxis};
    trend.title->setFont(ui_font(13, true));
    trend.latest->setObjectName(name + "_latest");
    trend.latest->setFont(ui_font(17, true));
    trend.view->setObjectName(name);
    trend.view->setRenderHint(QPainter::Antialiasing);
    trend.view->setFrameShape(QFrame::NoFrame);
    trend.view->setFocusPolicy(Qt::NoFocus);
    trend.time->setRange(-Console::CHART_S, 0.0);
    trend.time->setTickCount(4);
    trend.time->setLabelFormat("%.0f s");
    trend.value->setTickCount(3);
    trend.value->setLabelFormat("%.0f");
    for (QValueAxis* axis : {trend.time, trend.value}) {
        axis->setLabelsFont(ui_font(12));
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
    trend.value->setRange(-10.0, 10.0);
    return trend;
}

void Trends::set_range(const Trend& trend, double reach)
{
    if (trend.value->max() != reach)
        trend.value->setRange(-reach, reach);
}

void Trends::advance()
{
    if (!isVisible())
        return;
    show_latest();
    if (console.samples().empty())
        return;
    const double now_s = console.samples().back().time_s;
    // More points than columns would be drawn for nothing.
    const std::size_t step = std::max<std::size_t>(1, console.samples().size() / 300);
    double largest_off = 0.0;
    double largest_steering = 0.0;
    const std::size_t count = console.samples().size();
    for (std::size_t i = (count - 1) % step; i < count; i += step) {
        const Sample& sample = console.samples()[i];
        if (now_s - sample.time_s > RANGE_S)
            continue;
        largest_off = std::max(largest_off, std::fabs(sample.off_seen));
        largest_steering = std::max(largest_steering, std::fabs(sample.steering_deg));
    }
    const double reach = reach_for(OFF_REACHES, largest_off);
    const double unit = 100.0 * reach <= LARGEST_CM ? 0.01 : 1.0;
    QVector<QPointF> off_points;
    QVector<QPointF> steering_points;
    for (std::size_t i = (count - 1) % step; i < count; i += step) {
        const Sample& sample = console.samples()[i];
        const double time = sample.time_s - now_s;
        off_points.append({time, sample.off_seen / unit});
        steering_points.append({time, sample.steering_deg});
    }
    off.title->setText(unit < 1.0 ? "Off the line, cm (right +)" : "Off the line, m (right +)");
    set_range(off, std::round(reach / unit));
    set_range(steering, reach_for(STEERING_REACHES, largest_steering));
    off.curve->replace(off_points);
    steering.curve->replace(steering_points);
}

void Trends::show_latest()
{
    const Moment& now = console.moment();
    const bool known = now.has_line && now.has_fix;
    const QString sign = std::fabs(now.off_seen) < 0.005 ? "" : now.off_seen < 0.0 ? "−" : "+";
    off.latest->setText(known ? sign + Light_bar::distance_text(now.off_seen) : QString("–"));
    steering.latest->setText(known ? QString::asprintf("%+.1f°", now.epoch.steering_deg).replace('-', "−")
                                   : QString("–"));
}

void Trends::apply_theme()
{
    for (Trend* trend : {&off, &steering}) {
        for (QLabel* label : {trend->title, trend->latest}) {
            QPalette colours = label->palette();
            colours.setColor(QPalette::WindowText, theme().ink);
            label->setPalette(colours);
        }
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

/// The same frame for both, whatever their labels.
void Trends::resizeEvent(QResizeEvent* /*event*/)
{
    layout()->activate();
    for (const Trend* trend : {&off, &steering}) {
        const QRectF whole(trend->view->rect());
        trend->view->chart()->setPlotArea(whole.adjusted(34, 8, -18, -24));
    }
}

void Trends::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    advance();
}
