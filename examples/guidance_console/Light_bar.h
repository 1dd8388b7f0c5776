#pragma once

#include "Console.h"

#include <QWidget>

/// How far off the line, to be read at arm's length: lamps and an arrow on the side where the line is.
class Light_bar : public QWidget {
    Q_OBJECT

public:
    /// Lamps on either side of the middle one.
    static constexpr int LAMPS = 14;

    static constexpr int HEIGHT = 112;
    static constexpr int NIGHT_WIDTH = 56; ///< of the place for a button in the lower right corner

    explicit Light_bar(const Console& shown);

    /// How many lamps burn, and on which side: negative to the left. The middle one always does.
    static int lamps(double off_seen);

    /// "12 cm", "6.04 m", "12.3 m", "529 m": in the unit that is read best, without its sign.
    static QString distance_text(double metres);

    /// The distance; without a line or a fix a dash.
    QString figure() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void draw_lamps(QPainter& painter) const;
    void draw_figure(QPainter& painter) const;
    void draw_left(QPainter& painter) const;
    void draw_right(QPainter& painter) const;
    bool knows() const;
    QColor colour() const;

    const Console& console;
};
