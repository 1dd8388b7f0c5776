#pragma once

#include "Console.h"

#include <QWidget>

/// The satellites by constellation: where they stand, how strong they are, how many are used; and the
/// receiver's firmware.
class Sky_panel : public QWidget {
    Q_OBJECT

public:
    explicit Sky_panel(const Console& shown);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void draw_dome(QPainter& painter, const QRectF& box) const;
    void draw_counts(QPainter& painter, const QRectF& box) const;
    void draw_signals(QPainter& painter, const QRectF& box) const;
    void draw_firmware(QPainter& painter, const QRectF& box) const;

    const Console& console;
};
