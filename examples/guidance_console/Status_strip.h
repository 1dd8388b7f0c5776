#pragma once

#include "Console.h"

#include <QWidget>

class QPainter;

/// Where fixes come from and how good they are, whether records are kept and who looks on; and what is wrong.
class Status_strip : public QWidget {
    Q_OBJECT

public:
    explicit Status_strip(const Console& shown);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    double draw_left(QPainter& painter) const;
    void draw_right(QPainter& painter, double from) const;

    const Console& console;
};
