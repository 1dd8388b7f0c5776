#include "Theme.h"

#include <QPainter>
#include <QPainterPath>

namespace {

const Theme* current = &Theme::bright();

} // namespace

const Theme& Theme::bright()
{
    static const Theme colours = {false,
                                  QColor(0xDD, 0xE2, 0xE8),
                                  QColor(0xFF, 0xFF, 0xFF),
                                  QColor(0xF2, 0xF5, 0xF8),
                                  QColor(0xC3, 0xCC, 0xD6),
                                  QColor(0x12, 0x1C, 0x28),
                                  QColor(0x5C, 0x6B, 0x7C),
                                  QColor(0x0B, 0x63, 0xC5),
                                  QColor(0x7B, 0x3F, 0xC4),
                                  QColor(0x0E, 0x8F, 0x3F),
                                  QColor(0xD9, 0x82, 0x00),
                                  QColor(0xCF, 0x22, 0x2A),
                                  QColor(0xA0, 0x56, 0x00),
                                  QColor(0xD6, 0xDC, 0xE3),
                                  QColor(0xEF, 0xEB, 0xDF),
                                  QColor(0xDE, 0xD8, 0xC7),
                                  QColor(0xB4, 0xAC, 0x97),
                                  QColor(0x4B, 0xA3, 0x4F, 0x66),
                                  QColor(0xC2, 0x1E, 0x6B),
                                  QColor(0x0B, 0x63, 0xC5),
                                  QColor(0x0E, 0x8F, 0x3F),
                                  QColor(0xCF, 0x22, 0x2A),
                                  QColor(0xFF, 0xFF, 0xFF)};
    return colours;
}

const Theme& Theme::dark()
{
    static const Theme colours = {true,
                                  QColor(0x0A, 0x0E, 0x13),
                                  QColor(0x15, 0x1B, 0x23),
                                  QColor(0x22, 0x2B, 0x36),
                                  QColor(0x33, 0x3F, 0x4D),
                                  QColor(0xDC, 0xE4, 0xEC),
                                  QColor(0x8A, 0x99, 0xA9),
                                  QColor(0x4D, 0xA3, 0xFF),
                                  QColor(0xB4, 0x8C, 0xFF),
                                  QColor(0x2F, 0xBF, 0x62),
                                  QColor(0xF0, 0xA5, 0x30),
                                  QColor(0xF2, 0x4E, 0x4E),
                                  QColor(0xF0, 0xA5, 0x30),
                                  QColor(0x2A, 0x33, 0x3E),
                                  QColor(0x10, 0x16, 0x1B),
                                  QColor(0x1D, 0x26, 0x2E),
                                  QColor(0x44, 0x52, 0x5F),
                                  QColor(0x36, 0x9A, 0x58, 0x66),
                                  QColor(0xFF, 0x5C, 0xA8),
                                  QColor(0x1B, 0x4F, 0x86),
                                  QColor(0x17, 0x5E, 0x34),
                                  QColor(0x8A, 0x24, 0x2A),
                                  QColor(0xF2, 0xF5, 0xF8)};
    return colours;
}

const Theme& theme()
{
    return *current;
}

void use_theme(bool night)
{
    current = night ? &Theme::dark() : &Theme::bright();
}

void round_corners(QPainter& painter, const QRectF& panel)
{
    QPainterPath outside;
    outside.addRect(panel);
    QPainterPath inside;
    inside.addRoundedRect(panel, 8.0, 8.0);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(outside.subtracted(inside), theme().window);
}

QFont ui_font(int pixels, bool bold)
{
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(pixels);
    font.setBold(bold);
    return font;
}
