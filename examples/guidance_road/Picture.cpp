#include "Picture.h"

#include <QCoreApplication>
#include <QGraphicsScene>
#include <QGraphicsSimpleTextItem>
#include <QPainter>
#include <QtCharts/QChart>
#include <QtCharts/QLegend>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <algorithm>
#include <cmath>

QT_CHARTS_USE_NAMESPACE

namespace {

constexpr int WIDTH = 1200;
constexpr int HEIGHT = 900;
constexpr double HEAD = 84.0; // title and figures above the charts

const QColor INK(0x22, 0x2B, 0x36);
const QColor FAINT(0xE3, 0xE7, 0xEC);
const QColor DRIVE(0x2F, 0x6D, 0xB5);
const QColor COUNTED(0xE0, 0x7B, 0x1A);

QFont font(int pixels, bool bold = false)
{
    QFont f(QStringLiteral("DejaVu Sans"));
    f.setPixelSize(pixels);
    f.setBold(bold);
    return f;
}

struct Range {
    double low;
    double high;

    double span() const { return high - low; }
    Range with(double value) const { return {std::min(low, value), std::max(high, value)}; }
};

/// A distance between ticks of 1, 2 or 5 times a power of ten, for about so many ticks.
double tick_step(double span, double ticks)
{
    const double rough = span / ticks;
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    for (const double step : {1.0, 2.0, 5.0})
        if (step * power >= rough)
            return step * power;
    return 10.0 * power;
}

QValueAxis* add_axis(QChart& chart, Qt::Alignment side, const QString& title, Range range, double step)
{
    auto* axis = new QValueAxis; // the chart owns it from addAxis() on
    axis->setTickType(QValueAxis::TicksDynamic);
    axis->setTickAnchor(1e-6 * step); // zero is then never labelled -0
    axis->setTickInterval(step);
    axis->setRange(range.low, range.high);
    const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step * 1.001))));
    axis->setLabelFormat(QStringLiteral("%.%1f").arg(decimals));
    axis->setLabelsFont(font(14));
    axis->setLabelsColor(INK);
    axis->setTitleText(title);
    axis->setTitleFont(font(14));
    axis->setTitleBrush(INK);
    axis->setGridLineColor(FAINT);
    axis->setLinePenColor(INK);
    chart.addAxis(axis, side);
    return axis;
}

/// The frame of the curves is fixed, so that scales are known before anything is laid out.
QChart* add_chart(QGraphicsScene& scene, const QRectF& place, const QString& title)
{
    auto* chart = new QChart; // the scene owns it from addItem() on
    chart->setGeometry(place);
    chart->setPlotArea(QRectF(QPointF(0.0, 0.0), place.size()).adjusted(86.0, 36.0, -24.0, -54.0));
    chart->setBackgroundVisible(false);
    chart->legend()->setVisible(false);
    scene.addItem(chart);

    QGraphicsSimpleTextItem* text = scene.addSimpleText(title, font(16, true));
    text->setBrush(INK);
    text->setPos(place.topLeft() + QPointF(86.0, 8.0));
    return chart;
}

QLineSeries* add_curve(QChart& chart, const QPen& pen, const QVector<QPointF>& points)
{
    auto* series = new QLineSeries;
    series->setPen(pen);
    series->replace(points);
    chart.addSeries(series);
    for (QAbstractAxis* axis : chart.axes())
        series->attachAxis(axis);
    return series;
}

void add_mark(QChart& chart, const QString& name, const QPointF& place)
{
    auto* mark = new QScatterSeries;
    mark->setMarkerSize(11.0);
    mark->setColor(INK);
    mark->setBorderColor(Qt::white);
    mark->setPointLabelsVisible(true);
    mark->setPointLabelsClipping(false);
    mark->setPointLabelsFormat(name);
    mark->setPointLabelsFont(font(17, true));
    mark->setPointLabelsColor(INK);
    mark->append(place);
    chart.addSeries(mark);
    for (QAbstractAxis* axis : chart.axes())
        mark->attachAxis(axis);
}

/// The whole drive, and over it each unbroken run of what counts.
template <typename POINT_OF>
void add_drive(QChart& chart, const std::vector<Epoch>& epochs, POINT_OF point_of)
{
    QVector<QPointF> all;
    for (const Epoch& epoch : epochs)
        all.append(point_of(epoch));
    add_curve(chart, QPen(DRIVE, 2.2), all);

    QVector<QPointF> run;
    for (std::size_t i = 0; i < epochs.size(); ++i) {
        if (epochs[i].counted)
            run.append(point_of(epochs[i]));
        if (!run.isEmpty() && (!epochs[i].counted || i + 1 == epochs.size())) {
            add_curve(chart, QPen(COUNTED, 2.6), run);
            run.clear();
        }
    }
}

QPointF on_plan(const Math2D::Point& place)
{
    return {place.second, place.first}; // east to the right, north up
}

/// What the plan shows: the drive, and the line's ends unless they make it look small.
QRectF bounds(const std::vector<Epoch>& epochs, const QPointF& a, const QPointF& b)
{
    Range east{epochs[0].local.second, epochs[0].local.second};
    Range north{epochs[0].local.first, epochs[0].local.first};
    for (const Epoch& epoch : epochs) {
        east = east.with(epoch.local.second);
        north = north.with(epoch.local.first);
    }
    const Range both_east = east.with(a.x()).with(b.x());
    const Range both_north = north.with(a.y()).with(b.y());
    if (std::hypot(both_east.span(), both_north.span()) <= 2.0 * std::hypot(east.span(), north.span())) {
        east = both_east;
        north = both_north;
    }
    return {east.low, north.low, east.span(), north.span()};
}

void draw_plan(QGraphicsScene& scene, const QRectF& place, const Drive& drive, const QRectF& box,
               const QPointF& b)
{
    QChart* chart = add_chart(scene, place, "The way, seen from above");
    const QRectF frame = chart->plotArea();

    // Metres a pixel, the same both ways, with some room around.
    const double scale = 1.12 * std::max({box.width() / frame.width(), box.height() / frame.height(), 1e-5});
    const QPointF half(scale * frame.width() / 2.0, scale * frame.height() / 2.0);
    const QPointF middle = box.center();
    const double step = tick_step(2.0 * half.x(), frame.width() / 90.0);
    add_axis(*chart, Qt::AlignBottom, "east of A [m]", {middle.x() - half.x(), middle.x() + half.x()}, step);
    add_axis(*chart, Qt::AlignLeft, "north of A [m]", {middle.y() - half.y(), middle.y() + half.y()}, step);

    // Guidance knows the line without its ends: it is drawn on beyond them, across the whole plan.
    const QPointF a(0.0, 0.0);
    const double reach = std::hypot(middle.x(), middle.y()) + std::hypot(half.x(), half.y());
    const QPointF far = b * (reach / std::hypot(b.x(), b.y()));
    add_curve(*chart, QPen(INK, 1.2, Qt::DotLine), {-far, far});
    add_curve(*chart, QPen(INK, 2.0, Qt::DashLine), {a, b});
    add_drive(*chart, drive.epochs, [](const Epoch& epoch) { return on_plan(epoch.local); });
    add_mark(*chart, "A", a);
    add_mark(*chart, "B", b);
}

/// From the first epoch to the last, or, if any counts, from the first that counts to the last that does.
Range times_of(const std::vector<Epoch>& epochs, bool only_counted)
{
    const auto counts = [](const Epoch& epoch) { return epoch.counted; };
    auto first = epochs.begin();
    auto last = epochs.rbegin();
    if (only_counted && std::any_of(epochs.begin(), epochs.end(), counts)) {
        first = std::find_if(epochs.begin(), epochs.end(), counts);
        last = std::find_if(epochs.rbegin(), epochs.rend(), counts);
    }
    return {first->fix.time_s, std::max(first->fix.time_s + 1.0, last->fix.time_s)};
}

using Value_of = double (*)(const Epoch&);

/// What a curve over time spans, zero and some room included.
Range values_of(const std::vector<Epoch>& epochs, Value_of value_of, bool only_counted, double least)
{
    Range values{-least, least};
    for (const Epoch& epoch : epochs)
        if (epoch.counted || !only_counted)
            values = values.with(value_of(epoch));
    const double room = 0.08 * values.span();
    return {values.low - room, values.high + room};
}

void draw_over_time(QGraphicsScene& scene, const QRectF& place, const Drive& drive, const QString& title,
                    const QString& unit, const Range& time, const Range& values, Value_of value_of)
{
    QChart* chart = add_chart(scene, place, title);
    const QRectF frame = chart->plotArea();
    add_axis(*chart, Qt::AlignBottom, "time [s]", time, tick_step(time.span(), frame.width() / 90.0));
    add_axis(*chart, Qt::AlignLeft, unit, values, tick_step(values.span(), frame.height() / 24.0));
    add_curve(*chart, QPen(INK, 1.2, Qt::DashLine), {{time.low, 0.0}, {time.high, 0.0}});
    add_drive(*chart, drive.epochs,
              [value_of](const Epoch& epoch) { return QPointF(epoch.fix.time_s, value_of(epoch)); });
}

void draw_head(QPainter& painter, const Drive& drive, const Figures& figures)
{
    painter.setPen(INK);
    painter.setFont(font(25, true));
    painter.drawText(QPointF(28.0, 40.0), QString::fromStdString(drive.title));
    painter.setFont(font(15));
    const std::string errors = figures.counted > 0
                                   ? text("%.3f m RMS, %.3f m at 95 %% off the line over %zu fixes",
                                          figures.rms, figures.percentile95, figures.counted)
                                   : std::string("no fix counts for the figures");
    painter.drawText(QPointF(28.0, 68.0),
                     QString::fromStdString(text("%.0f m driven;  ", figures.distance) + errors));

    double right = WIDTH - 24.0;
    const auto key = [&painter, &right](const QString& name, const QPen& pen) {
        right -= painter.fontMetrics().horizontalAdvance(name);
        painter.setPen(INK);
        painter.drawText(QPointF(right, 68.0), name);
        painter.setPen(pen);
        painter.drawLine(QPointF(right - 38.0, 63.0), QPointF(right - 8.0, 63.0));
        right -= 62.0;
    };
    key("line", QPen(INK, 2.0, Qt::DashLine));
    key("counts for the figures", QPen(COUNTED, 3.0));
    key("drive", QPen(DRIVE, 3.0));
}

struct Panels {
    QRectF plan;
    QRectF xtrack;
    QRectF close_up;
    QRectF steering;
};

/// A way that is longer than high gets the whole width, above the others; any other the left half.
Panels lay_out(bool wide)
{
    constexpr double FULL = HEIGHT - HEAD;
    constexpr double HALF_WIDTH = WIDTH / 2.0;
    if (!wide)
        return {{0.0, HEAD, HALF_WIDTH, FULL},
                {HALF_WIDTH, HEAD, HALF_WIDTH, FULL / 3.0},
                {HALF_WIDTH, HEAD + FULL / 3.0, HALF_WIDTH, FULL / 3.0},
                {HALF_WIDTH, HEAD + FULL * 2.0 / 3.0, HALF_WIDTH, FULL / 3.0}};
    constexpr double PLAN = 0.44 * FULL;
    constexpr double ROW = 0.28 * FULL;
    return {{0.0, HEAD, WIDTH, PLAN},
            {0.0, HEAD + PLAN, HALF_WIDTH, ROW},
            {HALF_WIDTH, HEAD + PLAN, HALF_WIDTH, ROW},
            {0.0, HEAD + PLAN + ROW, WIDTH, ROW}};
}

} // namespace

QImage draw_picture(const Drive& drive, const Figures& figures)
{
    Coordinate_converter plane;
    plane.setLocalCenter(drive.a);
    Math2D::Point b_local;
    plane.convPointLLH2Local(drive.b, b_local.first, b_local.second);
    const QPointF b = on_plan(b_local);

    QGraphicsScene scene(0.0, 0.0, WIDTH, HEIGHT);
    const QRectF box = bounds(drive.epochs, QPointF(0.0, 0.0), b);
    const Panels panels = lay_out(box.width() > 1.6 * box.height());
    draw_plan(scene, panels.plan, drive, box, b);

    const Range all = times_of(drive.epochs, false);
    const Value_of xtrack = [](const Epoch& epoch) { return epoch.judged_xtrack; };
    const Value_of steering = [](const Epoch& epoch) { return epoch.steering_deg; };
    draw_over_time(scene, panels.xtrack, drive, "Off the line (right of it positive)", "cross-track [m]", all,
                   values_of(drive.epochs, xtrack, false, 0.1), xtrack);
    draw_over_time(scene, panels.close_up, drive, "What counts of it, close up", "cross-track [m]",
                   times_of(drive.epochs, true), values_of(drive.epochs, xtrack, true, 0.05), xtrack);
    draw_over_time(scene, panels.steering, drive, "Steering asked for (right positive)", "angle [deg]", all,
                   values_of(drive.epochs, steering, false, 1.0), steering);

    QImage image(WIDTH, HEIGHT, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QCoreApplication::processEvents(); // charts lay their axes and titles out in events
    scene.render(&painter, image.rect(), image.rect());
    draw_head(painter, drive, figures);
    return image;
}
