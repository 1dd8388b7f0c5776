#include "Plan_view.h"

#include "Theme.h"
#include "Touch_button.h"

#include <QGestureEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPinchGesture>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

constexpr double ZOOM_STEP = 1.5;
constexpr int BUTTON = 48;
constexpr int GAP = 8;
constexpr int COMPASS = 42;
constexpr double SMOOTHING = 0.15;    // of the heading's noise, when the heading points up
constexpr int PARALLELS = 40;         // drawn on either side at most
constexpr double SMALLEST_STEP = 2.5; // pixels between drawn places of the track

QPointF east_north(const Math2D::Point& place)
{
    return {place.second, place.first};
}

/// 1, 2 or 5 times a power of ten, at least so many metres.
double round_length(double least)
{
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double step : {1.0, 2.0, 5.0})
        if (step * power >= least)
            return step * power;
    return 10.0 * power;
}

} // namespace

Plan_view::Plan_view(const Console& shown) : console(shown)
{
    setAttribute(Qt::WA_AcceptTouchEvents);
    setAttribute(Qt::WA_OpaquePaintEvent);
    grabGesture(Qt::PinchGesture);
    setMinimumSize(200, 200);

    const auto add = [this](Touch_button::Glyph glyph, const QString& name, const QString& keys,
                            const QString& tip) {
        auto* button = new Touch_button(QString(), glyph);
        button->setParent(this);
        button->setObjectName(name);
        button->set_keys(keys, tip);
        button->set_quiet(true);
        buttons.push_back(button);
        return button;
    };
    connect(add(Touch_button::Glyph::plus, "zoom_in", "+", "nearer"), &Touch_button::clicked, this,
            &Plan_view::zoom_in);
    connect(add(Touch_button::Glyph::minus, "zoom_out", "-", "farther"), &Touch_button::clicked, this,
            &Plan_view::zoom_out);
    follow_button = add(Touch_button::Glyph::follow, "follow", "F", "follow the vehicle");
    follow_button->setCheckable(true);
    follow_button->setChecked(following);
    connect(follow_button, &Touch_button::toggled, this, &Plan_view::set_following);
    north_button = add(Touch_button::Glyph::north, "north", "U", "north up");
    north_button->setCheckable(true);
    north_button->setChecked(!turned);
    connect(north_button, &Touch_button::toggled, this, [this](bool north) { set_heading_up(!north); });
}

void Plan_view::zoom_in()
{
    zoom(ZOOM_STEP, following ? anchor() : QRectF(rect()).center());
}

void Plan_view::zoom_out()
{
    zoom(1.0 / ZOOM_STEP, following ? anchor() : QRectF(rect()).center());
}

void Plan_view::set_following(bool on)
{
    following = on;
    follow_button->setChecked(on);
    if (on)
        advance();
}

void Plan_view::set_heading_up(bool on)
{
    turned = on;
    north_button->setChecked(!on);
    rotation_deg = on ? console.moment().epoch.heading_deg : 0.0;
    update();
}

void Plan_view::advance()
{
    const Moment& now = console.moment();
    if (following && now.number > 0) {
        centre = now.place;
        if (turned) {
            const double off = std::remainder(now.epoch.heading_deg - rotation_deg, 360.0);
            rotation_deg += now.number == 1 ? off : SMOOTHING * off;
        }
    }
    update();
}

/// Where the vehicle is kept: low when the way ahead is up.
QPointF Plan_view::anchor() const
{
    return {width() / 2.0, turned ? 0.68 * height() : 0.5 * height()};
}

QTransform Plan_view::to_screen() const
{
    QTransform transform; // of east and north
    transform.translate(anchor().x(), anchor().y());
    transform.rotate(-rotation_deg);
    transform.scale(pixels_a_metre, -pixels_a_metre);
    transform.translate(-centre.second, -centre.first);
    return transform;
}

QPointF Plan_view::on_screen(const Math2D::Point& place) const
{
    return to_screen().map(east_north(place));
}

QRectF Plan_view::seen_field() const
{
    return to_screen().inverted().mapRect(QRectF(rect()));
}

void Plan_view::zoom(double factor, const QPointF& fixed)
{
    const QPointF before = to_screen().inverted().map(fixed);
    pixels_a_metre = std::clamp(pixels_a_metre * factor, FARTHEST, CLOSEST);
    const QPointF after = to_screen().inverted().map(fixed);
    if (!following)
        centre = Math2D::Point(centre.first + before.y() - after.y(), centre.second + before.x() - after.x());
    update();
}

void Plan_view::drag(const QPointF& pixels)
{
    set_following(false);
    const QTransform back = to_screen().inverted();
    const QPointF moved = back.map(pixels) - back.map(QPointF(0, 0));
    centre = Math2D::Point(centre.first - moved.y(), centre.second - moved.x());
    update();
}

bool Plan_view::event(QEvent* event)
{
    if (event->type() == QEvent::Gesture)
        return pinch(*static_cast<QGestureEvent*>(event));
    return QWidget::event(event);
}

bool Plan_view::pinch(QGestureEvent& event)
{
    auto* const gesture = static_cast<QPinchGesture*>(event.gesture(Qt::PinchGesture));
    if (gesture == nullptr)
        return false;
    pinching = gesture->state() == Qt::GestureStarted || gesture->state() == Qt::GestureUpdated;
    if ((gesture->changeFlags() & QPinchGesture::ScaleFactorChanged) != 0 && gesture->scaleFactor() > 0.0)
        zoom(gesture->scaleFactor(), mapFromGlobal(gesture->centerPoint().toPoint()));
    event.accept();
    return true;
}

void Plan_view::mousePressEvent(QMouseEvent* event)
{
    dragging = event->button() == Qt::LeftButton;
    dragged_from = event->localPos();
}

void Plan_view::mouseMoveEvent(QMouseEvent* event)
{
    if (!dragging || pinching)
        return;
    const QPointF moved = event->localPos() - dragged_from;
    if (following && moved.manhattanLength() < 8.0) // a finger that only rests does not end following
        return;
    dragged_from = event->localPos();
    drag(moved);
}

void Plan_view::mouseReleaseEvent(QMouseEvent* /*event*/)
{
    dragging = false;
}

void Plan_view::wheelEvent(QWheelEvent* event)
{
    zoom(std::pow(ZOOM_STEP, event->angleDelta().y() / 120.0), event->position());
    event->accept();
}

void Plan_view::resizeEvent(QResizeEvent* /*event*/)
{
    int top = GAP;
    for (Touch_button* button : buttons) {
        button->setGeometry(width() - BUTTON - GAP, top, BUTTON, BUTTON);
        top += BUTTON + GAP;
    }
}

void Plan_view::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), theme().map);
    draw_grid(painter);
    const std::vector<Parallel> seen = parallels();
    draw_parallels(painter, seen);
    draw_track(painter);
    draw_line(painter);
    draw_vehicle(painter);
    draw_names(painter, seen);
    draw_scale(painter);
    draw_compass(painter);
    draw_advice(painter);
    round_corners(painter, rect());
}

void Plan_view::draw_grid(QPainter& painter) const
{
    const double step = round_length(55.0 / pixels_a_metre);
    const QRectF seen = seen_field();
    const QTransform transform = to_screen();
    painter.setPen(QPen(theme().grid, 1.0));
    const auto line_before = [step](double place) { return static_cast<int>(std::floor(place / step)); };
    for (int column = line_before(seen.left()); column <= line_before(seen.right()); ++column)
        painter.drawLine(transform.map(QLineF(column * step, seen.top(), column * step, seen.bottom())));
    for (int row = line_before(seen.top()); row <= line_before(seen.bottom()); ++row)
        painter.drawLine(transform.map(QLineF(seen.left(), row * step, seen.right(), row * step)));
}

/// The parallels that can be seen, each across the whole view: guidance knows no ends. The one that is followed
/// is among them wherever it is.
std::vector<Plan_view::Parallel> Plan_view::parallels() const
{
    const Field_line& line = console.line();
    if (!line.a || !line.b)
        return {};
    const QPointF a = east_north(*line.a);
    const QPointF along = (east_north(*line.b) - a) / line.a->get_distance(*line.b);
    const QPointF across(along.y(), -along.x()); // to the right
    const QRectF seen = seen_field();
    const double reach = std::hypot(seen.width(), seen.height());
    const QPointF middle = seen.center() - a;
    const double ahead = QPointF::dotProduct(middle, along);
    const double width = Console::SWATH_WIDTH;
    const auto nearest = static_cast<int>(std::lround(QPointF::dotProduct(middle, across) / width));
    const int count =
        width * pixels_a_metre < 6.0 ? 0 : std::min(PARALLELS, static_cast<int>(reach / 2.0 / width) + 1);
    const QTransform transform = to_screen();
    std::vector<Parallel> all;
    const auto add = [&](int swath) {
        const QPointF start = a + across * (swath * width + console.moment().nudge) + along * ahead;
        all.push_back({swath, transform.map(QLineF(start - along * reach, start + along * reach))});
    };
    const int followed = console.moment().swath;
    for (int swath = nearest - count; swath <= nearest + count; ++swath)
        if (swath != followed)
            add(swath);
    add(followed); // over the others
    return all;
}

void Plan_view::draw_parallels(QPainter& painter, const std::vector<Parallel>& all) const
{
    painter.setPen(QPen(theme().swath, 1.2));
    for (const Parallel& one : all) {
        if (one.swath == console.moment().swath) {
            QColor band = theme().line;
            band.setAlpha(theme().night ? 34 : 24);
            painter.setPen(QPen(band, Console::SWATH_WIDTH * pixels_a_metre, Qt::SolidLine, Qt::FlatCap));
            painter.drawLine(one.on_screen);
            painter.setPen(QPen(theme().line, 2.2));
        }
        painter.drawLine(one.on_screen);
    }
}

/// At the upper edge, where there is room: "A–B", "2 R". Lines that lie across have none.
void Plan_view::draw_names(QPainter& painter, const std::vector<Parallel>& all) const
{
    constexpr double y = 18.0;
    painter.setFont(ui_font(13, true));
    const bool room = Console::SWATH_WIDTH * pixels_a_metre > 40.0;
    for (const Parallel& one : all) {
        const bool followed = one.swath == console.moment().swath;
        const QLineF& line = one.on_screen;
        if ((!room && !followed) || std::fabs(line.dy()) < std::fabs(line.dx()))
            continue;
        const double x = line.x1() + (y - line.y1()) * line.dx() / line.dy();
        const QString name = swath_name(one.swath);
        const double half = painter.fontMetrics().horizontalAdvance(name) / 2.0 + 6.0;
        if (x - half < COMPASS + 2 * GAP || x + half > width() - BUTTON - 2 * GAP)
            continue;
        const QRectF box(x - half, y - 10.0, 2.0 * half, 20.0);
        painter.setPen(Qt::NoPen);
        painter.setBrush(followed ? theme().line : theme().map);
        painter.drawRoundedRect(box, 5.0, 5.0);
        painter.setPen(followed ? theme().map : theme().ink);
        painter.drawText(box, Qt::AlignCenter, name);
    }
}

/// The ground worked on as wide as the tool, and over it the way of the antenna.
void Plan_view::draw_track(QPainter& painter) const
{
    const std::vector<Track_place>& track = console.track();
    if (track.empty())
        return;
    const double margin = Console::SWATH_WIDTH;
    const QRectF seen = seen_field().adjusted(-margin, -margin, margin, margin);
    const QTransform transform = to_screen();

    struct Run {
        QPolygonF places;
        bool worked;
    };
    std::vector<Run> runs;
    bool inside_before = false;
    bool worked_before = false;
    QPointF last_drawn;
    for (std::size_t i = 0; i < track.size(); ++i) {
        const QPointF place = east_north(track[i].place);
        const QPointF pixel = transform.map(place);
        const bool inside = seen.contains(place);
        if (inside && (!inside_before || track[i].worked != worked_before)) {
            runs.push_back({{}, track[i].worked});
            if (i > 0)
                runs.back().places << transform.map(east_north(track[i - 1].place));
            runs.back().places << pixel;
            last_drawn = pixel;
        } else if ((inside || inside_before) &&
                   (!inside || (pixel - last_drawn).manhattanLength() >= SMALLEST_STEP ||
                    i + 1 == track.size())) {
            runs.back().places << pixel;
            last_drawn = pixel;
        }
        inside_before = inside;
        worked_before = track[i].worked;
    }
    if (inside_before)
        runs.back().places << transform.map(east_north(console.moment().place));

    painter.setBrush(Qt::NoBrush);
    const double wide = std::max(2.0, Console::SWATH_WIDTH * 0.96 * pixels_a_metre);
    painter.setPen(QPen(theme().covered, wide, Qt::SolidLine, Qt::FlatCap, Qt::BevelJoin));
    for (const Run& run : runs)
        if (run.worked)
            painter.drawPolyline(run.places);
    painter.setPen(QPen(theme().accent, 2.0, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    for (const Run& run : runs)
        painter.drawPolyline(run.places);
}

void Plan_view::draw_line(QPainter& painter) const
{
    const Field_line& line = console.line();
    if (line.a && line.b) {
        painter.setPen(QPen(theme().line, 3.2, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(on_screen(*line.a), on_screen(*line.b));
        draw_mark(painter, *line.a, "A", true);
        draw_mark(painter, *line.b, "B", true);
    }
    if (line.new_a) {
        painter.setPen(QPen(theme().line, 2.0, Qt::DashLine));
        painter.drawLine(on_screen(*line.new_a), on_screen(console.moment().place));
        draw_mark(painter, *line.new_a, "A", false);
    }
}

void Plan_view::draw_mark(QPainter& painter, const Math2D::Point& place, const QString& name,
                          bool filled) const
{
    const QPointF at = on_screen(place);
    painter.setPen(QPen(theme().line, 2.4));
    painter.setBrush(filled ? theme().line : theme().map);
    painter.drawEllipse(at, 12.0, 12.0);
    painter.setPen(filled ? theme().map : theme().line);
    painter.setFont(ui_font(14, true));
    painter.drawText(QRectF(at - QPointF(12, 12), QSizeF(24, 24)), Qt::AlignCenter, name);
}

void Plan_view::draw_vehicle(QPainter& painter) const
{
    const Moment& now = console.moment();
    if (now.number == 0)
        return;
    painter.save();
    painter.translate(on_screen(now.place));
    painter.rotate(now.epoch.heading_deg - rotation_deg);
    // The tool behind, as wide as what it works, then the vehicle as an arrow that is never too small to see.
    const double half = Console::SWATH_WIDTH * pixels_a_metre / 2.0;
    painter.setPen(QPen(theme().ink, 3.0, Qt::SolidLine, Qt::RoundCap));
    if (half > 14.0)
        painter.drawLine(QPointF(-half, 11.0), QPointF(half, 11.0));
    QPainterPath arrow;
    arrow.addPolygon(QPolygonF({{0, -22}, {14, 14}, {0, 7}, {-14, 14}}));
    arrow.closeSubpath();
    painter.setPen(QPen(theme().night ? QColor(0, 0, 0) : QColor(255, 255, 255), 2.5));
    painter.setBrush(now.has_fix ? theme().accent : theme().faint);
    painter.drawPath(arrow);
    painter.restore();
}

void Plan_view::draw_scale(QPainter& painter) const
{
    const double metres = round_length(45.0 / pixels_a_metre);
    const double pixels = metres * pixels_a_metre;
    const double bottom = height() - 12.0;
    const QString shown = metres >= 1000.0 ? QString("%1 km").arg(metres / 1000.0)
                          : metres < 1.0   ? QString("%1 cm").arg(100.0 * metres)
                                           : QString("%1 m").arg(metres);
    painter.setPen(QPen(theme().ink, 2.0, Qt::SolidLine, Qt::FlatCap));
    painter.drawPolyline(
        QPolygonF({{12, bottom - 5}, {12, bottom}, {12 + pixels, bottom}, {12 + pixels, bottom - 5}}));
    painter.setFont(ui_font(14, true));
    painter.drawText(QPointF(18, bottom - 6), shown);
}

/// What to do while there is no line.
void Plan_view::draw_advice(QPainter& painter) const
{
    const Moment& now = console.moment();
    if (now.has_line)
        return;
    const QString advice = now.number == 0         ? QStringLiteral("No position yet")
                           : !console.line().new_a ? QStringLiteral("No line: press Set A where it begins")
                                                   : QStringLiteral("Drive on and press Set B");
    painter.setPen(theme().ink);
    painter.setFont(ui_font(16, true));
    painter.drawText(QRectF(16, 64, width() - BUTTON - 40, 60), Qt::AlignCenter | Qt::TextWordWrap, advice);
}

/// Where north is.
void Plan_view::draw_compass(QPainter& painter) const
{
    const double radius = COMPASS / 2.0;
    painter.save();
    painter.translate(GAP + radius, GAP + radius);
    QColor ground = theme().panel;
    ground.setAlpha(210);
    painter.setPen(QPen(theme().edge, 1.2));
    painter.setBrush(ground);
    painter.drawEllipse(QPointF(0, 0), radius, radius);
    painter.rotate(-rotation_deg);
    painter.setPen(Qt::NoPen);
    painter.setBrush(theme().bad);
    painter.drawPolygon(QPolygonF({{0, -radius + 1.5}, {6, -radius + 11}, {-6, -radius + 11}}));
    painter.rotate(rotation_deg); // the letter stays upright
    painter.setPen(theme().ink);
    painter.setFont(ui_font(13, true));
    painter.drawText(QRectF(-10, -8, 20, 16), Qt::AlignCenter, "N");
    painter.restore();
}
