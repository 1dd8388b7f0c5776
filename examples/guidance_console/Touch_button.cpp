#include "Touch_button.h"

#include "Theme.h"

#include <QPainter>
#include <QPainterPath>

namespace {

constexpr double RADIUS = 8.0;

QFont fitting_font(const QString& text, int largest, double width)
{
    int pixels = largest;
    while (pixels > 10 && QFontMetricsF(ui_font(pixels, true)).horizontalAdvance(text) > width)
        --pixels;
    return ui_font(pixels, true);
}

} // namespace

Touch_button::Touch_button(const QString& text, Glyph drawn) : glyph(drawn)
{
    setText(text);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
}

void Touch_button::set_keys(const QString& keys, const QString& tip)
{
    shortcut_text = keys;
    setToolTip(QString("%1  [%2]").arg(tip, keys));
}

void Touch_button::set_role(Role changed)
{
    role = changed;
    update();
}

void Touch_button::set_quiet(bool changed)
{
    quiet = changed;
    update();
}

QSize Touch_button::sizeHint() const
{
    return {64, 60};
}

void Touch_button::paintEvent(QPaintEvent* /*event*/)
{
    const Theme& colours = theme();
    QColor fill = colours.raised;
    QColor ink = isEnabled() ? colours.ink : colours.faint;
    if (role == Role::go)
        fill = colours.fill_good;
    if (role == Role::stop)
        fill = colours.fill_bad;
    if (isCheckable() && isChecked())
        fill = colours.fill_accent;
    if (fill != colours.raised)
        ink = colours.on_fill;
    if (isDown())
        fill = colours.night ? fill.lighter(130) : fill.darker(115);

    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(rect()).adjusted(0.75, 0.75, -0.75, -0.75);
    painter.setPen(QPen(fill == colours.raised ? colours.edge : fill.darker(112), 1.2));
    painter.setBrush(fill);
    painter.drawRoundedRect(box, RADIUS, RADIUS);

    painter.setPen(ink);
    if (glyph == Glyph::none) {
        painter.setFont(fitting_font(text(), quiet ? 13 : 18, box.width() - 4.0));
        painter.drawText(box.adjusted(2, 0, -2, quiet ? 0 : -6), Qt::AlignCenter, text());
    } else if (text().isEmpty()) {
        draw_glyph(painter, box);
    } else {
        painter.setFont(ui_font(12, true));
        const QRectF both(box.left(), box.center().y() - 24.0, box.width(), 46.0);
        draw_glyph(painter, both.adjusted(0, 0, 0, -18));
        painter.drawText(both, Qt::AlignHCenter | Qt::AlignBottom, text());
    }
    if (!quiet && !shortcut_text.isEmpty() && glyph == Glyph::none) {
        QColor small = ink;
        small.setAlphaF(0.75);
        painter.setPen(small);
        painter.setFont(ui_font(11));
        painter.drawText(box.adjusted(0, 0, 0, -6), Qt::AlignHCenter | Qt::AlignBottom, shortcut_text);
    }
}

void Touch_button::draw_glyph(QPainter& painter, const QRectF& box) const
{
    QPen pen(painter.pen().color(), 2.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    painter.save();
    painter.translate(box.center());
    switch (glyph) {
    case Glyph::plus:
        painter.drawLine(QPointF(0, -8), QPointF(0, 8));
        painter.drawLine(QPointF(-8, 0), QPointF(8, 0));
        break;
    case Glyph::minus:
        painter.drawLine(QPointF(-8, 0), QPointF(8, 0));
        break;
    case Glyph::left:
    case Glyph::right: {
        const double sign = glyph == Glyph::left ? -1.0 : 1.0;
        painter.drawPolyline(QPolygonF({{-4 * sign, -8}, {5 * sign, 0}, {-4 * sign, 8}}));
        break;
    }
    case Glyph::follow:
        painter.drawEllipse(QPointF(0, 0), 7, 7);
        for (const double angle : {0.0, 90.0, 180.0, 270.0}) {
            painter.save();
            painter.rotate(angle);
            painter.drawLine(QPointF(0, -7), QPointF(0, -11));
            painter.restore();
        }
        painter.setBrush(pen.color());
        painter.drawEllipse(QPointF(0, 0), 1.4, 1.4);
        break;
    case Glyph::north: {
        painter.setPen(Qt::NoPen);
        painter.setBrush(pen.color());
        painter.drawPolygon(QPolygonF({{0, -11}, {6, 2}, {0, -1}, {-6, 2}}));
        painter.setPen(pen.color());
        painter.setFont(ui_font(11, true));
        painter.drawText(QRectF(-10, 1, 20, 12), Qt::AlignCenter, "N");
        break;
    }
    case Glyph::trends:
        painter.drawPolyline(QVector<QPointF>{{-12, 9}, {-12, -9}});
        painter.drawPolyline(QVector<QPointF>{{-12, 9}, {12, 9}});
        painter.drawPolyline(QPolygonF({{-8, -4}, {-3, 4}, {2, -2}, {6, 1}, {11, -6}}));
        break;
    case Glyph::sky:
        painter.drawEllipse(QPointF(0, 0), 11, 11);
        painter.setBrush(pen.color());
        for (const QPointF& star : {QPointF(-4, -3), QPointF(5, -5), QPointF(2, 5)})
            painter.drawEllipse(star, 1.4, 1.4);
        break;
    case Glyph::tune:
        for (const auto& [x, y] : {std::pair(-8, 3), std::pair(0, -4), std::pair(8, 1)}) {
            painter.drawLine(QPointF(x, -10), QPointF(x, 10));
            painter.setBrush(pen.color());
            painter.drawEllipse(QPointF(x, y), 2.4, 2.4);
        }
        break;
    case Glyph::log:
        for (const int y : {-8, 0, 8}) {
            painter.drawLine(QPointF(-4, y), QPointF(11, y));
            painter.drawPoint(QPointF(-11, y));
        }
        break;
    case Glyph::moon: {
        QPainterPath whole;
        whole.addEllipse(QPointF(0, 0), 8, 8);
        QPainterPath bite;
        bite.addEllipse(QPointF(4.5, -3), 7, 7);
        painter.setPen(Qt::NoPen);
        painter.setBrush(pen.color());
        painter.drawPath(whole.subtracted(bite));
        break;
    }
    case Glyph::end:
        painter.drawLine(QPointF(0, -10), QPointF(0, 5));
        painter.drawPolyline(QPolygonF({{-6, -1}, {0, 5}, {6, -1}}));
        painter.drawLine(QPointF(-9, 10), QPointF(9, 10));
        break;
    case Glyph::out:
        painter.drawLine(QPointF(0, -10), QPointF(0, 4));
        painter.drawPolyline(QPolygonF({{-6, -4}, {0, -10}, {6, -4}}));
        painter.drawPolyline(QPolygonF({{-10, 3}, {-10, 10}, {10, 10}, {10, 3}}));
        break;
    case Glyph::none:
        break;
    }
    painter.restore();
}
