#include "Tuning_panel.h"

#include "Theme.h"
#include "Touch_button.h"

#include <QPainter>

#include <array>
#include <cmath>

namespace {

struct Gain {
    const char* name;
    const char* symbol;
    const char* unit;
    const char* key; ///< raises it; with Shift lowers it
    double step;
    int decimals;
    double Gains::*value;
};

const std::array<Gain, 5> GAINS = {{
    {"proportional", "kp", "°/m", "P", 0.5, 1, &Gains::kp_deg},
    {"integral", "ki", "°/m/s", "I", 0.1, 1, &Gains::ki_deg},
    {"derivative", "kd", "°/(m/s)", "D", 0.5, 1, &Gains::kd_deg},
    {"integral limit", "max i", "°", "L", 0.5, 1, &Gains::max_integral_deg},
    {"steering limit", "max out", "°", "M", 1.0, 0, &Gains::max_steering_deg},
}};

constexpr int BUTTON = 48;

} // namespace

Tuning_panel::Tuning_panel(const Console& shown, const Actions& raised) : console(shown), actions(raised)
{
    for (std::size_t i = 0; i < GAINS.size(); ++i) {
        const QString symbol = QString(GAINS[i].symbol).remove(' ');
        const auto button = [this, i, &symbol](Touch_button::Glyph glyph, const QString& direction,
                                               const QString& keys, double steps) {
            auto* one = new Touch_button(QString(), glyph);
            one->setParent(this);
            one->setObjectName(symbol + "_" + direction);
            one->set_keys(keys, QString("%1 %2").arg(GAINS[i].name, direction));
            one->set_quiet(true);
            one->setAutoRepeat(true);
            connect(one, &Touch_button::clicked, this, [this, i, steps] { change(i, steps); });
            return one;
        };
        rows.push_back(
            {button(Touch_button::Glyph::minus, "down", QString("Shift+%1").arg(GAINS[i].key), -1.0),
             button(Touch_button::Glyph::plus, "up", GAINS[i].key, 1.0)});
    }
}

void Tuning_panel::change(std::size_t row, double steps)
{
    Gains gains = console.gains();
    const Gain& gain = GAINS[row];
    double& value = gains.*gain.value;
    value = gain.step * std::round(value / gain.step + steps); // no crumbs of many small steps
    actions.tune(gains);
}

void Tuning_panel::resizeEvent(QResizeEvent* /*event*/)
{
    const double pitch = height() / static_cast<double>(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const int top = static_cast<int>((static_cast<double>(i) + 0.5) * pitch) - BUTTON / 2;
        rows[i].up->setGeometry(width() - BUTTON - 8, top, BUTTON, BUTTON);
        rows[i].down->setGeometry(width() - 2 * BUTTON - 16, top, BUTTON, BUTTON);
    }
}

void Tuning_panel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), theme().panel);
    const double pitch = height() / static_cast<double>(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Gain& gain = GAINS[i];
        const QRectF row(12, static_cast<double>(i) * pitch, width() - 138, pitch);
        if (i > 0)
            painter.fillRect(QRectF(row.left(), row.top(), row.width(), 1), theme().edge);
        painter.setPen(theme().ink);
        painter.setFont(ui_font(16, true));
        painter.drawText(row.adjusted(0, 6, 0, 0), Qt::AlignLeft | Qt::AlignTop, gain.symbol);
        painter.setPen(theme().faint);
        painter.setFont(ui_font(12));
        painter.drawText(row.adjusted(0, 0, 0, -6), Qt::AlignLeft | Qt::AlignBottom, gain.name);
        painter.drawText(row.adjusted(0, 0, 0, -6), Qt::AlignRight | Qt::AlignBottom, gain.unit);
        painter.setPen(theme().ink);
        painter.setFont(ui_font(23, true));
        painter.drawText(row.adjusted(0, 2, 0, 0), Qt::AlignRight | Qt::AlignTop,
                         QString::number(console.gains().*gain.value, 'f', gain.decimals));
    }
    round_corners(painter, rect());
}
