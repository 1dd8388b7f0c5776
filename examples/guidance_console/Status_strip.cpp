#include "Status_strip.h"

#include "Theme.h"

#include <QPainter>

namespace {

struct Word {
    QString text;
    QColor colour;
};

Word quality_word(const Console& console)
{
    if (!console.moment().has_fix)
        return {"NO FIX", theme().bad};
    switch (console.moment().epoch.fix.quality) {
    case Quality::rtk_fixed:
        return {"RTK FIXED", theme().good};
    case Quality::rtk_float:
        return {"RTK FLOAT", theme().caution};
    case Quality::differential:
        return {"DGPS", theme().caution};
    case Quality::plain:
        break;
    }
    return {"GPS", theme().bad};
}

Word source_word(const Console& console)
{
    const Source& source = console.source();
    const QString detail = source.detail();
    switch (source.state()) {
    case Source::State::waiting:
        return {source.is_live() ? "waiting for " + detail : detail, theme().warning};
    case Source::State::lost:
        return {"lost " + detail, theme().bad};
    case Source::State::finished:
        return {"ended  " + detail, theme().faint};
    case Source::State::receiving:
        break;
    }
    return {detail, theme().ink};
}

} // namespace

Status_strip::Status_strip(const Console& shown) : console(shown)
{
    setFixedHeight(30);
}

void Status_strip::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), theme().window);
    const double used = draw_left(painter);
    draw_right(painter, used);
}

double Status_strip::draw_left(QPainter& painter) const
{
    const QString kind = console.source().kind();
    painter.setFont(ui_font(12, true));
    const QRectF pill(8, 5, painter.fontMetrics().horizontalAdvance(kind) + 20, 20);
    const bool lost = console.source().state() == Source::State::lost;
    painter.setPen(Qt::NoPen);
    painter.setBrush(lost ? theme().fill_bad : theme().fill_accent);
    painter.drawRoundedRect(pill, 10, 10);
    painter.setPen(theme().on_fill);
    painter.drawText(pill, Qt::AlignCenter, kind);

    const Word detail = source_word(console);
    painter.setFont(ui_font(14));
    painter.setPen(detail.colour);
    const QString shown = painter.fontMetrics().elidedText(detail.text, Qt::ElideMiddle, 264);
    painter.drawText(QRectF(pill.right() + 10, 0, 270, height()), Qt::AlignVCenter | Qt::AlignLeft, shown);
    return pill.right() + 20 + painter.fontMetrics().horizontalAdvance(shown);
}

void Status_strip::draw_right(QPainter& painter, double from) const
{
    double right = width() - 10.0;
    const auto put = [&painter, &right, from, this](const QString& text, const QColor& colour, bool bold,
                                                    bool dot) {
        painter.setFont(ui_font(14, bold));
        const double wide = painter.fontMetrics().horizontalAdvance(text) + (dot ? 14 : 0);
        if (right - wide < from)
            return;
        right -= wide;
        if (dot) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(colour);
            painter.drawEllipse(QPointF(right + 4, height() / 2.0), 4.0, 4.0);
            painter.setPen(theme().ink);
        } else {
            painter.setPen(colour);
        }
        painter.drawText(QRectF(right + (dot ? 14 : 0), 0, wide, height()), Qt::AlignVCenter | Qt::AlignLeft,
                         text);
        right -= 18.0;
    };

    const Word quality = quality_word(console);
    put(quality.text, quality.colour, true, true);
    const Sky::Count satellites = console.sky().total();
    if (satellites.in_view > 0)
        put(QString("%1/%2 sats").arg(satellites.used).arg(satellites.in_view), theme().ink, false, false);
    const Moment& now = console.moment();
    if (now.has_fix)
        put(QString("%1 km/h").arg(3.6 * now.epoch.speed, 0, 'f', 1), theme().ink, true, false);
    put(console.store().problem().isEmpty() ? "rec" : "no rec",
        console.store().problem().isEmpty() ? theme().good : theme().bad, false, true);
    if (const Epoch_server* server = console.server())
        put(QString(":%1").arg(server->bound_port()), server->has_viewers() ? theme().good : theme().faint,
            false, true);
}
