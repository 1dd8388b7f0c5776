#include "Sky_panel.h"

#include "Theme.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

QColor colour_of(Constellation constellation)
{
    switch (constellation) {
    case Constellation::gps:
        return theme().accent;
    case Constellation::glonass:
        return theme().bad;
    case Constellation::other:
        return theme().faint;
    case Constellation::omnistar:
        return theme().line;
    default:
        return theme().caution; // the augmentation services
    }
}

QColor verdict_colour(Firmware::Verdict verdict)
{
    switch (verdict) {
    case Firmware::Verdict::good:
        return theme().good;
    case Firmware::Verdict::too_old:
        return theme().bad;
    case Firmware::Verdict::not_comparable:
    case Firmware::Verdict::unreadable:
        return theme().caution;
    default:
        return theme().faint;
    }
}

} // namespace

Sky_panel::Sky_panel(const Console& shown) : console(shown)
{
    setMinimumSize(200, 200);
}

void Sky_panel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), theme().panel);
    const double dome = 116.0;
    draw_dome(painter, QRectF(10, 10, dome, dome));
    draw_counts(painter, QRectF(dome + 24, 6, width() - dome - 36, dome + 8));
    const double firmware = 50.0;
    draw_signals(painter, QRectF(10, dome + 30, width() - 20, height() - dome - firmware - 38));
    draw_firmware(painter, QRectF(10, height() - firmware, width() - 20, firmware - 8));
    round_corners(painter, rect());
}

void Sky_panel::draw_dome(QPainter& painter, const QRectF& box) const
{
    const double radius = box.width() / 2.0;
    painter.setPen(QPen(theme().edge, 1.2));
    painter.setBrush(theme().map);
    painter.drawEllipse(box);
    painter.setBrush(Qt::NoBrush);
    for (const double elevation : {30.0, 60.0}) {
        const double ring = radius * (90.0 - elevation) / 90.0;
        painter.drawEllipse(box.center(), ring, ring);
    }
    painter.setFont(ui_font(10, true));
    painter.setPen(theme().faint);
    painter.drawText(QRectF(box.center().x() - 10, box.top() + 1, 20, 12), Qt::AlignCenter, "N");
    for (const Satellite& satellite : console.sky().satellites()) {
        const double azimuth = satellite.azimuth_deg * RADIANS_PER_DEGREE;
        const double away = (radius - 6.0) * (90.0 - satellite.elevation_deg) / 90.0;
        const QPointF at = box.center() + QPointF(away * std::sin(azimuth), -away * std::cos(azimuth));
        const QColor colour = colour_of(satellite.constellation);
        painter.setPen(QPen(colour, 1.6));
        painter.setBrush(satellite.used ? colour : theme().map);
        painter.drawEllipse(at, 4.2, 4.2);
    }
}

void Sky_panel::draw_counts(QPainter& painter, const QRectF& box) const
{
    const auto counts = console.sky().counts();
    const Sky::Count total = console.sky().total();
    painter.setPen(theme().ink);
    painter.setFont(ui_font(24, true));
    painter.drawText(QRectF(box.left(), box.top(), box.width(), 28), Qt::AlignLeft | Qt::AlignVCenter,
                     QString::number(total.used));
    const double beside = painter.fontMetrics().horizontalAdvance(QString::number(total.used)) + 8;
    painter.setPen(theme().faint);
    painter.setFont(ui_font(11));
    painter.drawText(QRectF(box.left() + beside, box.top() + 3, box.width(), 24),
                     Qt::AlignLeft | Qt::AlignVCenter, QString("used of %1").arg(total.in_view));
    double top = box.top() + 31;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        if (counts[i].in_view == 0)
            continue;
        const auto constellation = static_cast<Constellation>(i);
        painter.setPen(Qt::NoPen);
        painter.setBrush(colour_of(constellation));
        painter.drawRoundedRect(QRectF(box.left(), top + 3, 8, 8), 2, 2);
        painter.setPen(theme().ink);
        painter.setFont(ui_font(12));
        painter.drawText(QRectF(box.left() + 14, top, 80, 15), Qt::AlignLeft | Qt::AlignVCenter,
                         name(constellation));
        painter.setFont(ui_font(12, true));
        painter.drawText(QRectF(box.right() - 50, top, 50, 15), Qt::AlignRight | Qt::AlignVCenter,
                         QString("%1/%2").arg(counts[i].used).arg(counts[i].in_view));
        top += 15;
    }
}

void Sky_panel::draw_signals(QPainter& painter, const QRectF& box) const
{
    const std::vector<Satellite>& satellites = console.sky().satellites();
    if (satellites.empty()) {
        painter.setPen(theme().faint);
        painter.setFont(ui_font(13));
        painter.drawText(box, Qt::AlignCenter, "no satellite sentences (GSV, GSA)");
        return;
    }
    const double pitch = std::min(22.0, box.width() / static_cast<double>(satellites.size()));
    const double base = box.bottom() - 12.0;
    const double tallest = base - box.top();
    QFont narrow = ui_font(8);
    narrow.setStretch(QFont::Condensed);
    painter.setFont(narrow);
    double left = box.left();
    for (const Satellite& satellite : satellites) {
        const double tall = tallest * std::clamp(satellite.signal_db / 55.0, 0.03, 1.0);
        const QColor colour = colour_of(satellite.constellation);
        painter.setPen(QPen(colour, 1.0));
        painter.setBrush(satellite.used ? QBrush(colour) : QBrush(Qt::NoBrush));
        painter.drawRoundedRect(QRectF(left + 1.5, base - tall, pitch - 3.0, tall), 1.5, 1.5);
        painter.setPen(theme().faint);
        painter.drawText(QRectF(left - 4, base + 1, pitch + 8, 11), Qt::AlignCenter,
                         QString::number(satellite.number));
        left += pitch;
    }
}

void Sky_panel::draw_firmware(QPainter& painter, const QRectF& box) const
{
    const Firmware& firmware = console.firmware();
    painter.setPen(QPen(theme().edge, 1.0));
    painter.drawLine(box.topLeft(), box.topRight());
    painter.setPen(theme().faint);
    painter.setFont(ui_font(11));
    painter.drawText(box.adjusted(0, 5, 0, 0), Qt::AlignLeft | Qt::AlignTop, "Receiver firmware");
    if (console.source().kind() == "SIMULATION")
        painter.drawText(box.adjusted(0, 5, 0, 0), Qt::AlignRight | Qt::AlignTop, "all made up");
    painter.setPen(theme().ink);
    painter.setFont(ui_font(15, true));
    painter.drawText(box.adjusted(0, 0, 0, -1), Qt::AlignLeft | Qt::AlignBottom, firmware.version_text());
    painter.setPen(verdict_colour(firmware.verdict()));
    painter.setFont(ui_font(11, true));
    painter.drawText(box.adjusted(0, 0, 0, -2), Qt::AlignRight | Qt::AlignBottom,
                     painter.fontMetrics().elidedText(firmware.verdict_text(), Qt::ElideRight,
                                                      static_cast<int>(box.width()) - 96));
}
