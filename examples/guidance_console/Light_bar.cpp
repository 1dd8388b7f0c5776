#include "Light_bar.h"

#include "Theme.h"

#include <QPainter>

#include <cmath>

namespace {

// Metres at which one lamp more burns: fine near the line, coarse far from it.
constexpr std::array<double, Light_bar::LAMPS> STEPS = {0.02, 0.04, 0.06, 0.08, 0.10, 0.15, 0.20,
                                                        0.30, 0.40, 0.60, 0.80, 1.00, 2.00, 4.00};
constexpr int GOOD_LAMPS = 5;    // less than 15 cm
constexpr int CAUTION_LAMPS = 9; // less than 60 cm

constexpr double LAMP_TOP = 8.0;
constexpr double LAMP_HEIGHT = 30.0;
constexpr double ROW_TOP = 44.0; // of what stands below the lamps

} // namespace

Light_bar::Light_bar(const Console& shown) : console(shown)
{
    setFixedHeight(HEIGHT);
}

int Light_bar::lamps(double off_seen)
{
    int count = 0;
    for (const double step : STEPS)
        count += std::fabs(off_seen) >= step ? 1 : 0;
    return off_seen > 0.0 ? -count : count; // right of the line: the line is to the left
}

bool Light_bar::knows() const
{
    return console.moment().has_line && console.moment().has_fix;
}

QString Light_bar::distance_text(double metres)
{
    const double off = std::fabs(metres);
    if (off < 0.995)
        return QString("%1 cm").arg(std::lround(100.0 * off));
    if (off >= 9999.5)
        return QString("%1 km").arg(std::lround(off / 1000.0));
    return QString("%1 m").arg(off, 0, 'f', off < 9.995 ? 2 : off < 99.95 ? 1 : 0);
}

QString Light_bar::figure() const
{
    return knows() ? distance_text(console.moment().off_seen) : QString("–");
}

QColor Light_bar::colour() const
{
    if (!knows())
        return theme().faint;
    const int lit = std::abs(lamps(console.moment().off_seen));
    return lit <= GOOD_LAMPS ? theme().good : lit <= CAUTION_LAMPS ? theme().caution : theme().bad;
}

void Light_bar::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), theme().panel);
    draw_lamps(painter);
    draw_figure(painter);
    draw_left(painter);
    draw_right(painter);
    painter.fillRect(QRectF(0, height() - 1.0, width(), 1.0), theme().edge);
}

void Light_bar::draw_lamps(QPainter& painter) const
{
    const double pitch = (width() - 16.0) / (2 * LAMPS + 1);
    const int lit = knows() ? lamps(console.moment().off_seen) : 0;
    painter.setPen(Qt::NoPen);
    for (int i = -LAMPS; i <= LAMPS; ++i) {
        const int rank = std::abs(i);
        const bool burns = knows() && (i == 0 || (i < 0 && i >= lit && lit < 0) || (i > 0 && i <= lit));
        const QColor on = rank <= GOOD_LAMPS      ? theme().good
                          : rank <= CAUTION_LAMPS ? theme().caution
                                                  : theme().bad;
        const double grown = i == 0 ? 4.0 : 0.0;
        const QRectF lamp(width() / 2.0 + (i - 0.5) * pitch + 2.0, LAMP_TOP - grown / 2.0, pitch - 4.0,
                          LAMP_HEIGHT + grown);
        painter.setBrush(burns ? on : theme().lamp_off);
        painter.drawRoundedRect(lamp, 4.0, 4.0);
        if (burns) { // a glint, so that a lamp looks lit and not just painted
            painter.setBrush(QColor(255, 255, 255, theme().night ? 46 : 70));
            painter.drawRoundedRect(lamp.adjusted(3, 3, -3, -lamp.height() * 0.55), 2.5, 2.5);
        }
    }
}

void Light_bar::draw_figure(QPainter& painter) const
{
    const QRectF box(0, ROW_TOP - 2.0, width(), height() - ROW_TOP);
    painter.setFont(ui_font(60, true));
    painter.setPen(knows() ? theme().ink : theme().faint);
    const QString shown = figure();
    painter.drawText(box, Qt::AlignCenter, shown);
    const int lit = knows() ? lamps(console.moment().off_seen) : 0;
    if (lit == 0)
        return;
    const double half = painter.fontMetrics().horizontalAdvance(shown) / 2.0;
    const double side = lit < 0 ? -1.0 : 1.0;
    const QPointF tip(box.center().x() + side * (half + 54.0), box.center().y());
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour());
    painter.drawPolygon(
        QPolygonF({tip, tip + QPointF(-side * 36.0, -25.0), tip + QPointF(-side * 36.0, 25.0)}));
}

void Light_bar::draw_left(QPainter& painter) const
{
    const Moment& now = console.moment();
    const double top = ROW_TOP + 4.0;
    painter.setPen(theme().faint);
    painter.setFont(ui_font(12, true));
    painter.drawText(QRectF(14, top, 120, 14), Qt::AlignLeft | Qt::AlignVCenter, "PARALLEL");
    painter.drawText(QRectF(108, top, 120, 14), Qt::AlignLeft | Qt::AlignVCenter, "NUDGE, cm");
    painter.setPen(theme().ink);
    painter.setFont(ui_font(26, true));
    painter.drawText(QRectF(14, top + 17, 100, 34), Qt::AlignLeft | Qt::AlignVCenter,
                     now.has_line ? swath_name(now.swath) : QString("–"));
    const long cm = std::lround(100.0 * now.nudge);
    painter.drawText(QRectF(108, top + 17, 110, 34), Qt::AlignLeft | Qt::AlignVCenter,
                     cm == 0 ? QString("0") : QString("%1 %2").arg(std::labs(cm)).arg(cm > 0 ? "R" : "L"));
}

void Light_bar::draw_right(QPainter& painter) const
{
    const Moment& now = console.moment();
    const QRectF pill(width() - NIGHT_WIDTH - 166.0, ROW_TOP + 6.0, 150.0, 48.0);
    const bool steers = now.engaged && !now.driver_turns && console.source().can_steer();
    QString word = "STOPPED";
    QColor colour = theme().faint;
    if (steers) {
        word = "STEERING";
        colour = theme().on_fill;
    } else if (now.driver_turns) {
        word = "DRIVER TURNS";
        colour = theme().warning;
    } else if (now.engaged) { // a recorded drive: what would be steered is worked out, and that is all
        word = "COMPARING";
        colour = theme().accent;
    }
    painter.setPen(steers ? QPen(Qt::NoPen) : QPen(now.engaged ? colour : theme().edge, 1.6));
    painter.setBrush(steers ? theme().fill_good : theme().raised);
    painter.drawRoundedRect(pill, 24.0, 24.0);
    painter.setPen(colour);
    painter.setFont(ui_font(word.size() > 10 ? 15 : 18, true));
    painter.drawText(pill, Qt::AlignCenter, word);
}
