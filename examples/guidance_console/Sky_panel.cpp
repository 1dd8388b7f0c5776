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
        return theme().second;
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
        return theme().warning;
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
    const double dome = 122.0;
    const double firmware = 52.0;
    draw_dome(painter, QRectF(10, 10, dome, dome));
    draw_counts(painter, QRectF(dome + 26, 6, width() - dome - 38, dome + 10));
    draw_signals(painter, QRectF(12, dome + 20, width() - 24, height() - dome - firmware - 26));
    draw_firmware(painter, QRectF(12, height() - firmware, width() - 24, firmware - 6));
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
    painter.setFont(ui_font(11, true));
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
    if (total.in_view == 0) {
        painter.setPen(theme().faint);
        painter.setFont(ui_font(14));
        painter.drawText(box, Qt::AlignVCenter | Qt::TextWordWrap,
                         "No satellites: the source has sent no GSV and GSA sentences");
        return;
    }
    painter.setPen(theme().ink);
    painter.setFont(ui_font(24, true));
    painter.drawText(QRectF(box.left(), box.top(), box.width(), 28), Qt::AlignLeft | Qt::AlignVCenter,
                     QString::number(total.used));
    const double beside = painter.fontMetrics().horizontalAdvance(QString::number(total.used)) + 8;
    painter.setPen(theme().faint);
    painter.setFont(ui_font(13));
    painter.drawText(QRectF(box.left() + beside, box.top() + 3, box.width(), 24),
                     Qt::AlignLeft | Qt::AlignVCenter, QString("used of %1").arg(total.in_view));
    const auto rows =
        std::count_if(counts.begin(), counts.end(), [](const auto& one) { return one.in_view > 0; });
    const double pitch =
        std::min(15.0, (box.height() - 31.0) / static_cast<double>(std::max<std::ptrdiff_t>(1, rows)));
    double top = box.top() + 31;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        if (counts[i].in_view == 0)
            continue;
        const auto constellation = static_cast<Constellation>(i);
        painter.setPen(Qt::NoPen);
        painter.setBrush(colour_of(constellation));
        painter.drawRoundedRect(QRectF(box.left(), top + 3, 9, 9), 2, 2);
        painter.setPen(theme().ink);
        painter.setFont(ui_font(13));
        painter.drawText(QRectF(box.left() + 15, top, 90, 15), Qt::AlignLeft | Qt::AlignVCenter,
                         name(constellation));
        painter.setFont(ui_font(13, true));
        painter.drawText(QRectF(box.right() - 50, top, 50, 15), Qt::AlignRight | Qt::AlignVCenter,
                         QString("%1/%2").arg(counts[i].used).arg(counts[i].in_view));
        top += pitch;
    }
}

void Sky_panel::draw_signals(QPainter& painter, const QRectF& box) const
{
    const std::vector<Satellite>& satellites = console.sky().satellites();
    const double gap = 3.0; // between constellations
    const std::size_t count = satellites.size();
    const double pitch = std::min(26.0, (box.width() - gap * CONSTELLATIONS) /
                                            static_cast<double>(std::max<std::size_t>(1, count)));
    // Where numbers are wider than bars, every other one stands in a second row.
    painter.setFont(ui_font(10));
    const bool two_rows = painter.fontMetrics().horizontalAdvance("888") > pitch;
    const double base = box.bottom() - (two_rows ? 23.0 : 12.0);
    const double tallest = base - box.top();
    double left = box.left();
    for (std::size_t i = 0; i < count; ++i) {
        const Satellite& satellite = satellites[i];
        if (i > 0 && satellite.constellation != satellites[i - 1].constellation)
            left += gap;
        const double tall = tallest * std::clamp(satellite.signal_db / 55.0, 0.03, 1.0);
        const QColor colour = colour_of(satellite.constellation);
        painter.setPen(QPen(colour, 1.0));
        painter.setBrush(satellite.used ? QBrush(colour) : QBrush(Qt::NoBrush));
        painter.drawRoundedRect(QRectF(left + 1.5, base - tall, pitch - 3.0, tall), 1.5, 1.5);
        painter.setPen(theme().ink);
        painter.drawText(QRectF(left - 8, base + (two_rows && i % 2 != 0 ? 11 : 1), pitch + 16, 11),
                         Qt::AlignCenter, QString::number(satellite.number));
        left += pitch;
    }
}

void Sky_panel::draw_firmware(QPainter& painter, const QRectF& box) const
{
    const Firmware& firmware = console.firmware();
    painter.setPen(QPen(theme().edge, 1.0));
    painter.drawLine(box.topLeft(), box.topRight());
    const QRectF upper(box.left(), box.top() + 4, box.width(), 22);
    const QRectF lower(box.left(), box.top() + 26, box.width(), 18);
    painter.setPen(theme().faint);
    painter.setFont(ui_font(13));
    painter.drawText(upper, Qt::AlignLeft | Qt::AlignVCenter, "Receiver firmware");
    if (console.source().kind() == "SIMULATION")
        painter.drawText(lower, Qt::AlignRight | Qt::AlignVCenter, "all made up");
    painter.setPen(theme().ink);
    painter.setFont(ui_font(17, true));
    painter.drawText(upper, Qt::AlignRight | Qt::AlignVCenter,
                     firmware.verdict() == Firmware::Verdict::unknown ? "unknown" : firmware.version_text());
    painter.setPen(verdict_colour(firmware.verdict()));
    painter.setFont(ui_font(13, true));
    painter.drawText(lower, Qt::AlignLeft | Qt::AlignVCenter,
                     painter.fontMetrics().elidedText(firmware.verdict_text(), Qt::ElideRight,
                                                      static_cast<int>(box.width()) - 4));
}
